// The agent executable end to end: requests on standard input drive real GTK
// applications (mousepad and galculator, by their desktop-entry ids) on the
// desktop of scripts/desktop; the tests read the one JSON document on standard
// output, the exit status, and what changed in the applications. Changes are
// checked with the agent's own assert action, repeated until a deadline where
// an application may lag behind on a busy machine.

#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "tests/e2e/AgentRequests.h"
#include "tests/e2e/DesktopSupport.h"
#include "tests/e2e/DisplayApplications.h"
#include "tests/e2e/PngFile.h"

namespace velmora::e2e {
namespace {

namespace fs = std::filesystem;

const std::string kEditor = "org.xfce.mousepad";
const std::string kCalculator = "galculator";

// Generous for a loaded two-core machine; polls end as soon as they succeed.
constexpr double kSettleSeconds = 30;
constexpr double kChangeSeconds = 10;

std::string entryPath(const std::string& applicationId) {
    return "/usr/share/applications/" + applicationId + ".desktop";
}

Json parse(const char* text) {
    return Json::parse(text);
}

// The receipt's field as text, or "(absent)".
std::string text(const Json& receipt, const char* key) {
    return receipt.contains(key) && receipt[key].is_string() ? receipt[key].get<std::string>()
                                                             : "(absent)";
}

class AgentEndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        if (!onDesktop()) {
            GTEST_FAIL() << kNeedsDesktop;
        }
        started_ = std::make_unique<StartedApplications>();
    }

    void TearDown() override {
        if (started_) {
            for (pid_t id : started_->endAll()) {
                EXPECT_TRUE(processEnded(id)) << "application " << id << " is still running";
            }
            started_.reset();
        }
    }

    // Launches `target` through the agent and waits until the element that
    // `ready` selects sits still on screen. The launched process's id, or 0
    // with a failure recorded.
    pid_t launch(const std::string& target, const Json& ready) {
        AgentRun run = runRequest(target, Json::array({{{"kind", "launch"}}}));
        EXPECT_EQ(run.exitStatus, 0) << summary(run);
        Json receipt = receiptAt(run, 0);
        EXPECT_EQ(receipt.value("action", ""), "launch");
        EXPECT_EQ(receipt.value("succeeded", false), true) << summary(run);
        if (!receipt.value("succeeded", false)) {
            return 0;
        }
        if (!settledFrame(target, ready, kSettleSeconds)) {
            ADD_FAILURE() << target << " shows no " << ready.dump() << " on screen";
            return 0;
        }
        auto processes = processesLaunchedFrom(entryPath(target));
        EXPECT_EQ(processes.size(), 1u) << target << " runs " << processes.size() << " times";
        return processes.size() == 1 ? processes.front() : 0;
    }

    // The frame of the first element that `selector` finds in `target`.
    std::optional<Rect> frameOf(const std::string& target, const Json& selector) {
        AgentRun run =
            runRequest(target, Json::array({{{"kind", "query"}, {"selector", selector}}}));
        for (const auto& element : receiptAt(run, 0).value("queryResult", Json::array())) {
            if (auto frame = elementFrame(element)) {
                return frame;
            }
        }
        return std::nullopt;
    }

    std::unique_ptr<StartedApplications> started_;
};

TEST_F(AgentEndToEnd, SelfCheckIsHealthyOnTheDesktop) {
    AgentRun run = runAgent({"self-check"});
    EXPECT_EQ(run.exitStatus, 0);
    EXPECT_EQ(run.err, "");
    EXPECT_EQ(run.response.value("protocolVersion", ""), "velmora.driver_broker.v1");
    EXPECT_EQ(run.response.value("accessibilityTrusted", false), true) << run.response.dump();
    EXPECT_EQ(run.response.value("screenRecordingGranted", false), true) << run.response.dump();
    EXPECT_EQ(run.response.value("healthy", false), true) << run.response.dump();
}

