#include "tests/e2e/RealApplications.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {

namespace fs = std::filesystem;

namespace {

fs::path desktopDir() {
    const char* dir = std::getenv("VELMORA_DESKTOP_DIR");
    return dir != nullptr ? fs::path(dir) : fs::temp_directory_path();
}

const char* const kFixturePage = VELMORA_FIXTURES_DIR "/browser-form.html";

}  // namespace

std::string browserPage() {
    return std::string("file://") + kFixturePage;
}

const Json* receiptOf(const AgentRun& run, const std::string& label) {
    auto receipts = run.response.find("receipts");
    if (receipts == run.response.end() || !receipts->is_array()) {
        return nullptr;
    }
    for (const auto& receipt : *receipts) {
        if (receipt.is_object() && receipt.value("label", "") == label) {
            return &receipt;
        }
    }
    return nullptr;
}

void RealApplications::SetUp() {
    if (!onDesktop()) {
        GTEST_FAIL() << kNeedsDesktop;
    }
    started_ = std::make_unique<StartedApplications>();
    scratch_ =
        desktopDir() / ("real-apps-" + std::to_string(getpid()) + "-" + std::to_string(++runs_));
    fs::create_directories(scratch_);
    screenshots_ = scratch_ / "shots";
    fs::create_directories(screenshots_);
}

void RealApplications::TearDown() {
    if (started_) {
        for (pid_t id : started_->endAll()) {
            EXPECT_TRUE(processEnded(id)) << "process " << id << " is still running";
        }
        started_.reset();
    }
    for (const auto& entry : entries_) {
        fs::remove(entry);
    }
    std::error_code ignored;
    fs::remove_all(scratch_, ignored);
}

void RealApplications::shadowEntry(const std::string& id, const std::string& name,
                                   const std::string& exec, const std::string& windowClass) {
    const char* data = std::getenv("XDG_DATA_HOME");
    ASSERT_NE(data, nullptr) << "XDG_DATA_HOME is not set (run under scripts/desktop)";
    fs::path dir = fs::path(data) / "applications";
    fs::create_directories(dir);
    fs::path file = dir / (id + ".desktop");
    std::ofstream out(file);
    out << "[Desktop Entry]\nType=Application\nName=" << name << "\nExec=" << exec
        << "\nStartupWMClass=" << windowClass << "\n";
    entries_.push_back(file);
}

bool RealApplications::launchAndWait(const std::string& target, const Json& ready) {
    AgentRun run = runRequest(target, Json::parse(R"([{"kind": "launch", "label": "open"}])"));
    EXPECT_EQ(run.exitStatus, 0) << summary(run);
    const Json* receipt = receiptOf(run, "open");
    if (receipt == nullptr || !receipt->value("succeeded", false)) {
        ADD_FAILURE() << "launch of " << target << " failed: " << summary(run);
        return false;
    }
    if (!settledFrame(target, ready, kStartSeconds)) {
        ADD_FAILURE() << target << " shows no " << ready.dump() << " on screen";
        return false;
    }
    return true;
}

