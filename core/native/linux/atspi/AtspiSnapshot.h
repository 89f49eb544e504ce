#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/native/Platform.h"
#include "core/native/linux/atspi/AtspiCalls.h"

// The pipelined reader of one application's accessibility tree.
//
// A tree walk reads every element it records in the same way: role, title,
// identifier, value (twice), position, size, children. Asking the application for
// each of these one at a time costs a round trip per read; here the reader asks
// ahead, without waiting for one answer before sending the next request, and
// answers the reads from what came back.
//
// Elements and their records. Every element this reader hands out belongs to a
// snapshot, which opening an application element starts. An element's record
// holds everything the walk will read of it, fetched with all its requests in
// flight at once. When the record's child list arrives, the children become
// elements of their own, and are fetched in their turn.
//
// Order and look-ahead. The elements of one child list, with all their
// descendants, form a stream, fetched in pre-order - the order in which a walk
// visits them. A stream starts when one of its elements is first read. It then
// keeps requested-but-unread elements ahead of the reads, but never more than the
// look-ahead: 8 elements plus one per element already read in the stream, at most
// 128, and never deeper than 60 levels below the application (a
// walk records nothing deeper). So when a walk stops - its budget spent - at most
// 128 elements of that stream were fetched in vain. A stream whose elements are
// never read fetches nothing.
//
// The application's cache. When a walk begins (the first read of several
// attributes at once; a read of one attribute alone never pays for it), the
// snapshot asks the application's cache (Cache.GetItems) once, where the
// application offers one, and waits for it before asking for anything else: that
// answer gives the role, name, interfaces, states and, where complete, the
// children of every object the application caches, so that those elements need
// only their identifier, extents and value - and the structural state, which
// reads roles and child lists, often nothing more. The cache answer is one
// request, but it lists every object the application caches, not only those the
// walk will reach.
//
// Without the cache. An element the cache does not list is asked for its name,
// identifier and child count in one request (Properties.GetAll), where the
// application's toolkit is known to answer that (AtspiRecord.h), and for its
// child list only when it counts children.
//
// An application that does not answer. Once a request of the snapshot has gone
// unanswered within the time limit, every later read of it fails at once
// (kAXErrorCannotComplete) and nothing more is sent: its requests go out
// together and time out together, and asking again would only wait again.
//
// Sending and waiting. Requests are sent every few elements read, and then what
// has come back is taken in, so that the application always has work queued
// while the walk reads what is ready. When the walk catches up with the
// application, it waits for a batch of the elements asked for ahead rather than
// for the one it needs, so as not to wake for every answer.
//
// Freshness. Each answer of a record is given once (the value twice, as the walk
// reads it twice); asking again fetches the element afresh, so a reader polling
// an element sees the application's current state, and a second child or window
// list is a new set of elements in a new stream.
//
// Results are those of the one-call-at-a-time reader (AtspiRecord.h). Not
// thread-safe: the caller serialises every use of the elements of all snapshots
// sharing a transport.

namespace velmora::native::freedesktop {

struct AtspiSnapshotTuning {
    int minLookAhead = 8;
    int maxLookAhead = 128;
    int deepest = 60;       // the deepest level below the application fetched ahead
    int pumpEvery = 8;      // elements read between sending and taking in answers
    int waitForBatch = 16;  // elements asked for ahead that one wait lets come in
};

// The application element of a new snapshot; nothing is sent before a read.
AXElement openAtspiSnapshot(std::shared_ptr<AtspiTransport> transport, AtspiAddress application,
                            AtspiSnapshotTuning tuning = {});

// Whether an element belongs to a snapshot, and if so answers a read of it.
bool isSnapshotElement(const AXElement& element);
// Whether two elements of snapshots are the same object of the same application
// (of one snapshot or two); false when either belongs to none.
bool sameSnapshotObject(const AXElement& a, const AXElement& b);
// The application an element of a snapshot belongs to; null for other elements.
const AtspiAddress* snapshotApplication(const AXElement& element);
AttributeRead readSnapshotElement(const AXElement& element, const std::string& name);
// Several attributes at once. The first such read of a snapshot tells it what
// the walk reads of every element (besides the child and window lists): only
// that is fetched ahead from then on. A snapshot whose first read is of one
// attribute alone fetches everything.
std::vector<AttributeRead> readSnapshotElementAttributes(const AXElement& element,
                                                         const std::vector<std::string>& names);
// A slice of a list attribute. Children of an element that manages its
// descendants (or has more than a walk records) are asked for one index at a
// time, ahead only as far as the last slice asked for reached: so an element
// with millions of children costs no more than the walk records.
AttributeRead readSnapshotElementSlice(const AXElement& element, const std::string& name,
                                       int64_t index, int64_t maxValues);

}  // namespace velmora::native::freedesktop
