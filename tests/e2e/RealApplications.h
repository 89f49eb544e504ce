#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "core/model/Json.h"
#include "tests/e2e/AgentRequests.h"
#include "tests/e2e/DisplayApplications.h"

// The harness of the tests on the applications people automate (Firefox ESR,
// Chromium, LibreOffice, KCalc, GNOME Calculator): each test launches what it
// needs through the agent and ends it, with the processes it started, by process
// id.
//
// Browsers get a fresh profile, no first-run pages and no background
// networking (there is no network here), through a desktop entry of the same id
// in the desktop's private data directory, as a user's own entry would shadow
// the installed one. Those flags, Chromium's --no-sandbox (the tests run as
// root, where Chromium's sandbox refuses to start) and LibreOffice's
// --norestore belong to this harness, not to the agent.

namespace velmora::e2e {

// Browsers and office suites start slowly on a loaded two-core machine; the
// polls end as soon as the application answers.
inline constexpr double kStartSeconds = 90;
inline constexpr double kChangeSeconds = 20;

// The local page of the browser tests, as a file URL: an input labelled
// "Message" and a button "Send".
std::string browserPage();
inline const Json kMessageField = {{"role", "AXTextField"}, {"title", "Message"}};
inline const Json kSendButton = {{"role", "AXButton"}, {"title", "Send"}};

// The receipt with this label in a run's response; null when there is none.
const Json* receiptOf(const AgentRun& run, const std::string& label);

class RealApplications : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;

    // A desktop entry with this id in the private data directory, shadowing
    // the installed one.
    void shadowEntry(const std::string& id, const std::string& name, const std::string& exec,
                     const std::string& windowClass);
    // The entries "firefox-esr" and "chromium", showing `url` in a fresh profile.
    void shadowFirefox(const std::string& url);
    void shadowChromium(const std::string& url);
    // The entry of a LibreOffice module ("writer", "calc") as installed, with
    // --norestore: the tests end the office suite by signal, after which its
    // next start would wait on its document-recovery dialog.
    void shadowOffice(const std::string& module);
    // A fresh Firefox profile without first-run pages, updates, telemetry or
    // other network traffic, in the test's scratch directory; its path.
    std::string firefoxProfile();

    // Launches `target` through the agent; true once `ready` finds an element
    // with a frame that sits still.
    bool launchAndWait(const std::string& target, const Json& ready);

    // One request that focuses `target`, finds `control`, types `text` into
    // it (after `before`, e.g. a click into a field) and asserts `expectation`
    // on `result`; then a screenshot and frontmost. Checks every receipt.
    void driveAndCheck(const std::string& target, const Json& control, const Json& before,
                       const std::string& text, const Json& result, const Json& expectation);

    std::unique_ptr<StartedApplications> started_;
    std::filesystem::path scratch_;
    std::filesystem::path screenshots_;
    std::vector<std::filesystem::path> entries_;
    std::string fingerprint_;
    static inline int runs_ = 0;
};

}  // namespace velmora::e2e