void RealApplications::driveAndCheck(const std::string& target, const Json& control,
                                     const Json& before, const std::string& text,
                                     const Json& result, const Json& expectation) {
    Json actions = Json::array();
    actions.push_back({{"kind", "focus"}, {"label", "focus"}});
    actions.push_back({{"kind", "query"}, {"selector", control}, {"label", "query"}});
    for (const auto& action : before) {
        actions.push_back(action);
    }
    actions.push_back({{"kind", "typeText"}, {"text", text}, {"label", "type"}});
    actions.push_back(
        {{"kind", "assert"}, {"selector", result}, {"expect", expectation}, {"label", "see"}});
    actions.push_back({{"kind", "screenshot"}, {"label", "shot"}});
    actions.push_back({{"kind", "frontmost"}, {"label", "front"}});
    AgentRun run = runRequest(target, actions, {{"screenshotDir", screenshots_.string()}});
    EXPECT_EQ(run.exitStatus, 0) << summary(run);
    EXPECT_EQ(run.response.value("ok", false), true) << summary(run);

    const Json* focus = receiptOf(run, "focus");
    ASSERT_NE(focus, nullptr) << summary(run);
    EXPECT_EQ(focus->value("succeeded", false), true) << summary(run);
    EXPECT_EQ(focus->value("bundleIdentifier", ""), target);

    const Json* query = receiptOf(run, "query");
    ASSERT_NE(query, nullptr);
    const Json found = query->value("queryResult", Json::array());
    EXPECT_FALSE(found.empty()) << "no " << control.dump() << " in " << target;
    for (const auto& element : found) {
        auto frame = elementFrame(element);
        ASSERT_TRUE(frame) << element.dump();
        EXPECT_GT(frame->width, 0) << element.dump();
        EXPECT_GT(frame->height, 0) << element.dump();
    }
    const Json state = query->value("postActionStructuralState", Json::object());
    EXPECT_GT(state.value("elementCount", 0), 10) << target << " exposes no tree";
    EXPECT_EQ(state.value("frontmostBundleId", ""), target);

    const Json* type = receiptOf(run, "type");
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->value("succeeded", false), true) << summary(run);
    EXPECT_EQ(type->value("frontmostTargetMatch", false), true) << summary(run);

    const Json* see = receiptOf(run, "see");
    ASSERT_NE(see, nullptr);
    EXPECT_EQ(see->value("succeeded", false), true)
        << "the typed text did not show: " << see->dump();

    const Json* shot = receiptOf(run, "shot");
    ASSERT_NE(shot, nullptr);
    EXPECT_EQ(shot->value("succeeded", false), true) << summary(run);
    std::string path = shot->value("screenshotPath", "");
    EXPECT_TRUE(fs::exists(path)) << path;

    const Json* front = receiptOf(run, "front");
    ASSERT_NE(front, nullptr);
    EXPECT_EQ(front->value("succeeded", false), true) << summary(run);
    EXPECT_EQ(front->value("frontmostTargetMatch", false), true) << summary(run);
    // Every receipt fingerprints the executable that owns the windows.
    fingerprint_ = focus->value("binarySha256", "");
}

std::string RealApplications::firefoxProfile() {
    const fs::path dir = scratch_ / "profile";
    fs::create_directories(dir);
    std::ofstream(dir / "user.js")
        << "user_pref(\"browser.shell.checkDefaultBrowser\", false);\n"
           "user_pref(\"browser.aboutwelcome.enabled\", false);\n"
           "user_pref(\"browser.startup.homepage_override.mstone\", \"ignore\");\n"
           "user_pref(\"datareporting.policy.dataSubmissionEnabled\", false);\n"
           "user_pref(\"toolkit.telemetry.reportingpolicy.firstRun\", false);\n"
           "user_pref(\"app.update.auto\", false);\n"
           "user_pref(\"network.captive-portal-service.enabled\", false);\n"
           "user_pref(\"network.connectivity-service.enabled\", false);\n"
           "user_pref(\"browser.safebrowsing.update.enabled\", false);\n"
           "user_pref(\"extensions.update.enabled\", false);\n"
           "user_pref(\"browser.newtab.preload\", false);\n";
    return dir.string();
}

void RealApplications::shadowFirefox(const std::string& url) {
    shadowEntry(
        "firefox-esr", "Firefox ESR",
        "/usr/lib/firefox-esr/firefox-esr --no-remote --profile " + firefoxProfile() + " " + url,
        "firefox-esr");
}

void RealApplications::shadowChromium(const std::string& url) {
    const std::string profile = (scratch_ / "profile").string();
    // --no-sandbox: the tests run as root, where Chromium's sandbox refuses to
    // start. The rest keeps a test run off the network and off first-run pages.
    shadowEntry("chromium", "Chromium",
                "/usr/bin/chromium --no-sandbox --user-data-dir=" + profile +
                    " --no-first-run --no-default-browser-check --disable-background-networking"
                    " --disable-component-update --disable-sync --password-store=basic " +
                    url,
                "chromium");
}

void RealApplications::shadowOffice(const std::string& module) {
    shadowEntry("libreoffice-" + module, "LibreOffice", "libreoffice --" + module + " --norestore",
                "libreoffice-" + module);
}

}  // namespace velmora::e2e