TEST_F(AgentEndToEnd, LaunchesAndFocusesByDesktopEntryIdAndFingerprintsTheExecutable) {
    // Before the launch the fingerprint comes from the installed entry's program.
    const std::string installed = sha256OfFile("/usr/bin/mousepad");
    ASSERT_EQ(installed.size(), 64u) << "mousepad is not installed (run scripts/setup)";

    AgentRun launched = runRequest(kEditor, parse(R"([{"kind": "launch", "label": "open"}])"));
    ASSERT_EQ(launched.exitStatus, 0) << summary(launched);
    EXPECT_EQ(launched.response.value("ok", false), true);
    EXPECT_FALSE(launched.response.contains("error"));
    Json opened = receiptAt(launched, 0);
    EXPECT_EQ(opened.value("schema", ""), "velmora.native_app_runtime_receipt.v1");
    EXPECT_EQ(opened.value("action", ""), "launch");
    EXPECT_EQ(opened.value("label", ""), "open");
    EXPECT_EQ(opened.value("bundleIdentifier", ""), kEditor);
    EXPECT_EQ(opened.value("succeeded", false), true);
    EXPECT_EQ(opened.value("reversible", false), true);
    EXPECT_EQ(text(opened, "binarySha256"), installed);
    EXPECT_FALSE(opened.contains("errorMessage"));

    ASSERT_TRUE(settledFrame(kEditor, {{"role", "AXTextArea"}}, kSettleSeconds))
        << "the editor shows no text area";
    auto editors = processesLaunchedFrom(entryPath(kEditor));
    ASSERT_EQ(editors.size(), 1u);
    const std::string editorSha = sha256OfFile("/proc/" + std::to_string(editors[0]) + "/exe");
    ASSERT_EQ(editorSha.size(), 64u);
    EXPECT_EQ(editorSha, installed);

    // A second application, brought to the front by its own request, so that
    // the editor is certainly behind it.
    pid_t calculator = launch(kCalculator, {{"role", "AXToggleButton"}, {"title", "7"}});
    ASSERT_NE(calculator, 0);
    AgentRun calculatorFront = runRequest(kCalculator, parse(R"([{"kind": "focus"}])"));
    ASSERT_EQ(calculatorFront.exitStatus, 0) << summary(calculatorFront);
    EXPECT_EQ(text(receiptAt(calculatorFront, 0), "binarySha256"),
              sha256OfFile("/proc/" + std::to_string(calculator) + "/exe"));

    AgentRun run = runRequest(kEditor, parse(R"([
        {"kind": "frontmost", "label": "behind"},
        {"kind": "focus", "label": "to the front"},
        {"kind": "focus", "label": "again"},
        {"kind": "frontmost", "label": "in front"},
        {"kind": "query", "selector": {"role": "AXWindow"}}
    ])"));
    ASSERT_EQ(run.exitStatus, 0) << summary(run);
    EXPECT_EQ(run.response.value("ok", false), true);
    EXPECT_EQ(run.response.value("sessionId", ""), "e2e-session");

    // A receipt's match records the front as the action found it: behind
    // before the first focus, in front for everything after it.
    Json behind = receiptAt(run, 0);
    EXPECT_EQ(behind.value("frontmostTargetMatch", true), false);
    EXPECT_EQ(text(behind["postActionStructuralState"], "frontmostBundleId"), kCalculator);

    Json focus = receiptAt(run, 1);
    EXPECT_EQ(focus.value("action", ""), "focus");
    EXPECT_EQ(focus.value("label", ""), "to the front");
    EXPECT_EQ(focus.value("succeeded", false), true);
    EXPECT_EQ(focus.value("frontmostTargetMatch", true), false);
    EXPECT_FALSE(focus.contains("errorMessage"));
    EXPECT_EQ(text(focus["postActionStructuralState"], "frontmostBundleId"), kEditor);
    EXPECT_GT(focus["postActionStructuralState"].value("elementCount", 0), 10);
    EXPECT_GE(focus["postActionStructuralState"]["roleHistogram"].value("AXWindow", 0), 1);

    Json again = receiptAt(run, 2);
    EXPECT_EQ(again.value("succeeded", false), true);
    EXPECT_EQ(again.value("frontmostTargetMatch", false), true);
    Json inFront = receiptAt(run, 3);
    EXPECT_EQ(inFront.value("frontmostTargetMatch", false), true);
    Json windows = receiptAt(run, 4);
    EXPECT_EQ(windows.value("frontmostTargetMatch", false), true);
    ASSERT_FALSE(windows.value("queryResult", Json::array()).empty());
    EXPECT_EQ(windows["queryResult"][0].value("role", ""), "AXWindow");

    // A later request finds the editor still in front.
    AgentRun later = runRequest(kEditor, parse(R"([{"kind": "frontmost"}])"));
    EXPECT_EQ(receiptAt(later, 0).value("frontmostTargetMatch", false), true) << summary(later);

    // Every receipt of a run carries the executable's fingerprint.
    for (const auto& receipt : run.response["receipts"]) {
        EXPECT_EQ(text(receipt, "binarySha256"), editorSha);
        EXPECT_EQ(receipt.value("bundleIdentifier", ""), kEditor);
    }
}

