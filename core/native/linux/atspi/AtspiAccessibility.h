#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/native/Platform.h"

// The accessibility operations of the platform layer over AT-SPI 2.
//
// Attributes, with the macOS names the driver reads:
//   "AXRole"        the element's role, named as macOS names it (RoleNames.h)
//   "AXTitle"       the accessible name; an empty name reads as no value
//   "AXIdentifier"  the accessible id; an empty id reads as no value
//   "AXValue"       a number for elements with a value (sliders, progress bars,
//                   spin buttons) and for checkable ones (1 checked, 0 not,
//                   2 indeterminate); else the text of a text element
//   "AXPosition"    the top-left corner of its screen extents, boxed as a point
//   "AXSize"        the size of its screen extents, boxed as a size; neither
//                   has a value for what is not on screen (a closed menu's
//                   items, which toolkits place at the smallest coordinate)
//   "AXChildren"    its children
//   "AXWindows"     of an application: its top-level children
// Any other attribute fails with kAXErrorAttributeUnsupported. A read whose
// element lacks the interface it needs fails with kAXErrorAttributeUnsupported
// too, a read the application did not answer with kAXErrorCannotComplete, and
// a missing value with kAXErrorNoValue. Reads never succeed with null.
//
// The AT-SPI connection is made on first use: constructing needs no bus.
//
// Reads reach the applications in one of two ways, with the same results:
// pipelined (the default), where the elements of an application element belong
// to a snapshot that asks ahead for what a tree walk reads, many requests in
// flight at once (AtspiSnapshot.h); or one synchronous libatspi call per read.
// VELMORA_ATSPI_SYNC=1 in the environment selects the second for the platform
// that makeSystemPlatform builds.

typedef struct _AtspiAccessible AtspiAccessible;

namespace velmora::native::freedesktop {

class DBusAtspiTransport;
struct AtspiAddress;

enum class AtspiReads {
    // Over the accessibility bus: the agent's way. An agent process lives for one
    // request, and an application keeps every direct connection it ever accepted
    // until it exits (ATK's bridge never lets go of one), each one making every
    // turn of its main loop slower: after a thousand agent requests, answering
    // one query cost a GTK application seven times the CPU it did at first.
    pipelined,
    // Over a direct connection where the application offers one, sparing the bus
    // daemon's routing: for a reader that lives as long as it reads, and for the
    // benchmark's comparison.
    pipelinedDirect,
    oneAtATime,
};

// oneAtATime when VELMORA_ATSPI_SYNC is 1, else pipelined.
AtspiReads atspiReadsFromEnvironment();

class AtspiAccessibility {
  public:
    explicit AtspiAccessibility(AtspiReads reads = AtspiReads::pipelined);
    ~AtspiAccessibility();

    // The application on the accessibility desktop whose process id is
    // `processId`. When there is none (or the bus is unreachable) the element
    // still exists, and every read of it fails.
    AXElement applicationElement(int32_t processId);
    AttributeRead copyAttribute(const AXElement& element, const std::string& name);
    // Several attributes at once (pipelined: one record; one call at a time: one
    // read each, the rest failing at once after one the application did not
    // answer in time), and a slice of a child list (one call at a time: the
    // count, then one index at a time).
    std::vector<AttributeRead> copyAttributes(const AXElement& element,
                                              const std::vector<std::string>& names);
    AttributeRead copyAttributeValues(const AXElement& element, const std::string& name,
                                      int64_t index, int64_t maxValues);
    // The time limit of every request to the element's application, from the next
    // read on; 0 gives it the provider's own (2.5 s) again.
    int32_t setMessagingTimeout(const AXElement& element, double seconds);
    // Whether two elements are the same object of the same application.
    bool isSameElement(const AXElement& a, const AXElement& b);
    // Whether the accessibility bus answers: its registry lists the desktop.
    bool isReachable();

  private:
    // The application element of the pipelined reader, found over its own
    // connection to the bus rather than libatspi's.
    AXElement pipelinedApplicationElement(int32_t processId);
    // Whether the pipelined reader's application did not answer the request for
    // its direct connection, where reads go over one.
    bool unreachable(const AtspiAddress& application);
    double timeoutOf(AtspiAccessible* object) const;

    AtspiReads reads_;
    std::map<std::string, double> timeouts_;         // by bus name, for one-call-at-a-time reads
    std::shared_ptr<DBusAtspiTransport> transport_;  // pipelined reads, made on first use
};

}  // namespace velmora::native::freedesktop
