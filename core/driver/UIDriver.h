#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/model/DriverError.h"
#include "core/model/Geometry.h"
#include "core/model/Request.h"
#include "core/model/Response.h"

namespace velmora {

// The one seam between the router and whatever touches the screen.
//
// Every operation may throw. Implementations throw DriverError, except that a
// platform's file read or write error travels as PlatformError with the
// platform's own text. Operations are declared in their contract order.
class UIDriver {
  public:
    virtual ~UIDriver() = default;

    // The frontmost application's bundle identifier; none when there is none.
    virtual std::optional<std::string> frontmostBundleId() = 0;

    // SHA-256 of the application's executable as 64 lower-case hex digits.
    virtual std::string binarySha256(const std::string& bundleId) = 0;

    // Opens the application, asking for activation. Unknown identifier: appNotRunning.
    virtual void launch(const std::string& bundleId) = 0;

    // Tries to bring the running application to the front; whether it is frontmost
    // afterwards. An application that is not running is appNotRunning.
    virtual bool focus(const std::string& bundleId) = 0;

    virtual void click(Point point, bool doubleClick) = 0;

    // Types the text into the focused element.
    virtual void typeText(const std::string& text) = 0;

    // Presses chords in order; each element is one whole chord such as "cmd+shift+a".
    virtual void pressKeys(const std::vector<std::string>& keys) = 0;

    virtual void scroll(const ScrollSpec& spec) = 0;

    // The application's elements matching the selector (all with none), in traversal
    // order. A selector index in range narrows to that one match; out of range leaves
    // every match. With includeValues false every `value` is cleared. Never fails
    // because nothing matched.
    virtual std::vector<ElementInfo> query(const std::string& bundleId,
                                           const std::optional<ElementSelector>& selector,
                                           bool includeValues) = 0;

    virtual StructuralState structuralState(const std::string& bundleId) = 0;

    // Captures a screen image into a PNG file at `path`. Failure is screenshotFailed.
    virtual void screenshot(const std::string& bundleId, const std::string& path) = 0;
};

// The centre of the first element the selector finds. Nothing found, or a first
// element without a frame, is elementNotFound with describe(selector).
Point resolveClickPoint(UIDriver& driver, const std::string& bundleId,
                        const ElementSelector& selector);

// A selector as short text, e.g. "role=AXButton,title~=Save"; "<any>" when empty.
std::string describe(const ElementSelector& selector);

}  // namespace velmora