TEST_F(AgentEndToEnd, QueryFindsTheDialogsPushButtonsWithFramesAndAClickClosesIt) {
    ASSERT_NE(launch(kEditor, {{"role", "AXTextArea"}}), 0);

    // ctrl+l opens the go-to-line dialog.
    AgentRun opened = runRequest(kEditor, parse(R"([
        {"kind": "focus"},
        {"kind": "keyPress", "keys": ["ctrl+l"], "label": "go to line"}
    ])"));
    ASSERT_EQ(opened.exitStatus, 0) << summary(opened);
    Json chord = receiptAt(opened, 1);
    EXPECT_EQ(chord.value("frontmostTargetMatch", false), true);
    EXPECT_EQ(chord.value("reversible", true), false);
    AgentRun dialog;
    ASSERT_TRUE(assertEventually(kEditor, {{"role", "AXWindow"}, {"title", "Go To"}},
                                 {{"exists", true}}, kChangeSeconds, &dialog))
        << summary(dialog);
    auto dialogFrame = elementFrame(receiptAt(dialog, 0)["queryResult"][0]);
    ASSERT_TRUE(dialogFrame);

    AgentRun query = runRequest(kEditor, parse(R"([
        {"kind": "query", "selector": {"role": "AXButton"}, "label": "buttons"}
    ])"));
    ASSERT_EQ(query.exitStatus, 0) << summary(query);
    Json found = receiptAt(query, 0);
    EXPECT_EQ(found.value("label", ""), "buttons");
    ASSERT_TRUE(found.contains("queryResult"));
    int framed = 0;
    bool cancel = false;
    for (const auto& element : found["queryResult"]) {
        EXPECT_EQ(element.value("role", ""), "AXButton");
        EXPECT_FALSE(element.contains("value")) << "a query carries no values";
        auto frame = elementFrame(element);
        if (!frame) {
            continue;  // the hidden toolbar's buttons are not on screen
        }
        ++framed;
        EXPECT_GT(frame->width, 0);
        EXPECT_GT(frame->height, 0);
        // The dialog's buttons lie inside the dialog.
        EXPECT_GE(frame->x, dialogFrame->x);
        EXPECT_GE(frame->y, dialogFrame->y);
        EXPECT_LE(frame->x + frame->width, dialogFrame->x + dialogFrame->width);
        EXPECT_LE(frame->y + frame->height, dialogFrame->y + dialogFrame->height);
        cancel = cancel || element.value("title", "") == "Cancel";
    }
    EXPECT_GE(framed, 2) << found["queryResult"].dump();
    EXPECT_TRUE(cancel) << found["queryResult"].dump();

    // Clicking Cancel by its selector closes the dialog.
    AgentRun clicked = runRequest(kEditor, parse(R"([
        {"kind": "click", "selector": {"role": "AXButton", "title": "Cancel"}}
    ])"));
    ASSERT_EQ(clicked.exitStatus, 0) << summary(clicked);
    EXPECT_EQ(receiptAt(clicked, 0).value("frontmostTargetMatch", false), true);
    EXPECT_TRUE(waitUntil(
        [&] {
            AgentRun windows = runRequest(kEditor, parse(R"([
                {"kind": "query", "selector": {"role": "AXWindow", "title": "Go To"}}
            ])"));
            return windows.exitStatus == 0 &&
                   receiptAt(windows, 0).value("queryResult", Json::array({1})).empty();
        },
        kChangeSeconds))
        << "the dialog is still open";
}

