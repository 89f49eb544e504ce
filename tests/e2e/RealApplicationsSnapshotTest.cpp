// The pipelined accessibility reader the agent uses against the one-call-at-a-
// time reader on the browsers and the office suite: the native driver's query
// without selector (every element, in order, values and frames included) and
// its structural state must be the same whichever reader answers, and the
// structural state's count and role histogram those of the query. The agent
// launches each application; the two readers then read it in this process.
//
// Browsers change their trees while a page loads: each comparison starts once
// two walks in a row of the one-call reader agree, and the pipelined reader is
// asked before and after the one-call reader, so that a difference is the
// readers' and not the application's.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "agent/Modes.h"
#include "core/native/AXCGDriver.h"
#include "core/native/linux/LinuxPlatform.h"
#include "tests/e2e/RealApplications.h"
#include "tests/e2e/SnapshotComparison.h"

namespace velmora::e2e {
namespace {

namespace fs = std::filesystem;
using native::AXCGDriver;
using native::freedesktop::AtspiReads;
using native::freedesktop::LinuxPlatform;

// How long a loaded page or document may take to stop changing its tree.
constexpr double kStableSeconds = 60;

class RealApplicationSnapshots : public RealApplications {
  protected:
    void SetUp() override {
        RealApplications::SetUp();
        pipelined = std::make_unique<LinuxPlatform>(AtspiReads::pipelined);
        oneAtATime = std::make_unique<LinuxPlatform>(AtspiReads::oneAtATime);
    }

    // A local page larger than the budget: the browser form, then rows of a
    // paragraph with its text, a link, a button and a text input (about eight
    // accessible objects a row, `rows` of them). Its file URL.
    std::string writeLongPage(int rows) {
        const fs::path path = scratch_ / "long-page.html";
        std::ofstream page(path);
        page << "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\">"
                "<title>Velmora long page</title></head><body><h1>Velmora long page</h1>\n"
                "<label for=\"message\">Message</label> <input id=\"message\" type=\"text\">\n"
                "<button id=\"send\" type=\"button\">Send</button>\n";
        for (int row = 0; row < rows; ++row) {
            page << "<p>Row " << row << " <a href=\"#r" << row << "\">link " << row
                 << "</a> <button>Button " << row << "</button> <input value=\"entry " << row
                 << "\"></p>\n";
        }
        page << "</body></html>\n";
        return "file://" + path.string();
    }

    // Both readers agree on `id`, once it has stopped changing with at least
    // `atLeast` elements; what the fast reader found, for the test to look at.
    std::vector<ElementInfo> expectSameOnceStable(const std::string& id, size_t atLeast) {
        const size_t elements = stableElementCount(*oneAtATime, id, atLeast, kStableSeconds);
        EXPECT_GE(elements, atLeast) << id << " never showed a tree that stayed the same";
        if (elements < atLeast) {
            return {};
        }
        expectSameSnapshots(*pipelined, *oneAtATime, id, elements);
        AXCGDriver fast(*pipelined, kNodeBudget, kFocusTimeoutSeconds);
        return fast.query(id, std::nullopt, true);
    }

    std::unique_ptr<LinuxPlatform> pipelined;
    std::unique_ptr<LinuxPlatform> oneAtATime;
};

size_t countOf(const std::vector<ElementInfo>& elements,
               const std::function<bool(const ElementInfo&)>& matches) {
    return static_cast<size_t>(std::count_if(elements.begin(), elements.end(), matches));
}

// What a browser's tree holds once the budget is spent inside the page: its
// document, the form, and rows of links, buttons and inputs with their values.
void expectAPageCutByTheBudget(const std::vector<ElementInfo>& elements) {
    EXPECT_EQ(elements.size(), static_cast<size_t>(kNodeBudget));
    EXPECT_EQ(countOf(elements, [](const auto& e) { return e.role == "AXWebArea"; }), 1u);
    EXPECT_EQ(
        countOf(elements,
                [](const auto& e) { return e.role == "AXTextField" && e.title == "Message"; }),
        1u);
    EXPECT_GT(countOf(elements, [](const auto& e) { return e.role == "AXLink"; }), 100u);
    EXPECT_GT(countOf(elements,
                      [](const auto& e) {
                          return e.role == "AXTextField" && e.value &&
                                 e.value->starts_with("entry ");
                      }),
              100u);
    EXPECT_GT(countOf(elements, [](const auto& e) { return e.frame.has_value(); }), 1000u);
    // The budget ended the walk inside the page: its last rows are not there.
    EXPECT_EQ(countOf(elements, [](const auto& e) { return e.title == "Button 799"; }), 0u);
}

TEST_F(RealApplicationSnapshots, FirefoxPageLargerThanTheBudget) {
    shadowFirefox(writeLongPage(800));
    ASSERT_TRUE(launchAndWait("firefox-esr", kMessageField));
    expectAPageCutByTheBudget(expectSameOnceStable("firefox-esr", kNodeBudget));
}

TEST_F(RealApplicationSnapshots, ChromiumPageLargerThanTheBudget) {
    shadowChromium(writeLongPage(800));
    ASSERT_TRUE(launchAndWait("chromium", kMessageField));
    expectAPageCutByTheBudget(expectSameOnceStable("chromium", kNodeBudget));
}

TEST_F(RealApplicationSnapshots, LibreOfficeWriter) {
    shadowOffice("writer");
    ASSERT_TRUE(launchAndWait("libreoffice-writer", {{"role", "AXDocumentText"}}));
    const auto elements = expectSameOnceStable("libreoffice-writer", 100);
    EXPECT_EQ(countOf(elements, [](const auto& e) { return e.role == "AXDocumentText"; }), 1u);
    EXPECT_GT(countOf(elements, [](const auto& e) { return e.role == "AXButton"; }), 20u);
}

// A spreadsheet's table declares it manages its own descendants and reports
// millions of cells: both readers take as many as the budget records.
TEST_F(RealApplicationSnapshots, LibreOfficeCalc) {
    shadowOffice("calc");
    ASSERT_TRUE(launchAndWait("libreoffice-calc", {{"role", "AXTable"}}));
    const auto elements = expectSameOnceStable("libreoffice-calc", 100);
    EXPECT_EQ(elements.size(), static_cast<size_t>(kNodeBudget));
    EXPECT_GE(countOf(elements, [](const auto& e) { return e.role == "AXTable"; }), 1u);
    EXPECT_GT(countOf(elements, [](const auto& e) { return e.role == "AXCell"; }), 1000u);
}

}  // namespace
}  // namespace velmora::e2e
