#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/driver/UIDriver.h"

namespace velmora {

// A scripted, in-memory driver: a fixed element list, a frontmost application and
// a fingerprint. It logs every call that changes or reads the UI and can be told to
// fail chosen operations, so routing runs end to end without a desktop. Its
// selector matching is the native driver's, except that a negative selector index
// is a programming error here and ends the process.
class MockDriver : public UIDriver {
  public:
    struct Call {
        std::string op;
        std::string detail;

        friend bool operator==(const Call&, const Call&) = default;
    };

    MockDriver(std::optional<std::string> frontmost, std::vector<ElementInfo> elements,
               std::string sha);

    // Changed only by a successful focus.
    std::optional<std::string> frontmost;
    // The whole tree, flattened, in the order query reports it, for every application.
    std::vector<ElementInfo> elements;
    // What binarySha256 returns for any application.
    std::string sha;
    // Oldest first. Grows until the owner clears it.
    std::vector<Call> calls;
    // Operation names (the `op` of a Call) that throw osFailure(op) right after logging.
    std::set<std::string> failOn;
    // Whether focus brings the application to the front.
    bool focusSucceeds = true;
    // Whether screenshot throws screenshotFailed("mock").
    bool screenshotShouldFail = false;

    // Not logged, never fail.
    std::optional<std::string> frontmostBundleId() override;
    std::string binarySha256(const std::string& bundleId) override;

    void launch(const std::string& bundleId) override;
    bool focus(const std::string& bundleId) override;
    // Logged as "click" or "doubleClick" with "x,y", e.g. "100.0,200.5".
    void click(Point point, bool doubleClick) override;
    void typeText(const std::string& text) override;
    // Logged with the chords joined by "+".
    void pressKeys(const std::vector<std::string>& keys) override;
    // Logged as "dx,dy"; the point is not logged.
    void scroll(const ScrollSpec& spec) override;
    // Logged with describe(selector), or "<all>" without a selector.
    std::vector<ElementInfo> query(const std::string& bundleId,
                                   const std::optional<ElementSelector>& selector,
                                   bool includeValues) override;
    StructuralState structuralState(const std::string& bundleId) override;
    // Logged with the path. Writes no file.
    void screenshot(const std::string& bundleId, const std::string& path) override;

  private:
    // Logs the call, then fails it when `op` is in failOn.
    void record(const std::string& op, const std::string& detail);
};

// A coordinate as a double describes itself: the shortest decimal text that reads
// back as the same double, always with a fractional part or an exponent
// (100 -> "100.0", 0.1 -> "0.1", 1e16 -> "1e+16"); see doubleDescription.
std::string coordinateText(double value);

}  // namespace velmora