TEST_F(AgentEndToEnd, ClicksBySelectorPressTheCalculatorsKeys) {
    ASSERT_NE(launch(kCalculator, {{"role", "AXToggleButton"}, {"title", "7"}}), 0);
    AgentRun before = runRequest(kCalculator, parse(R"([
        {"kind": "assert", "selector": {"role": "AXTextArea"}, "expect": {"valueEquals": "0"}}
    ])"));
    ASSERT_EQ(before.exitStatus, 0) << summary(before);

    // The keys are GTK toggle buttons, which keep their AT-SPI role name.
    AgentRun run = runRequest(kCalculator, parse(R"([
        {"kind": "focus"},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "7"}, "label": "seven"},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "8"}, "label": "eight"}
    ])"));
    ASSERT_EQ(run.exitStatus, 0) << summary(run);
    for (size_t i : {1u, 2u}) {
        Json click = receiptAt(run, i);
        EXPECT_EQ(click.value("action", ""), "click");
        EXPECT_EQ(click.value("succeeded", false), true);
        EXPECT_EQ(click.value("frontmostTargetMatch", false), true);
        EXPECT_EQ(click.value("reversible", true), false);
    }

    AgentRun display;
    EXPECT_TRUE(assertEventually(kCalculator, {{"role", "AXTextArea"}}, {{"valueEquals", "78"}},
                                 kChangeSeconds, &display))
        << summary(display);
    Json passed = receiptAt(display, 0);
    ASSERT_FALSE(passed.value("queryResult", Json::array()).empty());
    EXPECT_EQ(passed["queryResult"][0].value("value", ""), "78");

    // As a broker sends it: keys and the check of their result in one request,
    // the assert retrying until the display has caught up.
    AgentRun product = runRequest(kCalculator, parse(R"([
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "*"}},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "2"}},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "="}},
        {"kind": "assert", "selector": {"role": "AXTextArea"}, "expect": {"valueEquals": "156"},
         "label": "78 * 2"}
    ])"));
    EXPECT_EQ(product.exitStatus, 0) << summary(product);
    Json check = receiptAt(product, 3);
    EXPECT_EQ(check.value("succeeded", false), true) << check.dump();
    EXPECT_EQ(check.value("label", ""), "78 * 2");
    EXPECT_EQ(check.value("reversible", false), true);
    ASSERT_FALSE(check.value("queryResult", Json::array()).empty());
    EXPECT_EQ(check["queryResult"][0].value("value", ""), "156");
}

TEST_F(AgentEndToEnd, TypesUnicodeTextIntoAnEntryThatAChordOpened) {
    ASSERT_NE(launch(kEditor, {{"role", "AXTextArea"}}), 0);

    // No single-line field before the chord: ctrl+f shows the search bar's entry.
    AgentRun run = runRequest(kEditor, parse(R"([
        {"kind": "focus"},
        {"kind": "query", "selector": {"role": "AXTextField"}},
        {"kind": "keyPress", "keys": ["ctrl+f"]}
    ])"));
    ASSERT_EQ(run.exitStatus, 0) << summary(run);
    EXPECT_EQ(receiptAt(run, 1)["queryResult"], Json::array());
    AgentRun shown;
    ASSERT_TRUE(assertEventually(kEditor, {{"role", "AXTextField"}}, {{"exists", true}},
                                 kChangeSeconds, &shown))
        << summary(shown);

    const std::string typed = "Grüße, Ünïcödé ✓ 世界 € Ω";
    Json actions = Json::array({
        {{"kind", "click"}, {"selector", {{"role", "AXTextField"}}}},
        {{"kind", "typeText"}, {"text", typed}, {"label", "type"}},
    });
    AgentRun typing = runRequest(kEditor, actions);
    ASSERT_EQ(typing.exitStatus, 0) << summary(typing);
    Json type = receiptAt(typing, 1);
    EXPECT_EQ(type.value("succeeded", false), true);
    EXPECT_EQ(type.value("frontmostTargetMatch", false), true);

    AgentRun value;
    EXPECT_TRUE(assertEventually(kEditor, {{"role", "AXTextField"}}, {{"valueEquals", typed}},
                                 kChangeSeconds, &value))
        << summary(value) << " " << receiptAt(value, 0).value("queryResult", Json()).dump();
    // valueContains folds case.
    EXPECT_TRUE(assertEventually(kEditor, {{"role", "AXTextField"}},
                                 {{"valueContains", "ÜNÏCÖDÉ ✓ 世界"}}, kChangeSeconds, &value))
        << summary(value);
    // The text went into the entry, not into the document.
    EXPECT_TRUE(assertEventually(kEditor, {{"role", "AXTextArea"}}, {{"valueEquals", ""}},
                                 kChangeSeconds, &value))
        << summary(value);
}

TEST_F(AgentEndToEnd, SelectAllThenTypingReplacesTheDocument) {
    ASSERT_NE(launch(kEditor, {{"role", "AXTextArea"}}), 0);

    AgentRun draft = runRequest(kEditor, parse(R"([
        {"kind": "click", "selector": {"role": "AXTextArea"}},
        {"kind": "typeText", "text": "first draft"}
    ])"));
    ASSERT_EQ(draft.exitStatus, 0) << summary(draft);
    AgentRun value;
    ASSERT_TRUE(assertEventually(kEditor, {{"role", "AXTextArea"}},
                                 {{"valueEquals", "first draft"}}, kChangeSeconds, &value))
        << summary(value);

    AgentRun replaced = runRequest(kEditor, parse(R"([
        {"kind": "keyPress", "keys": ["ctrl+a"], "label": "select all"},
        {"kind": "typeText", "text": "Zweite Fassung — ersetzt ✓"}
    ])"));
    ASSERT_EQ(replaced.exitStatus, 0) << summary(replaced);
    Json chord = receiptAt(replaced, 0);
    EXPECT_EQ(chord.value("action", ""), "keyPress");
    EXPECT_EQ(chord.value("frontmostTargetMatch", false), true);
    EXPECT_TRUE(assertEventually(kEditor, {{"role", "AXTextArea"}},
                                 {{"valueEquals", "Zweite Fassung — ersetzt ✓"}}, kChangeSeconds,
                                 &value))
        << summary(value) << " " << receiptAt(value, 0).value("queryResult", Json()).dump();
}

TEST_F(AgentEndToEnd, ScrollingUpMovesTheEditorsView) {
    ASSERT_NE(launch(kEditor, {{"role", "AXTextArea"}}), 0);
    auto area = frameOf(kEditor, {{"role", "AXTextArea"}});
    ASSERT_TRUE(area);

    // More numbered lines than the view shows; the view follows the caret to
    // the last one.
    std::string lines;
    for (int line = 1; line <= 45; ++line) {
        lines += (line > 1 ? "\n" : "") + std::to_string(line);
    }
    AgentRun typing =
        runRequest(kEditor, Json::array({
                                {{"kind", "click"}, {"selector", {{"role", "AXTextArea"}}}},
                                {{"kind", "typeText"}, {"text", lines}},
                            }));
    ASSERT_EQ(typing.exitStatus, 0) << summary(typing);
    AgentRun value;
    ASSERT_TRUE(assertEventually(kEditor, {{"role", "AXTextArea"}}, {{"valueEquals", lines}},
                                 kChangeSeconds, &value))
        << summary(value);

    const fs::path directory =
        fs::path(::testing::TempDir()) / ("agent-e2e-scroll-" + std::to_string(getpid()));
    fs::remove_all(directory);
    fs::create_directories(directory);
    auto capture = [&]() -> std::optional<RgbPicture> {
        AgentRun shot = runRequest(kEditor, parse(R"([{"kind": "screenshot"}])"),
                                   {{"screenshotDir", directory.string()}});
        std::string path = text(receiptAt(shot, 0), "screenshotPath");
        EXPECT_EQ(shot.exitStatus, 0) << summary(shot);
        return shot.exitStatus == 0 ? readPng(path) : std::nullopt;
    };
    auto bottom = capture();
    ASSERT_TRUE(bottom);

    // A positive amount scrolls up, as on macOS.
    const Point centre{.x = area->x + area->width / 2, .y = area->y + area->height / 2};
    Json scroll = {
        {"kind", "scroll"},
        {"scroll", {{"dx", 0}, {"dy", 400}, {"at", {{"x", centre.x}, {"y", centre.y}}}}}};
    AgentRun scrolled = runRequest(kEditor, Json::array({scroll}));
    ASSERT_EQ(scrolled.exitStatus, 0) << summary(scrolled);
    Json receipt = receiptAt(scrolled, 0);
    EXPECT_EQ(receipt.value("action", ""), "scroll");
    EXPECT_EQ(receipt.value("frontmostTargetMatch", false), true);
    EXPECT_EQ(receipt.value("reversible", true), false);

    // The view redraws after the scroll: other lines fill the text area. Left
    // out is its right edge, where any scroll shows the overlay scroll bar; a
    // blinking caret changes a few dozen pixels at most.
    const int left = static_cast<int>(area->x);
    const int top = static_cast<int>(area->y);
    const int width = static_cast<int>(area->width) - 40;
    const int height = static_cast<int>(area->height);
    size_t changed = 0;
    EXPECT_TRUE(waitUntil(
        [&] {
            auto now = capture();
            changed = now ? differingPixels(*bottom, *now, left, top, width, height) : 0;
            return changed > 400;
        },
        kChangeSeconds))
        << changed << " pixels of the text area changed";
    fs::remove_all(directory);
}

TEST_F(AgentEndToEnd, ScreenshotIsAPngOfTheDisplayUnlessConsentRefusesIt) {
    auto [screenWidth, screenHeight] = screenSize();
    ASSERT_GT(screenWidth, 0);
    const fs::path directory =
        fs::path(::testing::TempDir()) / ("agent-e2e-screenshot-" + std::to_string(getpid()));
    fs::remove_all(directory);
    fs::create_directories(directory);

    // The capture is of the whole display, whichever application is named.
    AgentRun allowed =
        runRequest(kCalculator, parse(R"([{"kind": "screenshot", "label": "shot"}])"),
                   {{"screenshotDir", directory.string()}});
    ASSERT_EQ(allowed.exitStatus, 0) << summary(allowed);
    Json shot = receiptAt(allowed, 0);
    EXPECT_EQ(shot.value("succeeded", false), true);
    EXPECT_EQ(shot.value("reversible", false), true);
    const std::string path = text(shot, "screenshotPath");
    EXPECT_EQ(fs::path(path).parent_path(), directory);
    EXPECT_EQ(fs::path(path).filename().string().rfind("e2e-session-", 0), 0u) << path;
    EXPECT_EQ(fs::path(path).extension(), ".png");
    ASSERT_TRUE(fs::is_regular_file(path)) << path;
    auto size = pngSize(path);
    ASSERT_TRUE(size) << path << " is not a PNG";
    EXPECT_EQ(size->width, static_cast<uint32_t>(screenWidth));
    EXPECT_EQ(size->height, static_cast<uint32_t>(screenHeight));
    auto picture = readPng(path);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->pixels.size(), size_t{size->width} * size->height * 3);

    // Without consent the capture is refused and nothing is written.
    AgentRun refused = runRequest(
        kCalculator, parse(R"([{"kind": "screenshot"}])"),
        {{"screenshotDir", directory.string()}, {"consent", {{"allowScreenshots", false}}}});
    EXPECT_EQ(refused.exitStatus, 2) << summary(refused);
    EXPECT_EQ(refused.response.value("ok", true), false);
    EXPECT_FALSE(refused.response.contains("error"));
    Json denied = receiptAt(refused, 0);
    EXPECT_EQ(denied.value("succeeded", true), false);
    EXPECT_EQ(text(denied, "errorMessage"),
              "consent denied for app: screenshots not permitted by consent scope");
    EXPECT_FALSE(denied.contains("screenshotPath"));
    size_t files = 0;
    for (const auto& entry : fs::directory_iterator(directory)) {
        EXPECT_EQ(entry.path(), fs::path(path));
        ++files;
    }
    EXPECT_EQ(files, 1u);
    fs::remove_all(directory);
}

TEST_F(AgentEndToEnd, ATargetThatIsNotRunningFailsWithAppNotRunning) {
    ASSERT_TRUE(processesLaunchedFrom(entryPath(kCalculator)).empty());
    AgentRun run = runRequest(kCalculator, parse(R"([
        {"kind": "focus"},
        {"kind": "query", "selector": {"role": "AXToggleButton"}},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "7"}},
        {"kind": "typeText", "text": "1"}
    ])"));
    EXPECT_EQ(run.exitStatus, 2) << summary(run);
    EXPECT_EQ(run.response.value("ok", true), false);
    EXPECT_FALSE(run.response.contains("error")) << "action failures are not a run failure";
    // An installed application that does not run is still fingerprinted, from
    // the program its entry names.
    const std::string installed = sha256OfFile("/usr/bin/galculator");
    ASSERT_EQ(installed.size(), 64u) << "galculator is not installed (run scripts/setup)";
    ASSERT_EQ(run.response["receipts"].size(), 4u);
    for (const auto& receipt : run.response["receipts"]) {
        EXPECT_EQ(receipt.value("succeeded", true), false) << receipt.dump();
        EXPECT_EQ(text(receipt, "errorMessage"), "app not running: galculator");
        EXPECT_EQ(receipt.value("frontmostTargetMatch", true), false);
        EXPECT_FALSE(receipt.contains("queryResult"));
        EXPECT_EQ(text(receipt, "binarySha256"), installed);
        const Json& state = receipt["postActionStructuralState"];
        EXPECT_EQ(state.value("elementCount", -1), 0);
        EXPECT_EQ(state["roleHistogram"], Json::object());
    }
    // Nothing was started by it.
    EXPECT_TRUE(processesLaunchedFrom(entryPath(kCalculator)).empty());

    // An id that no installed application has cannot be launched either, and
    // has no fingerprint.
    AgentRun unknown = runRequest("org.example.NotInstalled", parse(R"([
        {"kind": "launch"},
        {"kind": "focus"}
    ])"));
    EXPECT_EQ(unknown.exitStatus, 2) << summary(unknown);
    for (size_t i : {0u, 1u}) {
        Json receipt = receiptAt(unknown, i);
        EXPECT_EQ(text(receipt, "errorMessage"), "app not running: org.example.NotInstalled");
        EXPECT_EQ(text(receipt, "binarySha256"), "unavailable");
    }
}

// Stops a process (SIGSTOP) for as long as it lives, and lets it run again when
// destroyed, so that a failed test leaves nothing stopped behind.
class Stopped {
  public:
    explicit Stopped(pid_t id) : id_(id) { stopped_ = kill(id_, SIGSTOP) == 0; }
    ~Stopped() { resume(); }
    Stopped(const Stopped&) = delete;
    Stopped& operator=(const Stopped&) = delete;
    bool stopped() const { return stopped_; }
    void resume() {
        if (stopped_) {
            kill(id_, SIGCONT);
            stopped_ = false;
        }
    }

  private:
    pid_t id_;
    bool stopped_ = false;
};

TEST_F(AgentEndToEnd, AStoppedApplicationCostsOneTimeOutAndIsDrivenAgainOnceItRuns) {
    const pid_t calculator = launch(kCalculator, {{"role", "AXToggleButton"}, {"title", "7"}});
    ASSERT_NE(calculator, 0);
    const Json actions = parse(R"([
        {"kind": "query", "selector": {"role": "AXToggleButton"}},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "7"}},
        {"kind": "assert", "selector": {"role": "AXTextArea"}, "expect": {"valueEquals": "7"}},
        {"kind": "typeText", "text": "1"},
        {"kind": "screenshot"},
        {"kind": "frontmost"}
    ])");
    const Json extra = {{"screenshotDir", ::testing::TempDir()}};

    Stopped stopped(calculator);
    ASSERT_TRUE(stopped.stopped());
    const auto started = std::chrono::steady_clock::now();
    AgentRun hung = runRequest(kCalculator, actions, extra);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    stopped.resume();

    EXPECT_LT(seconds, 10.0) << summary(hung);
    // One valid document: every action has its receipt; what needed the tree
    // failed as reads of a silent application fail.
    EXPECT_EQ(hung.exitStatus, 2) << summary(hung);
    ASSERT_EQ(hung.response["receipts"].size(), 6u) << summary(hung);
    Json query = receiptAt(hung, 0);
    EXPECT_EQ(query.value("succeeded", false), true);
    EXPECT_EQ(query["queryResult"], Json::array());
    Json click = receiptAt(hung, 1);
    EXPECT_EQ(click.value("succeeded", true), false);
    EXPECT_EQ(text(click, "errorMessage"), "element not found: role=AXToggleButton,title~=7");
    Json assertion = receiptAt(hung, 2);
    EXPECT_EQ(assertion.value("succeeded", true), false);
    EXPECT_EQ(assertion["queryResult"], Json::array());
    EXPECT_EQ(receiptAt(hung, 4).value("succeeded", false), true);
    EXPECT_EQ(receiptAt(hung, 5).value("succeeded", false), true);
    for (const auto& receipt : hung.response["receipts"]) {
        const Json& state = receipt["postActionStructuralState"];
        EXPECT_EQ(state.value("elementCount", -1), 1) << receipt.dump();
        EXPECT_EQ(state["roleHistogram"], Json({{"AXUnknown", 1}}));
    }

    // Running again, the next request drives it as usual.
    AgentRun cleared = runRequest(kCalculator, parse(R"([
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "C"}},
        {"kind": "click", "selector": {"role": "AXToggleButton", "title": "9"}}
    ])"));
    EXPECT_EQ(cleared.exitStatus, 0) << summary(cleared);
    EXPECT_GT(receiptAt(cleared, 1)["postActionStructuralState"].value("elementCount", 0), 50);
    AgentRun display;
    EXPECT_TRUE(assertEventually(kCalculator, {{"role", "AXTextArea"}}, {{"valueEquals", "9"}},
                                 kChangeSeconds, &display))
        << summary(display);
}

}  // namespace
}  // namespace velmora::e2e
