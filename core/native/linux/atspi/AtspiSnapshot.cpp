#include "core/native/linux/atspi/AtspiSnapshot.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <atspi/atspi-constants.h>

#include "core/native/linux/atspi/AtspiCacheIndex.h"
#include "core/native/linux/atspi/AtspiRecord.h"

namespace velmora::native::freedesktop {

namespace {

enum Attribute { kRole, kTitle, kIdentifier, kValue, kPosition, kSize, kChildren, kWindows };
constexpr int kAttributeCount = 8;
// How many reads one record answers, per attribute: the walk reads the value twice
// (whether there is one, then its text) and everything else once.
constexpr std::array<int, kAttributeCount> kAnswersPerRecord = {1, 1, 1, 2, 1, 1, 1, 1};

// A set of attributes, one bit each.
using Attributes = uint32_t;
constexpr Attributes kEveryAttribute = (1u << kAttributeCount) - 1;
constexpr Attributes bit(int attribute) {
    return 1u << attribute;
}

int attributeOf(const std::string& name) {
    static const std::array<const char*, kAttributeCount> kNames = {
        "AXRole",     "AXTitle", "AXIdentifier", "AXValue",
        "AXPosition", "AXSize",  "AXChildren",   "AXWindows"};
    for (int i = 0; i < kAttributeCount; ++i) {
        if (name == kNames[i]) {
            return i;
        }
    }
    return -1;
}

struct Stream;

// One element as the snapshot knows it.
struct Node {
    AtspiAddress address;
    int depth = 0;             // below the application element
    std::vector<int32_t> key;  // its place in its stream's pre-order
    Stream* stream = nullptr;  // the stream that fetches it ahead
    bool requested = false;    // its record has been asked for
    bool prefetched = false;   // asked for ahead of the reads and not read yet
    bool visited = false;      // read at least once
    bool refetched = false;    // its record was fetched again, outside its stream
    uint64_t generation = 0;   // answers to an older record are dropped
    int outstanding = 0;       // requests of the current record in flight
    AtspiRecord record;
    bool childRolesAsked = false;
    // Children read one index at a time: for elements that manage their own
    // descendants (only as many as a walk can record), and for applications that
    // refuse GetChildren.
    bool childrenByIndex = false;
    int32_t childCount = -1;  // as the element reported it, once asked
    // Its ChildCount, asked instead of its states by a walk that reads no values.
    Fetched<int32_t> reportedChildCount;
    std::vector<std::optional<AtspiAddress>> childSlots;
    int childSlotsPending = 0;
    size_t childSlotsAsked = 0;  // indices asked for so far
    bool childrenMade = false;
    std::vector<std::shared_ptr<Node>> children;
    std::array<int, kAttributeCount> served{};
};

struct Stream {
    bool active = false;  // one of its elements has been read
    int visited = 0;      // elements read
    int ahead = 0;        // elements asked for ahead and not read yet
    std::map<std::vector<int32_t>, std::shared_ptr<Node>> frontier;  // known, not asked for
    std::deque<std::weak_ptr<Node>> inFlight;  // asked for ahead, in the order asked
};

class Snapshot : public std::enable_shared_from_this<Snapshot> {
  public:
    Snapshot(std::shared_ptr<AtspiTransport> transport, AtspiAddress application,
             AtspiSnapshotTuning tuning)
        : transport_(std::move(transport)), application_(std::move(application)), tuning_(tuning) {}

    std::shared_ptr<Node> makeRoot() {
        auto root = std::make_shared<Node>();
        root->address = application_;
        root->stream = newStream();
        return root;
    }

    AttributeRead read(const std::shared_ptr<Node>& node, int attribute);
    std::vector<AttributeRead> readMany(const std::shared_ptr<Node>& node,
                                        const std::vector<int>& attributes);
    AttributeRead readChildren(const std::shared_ptr<Node>& node, int64_t index, int64_t maxValues);
    const AtspiAddress& application() const { return application_; }

  private:
    Stream* newStream() {
        streams_.push_back(std::make_unique<Stream>());
        return streams_.back().get();
    }

    void prepare(const std::shared_ptr<Node>& node, Attributes attributes);
    void want(Attributes attributes, const std::shared_ptr<Node>& node);
    bool wanted(int attribute) const { return (wanted_ & bit(attribute)) != 0; }
    void askChildren(const std::shared_ptr<Node>& node);
    void askChildCount(const std::shared_ptr<Node>& node);
    void askProperties(const std::shared_ptr<Node>& node);
    void askChildSlots(const std::shared_ptr<Node>& node, size_t upTo);
    void visit(Node& node);
    std::shared_ptr<Node> batchHorizon(Stream* stream);
    void topUp(Stream& stream);
    void askCache();
    void askToolkit();
    void waitForCache();
    void request(const std::shared_ptr<Node>& node);
    void refetch(const std::shared_ptr<Node>& node);
    void advance(const std::shared_ptr<Node>& node);
    void askChildrenByIndex(const std::shared_ptr<Node>& node);
    void makeChildren(const std::shared_ptr<Node>& node);
    std::vector<AXElement> elementsOf(const std::vector<std::shared_ptr<Node>>& nodes);
    AttributeRead answer(const std::shared_ptr<Node>& node, int attribute);
    static bool ready(const Node& node) { return node.requested && node.outstanding == 0; }
    // Whether a record read without its states (by a walk without values) needs
    // them after all: for a role they name, when its child count failed, or
    // once the walk reads values too.
    bool statesNeeded(const Node& node) const {
        if (node.reportedChildCount.state == Fetched<int32_t>::State::unasked) {
            return false;  // read with its states, or from the cache
        }
        return wanted(kValue) || node.reportedChildCount.state == Fetched<int32_t>::State::failed ||
               (node.record.role.ok() && roleNamedByStates(node.record.role.value));
    }
    // Whether the child count decides how the children are read: it and the
    // role are known, and so are the states where they are needed.
    bool childCountDecides(const Node& node) const {
        return node.reportedChildCount.ok() && node.record.role.known() &&
               (node.record.states.known() || !statesNeeded(node));
    }

    // Sends one request of the node's current record; `apply` stores its answer.
    template <typename Apply>
    void ask(const std::shared_ptr<Node>& node, AtspiRequest request, Apply apply);
    template <typename T>
    void askFact(const std::shared_ptr<Node>& node, Fetched<T> AtspiRecord::*fact,
                 T AtspiReply::*field, AtspiCall call, int32_t first = 0, int32_t second = 0);

    std::shared_ptr<AtspiTransport> transport_;
    AtspiAddress application_;
    AtspiSnapshotTuning tuning_;
    std::vector<std::unique_ptr<Stream>> streams_;
    // The application's cache, asked for once, when a walk begins: every
    // stream of the snapshot reads from the same answer.
    enum class Cache { notAsked, asked, ready, unavailable };
    Cache cache_ = Cache::notAsked;
    std::shared_ptr<const AtspiCacheIndex> index_;
    // The application's toolkit, asked for once, with the cache: whether a text
    // is read to the end in one request, whether an object the cache counts
    // without children has none, and whether properties come in batches
    // (AtspiRecord.h).
    enum class Toolkit { notAsked, asked, known };
    Toolkit toolkit_ = Toolkit::notAsked;
    bool textToTheEnd_ = false;
    bool childlessInCache_ = false;
    uint64_t visits_ = 0;
    // Whether a request of this snapshot went unanswered within the time limit:
    // then every read fails at once, as reads of an application that does not
    // answer fail, rather than each wait out the limit again.
    bool unanswered_ = false;
    // Whether the application is asked for its objects' properties in batches:
    // where its toolkit is known to answer them, until one fails.
    bool propertyBatches_ = false;
    bool toppingUp_ = false;
    // What the walk reads of every element, learnt from its first read: several
    // attributes at once tell which; a read of one attribute alone, everything.
    Attributes wanted_ = kEveryAttribute;
    bool wantedKnown_ = false;
    // How many children of an element that manages its descendants are asked
    // for ahead: no more than the walk's last slice of a child list reached (its
    // remaining budget), and before that no more than the agent's budget.
    int64_t childLimit_ = 3000;
};

class SnapshotElement final : public AccessibleObject {
  public:
    SnapshotElement(std::shared_ptr<Snapshot> snapshot, std::shared_ptr<Node> node)
        : snapshot_(std::move(snapshot)), node_(std::move(node)) {}

    AttributeRead read(int attribute) const { return snapshot_->read(node_, attribute); }
    std::vector<AttributeRead> readMany(const std::vector<int>& attributes) const {
        return snapshot_->readMany(node_, attributes);
    }
    AttributeRead readChildren(int64_t index, int64_t maxValues) const {
        return snapshot_->readChildren(node_, index, maxValues);
    }
    const AtspiAddress& application() const { return snapshot_->application(); }
    const AtspiAddress& address() const { return node_->address; }

  private:
    std::shared_ptr<Snapshot> snapshot_;
    std::shared_ptr<Node> node_;
};

template <typename Apply>
void Snapshot::ask(const std::shared_ptr<Node>& node, AtspiRequest request, Apply apply) {
    ++node->outstanding;
    std::weak_ptr<Snapshot> weakSelf = weak_from_this();
    std::weak_ptr<Node> weakNode = node;
    const uint64_t generation = node->generation;
    transport_->send(request, [weakSelf, weakNode, generation, apply](const AtspiReply& reply) {
        auto self = weakSelf.lock();
        auto answered = weakNode.lock();
        if (!self || !answered || answered->generation != generation) {
            return;
        }
        --answered->outstanding;
        self->unanswered_ = self->unanswered_ || reply.unanswered;
        apply(*answered, reply);
        self->advance(answered);
    });
}

template <typename T>
void Snapshot::askFact(const std::shared_ptr<Node>& node, Fetched<T> AtspiRecord::*fact,
                       T AtspiReply::*field, AtspiCall call, int32_t first, int32_t second) {
    (node->record.*fact).state = Fetched<T>::State::asked;
    ask(node, AtspiRequest{call, node->address, first, second},
        [fact, field](Node& answered, const AtspiReply& reply) {
            Fetched<T>& stored = answered.record.*fact;
            if (reply.ok) {
                stored.answer(reply.*field);
            } else {
                stored.fail();
            }
        });
}

void Snapshot::want(Attributes attributes, const std::shared_ptr<Node>& node) {
    if (!wantedKnown_) {
        wantedKnown_ = true;
        // Child and window lists are what the walk goes by: always fetched.
        wanted_ = attributes | bit(kChildren) | bit(kWindows);
        return;
    }
    if ((attributes & ~wanted_) != 0) {
        // A read of something not fetched so far: from now on every record has
        // it, and this one is fetched again with it.
        wanted_ |= attributes;
        if (node->requested && ready(*node)) {
            refetch(node);
        }
    }
}

void Snapshot::prepare(const std::shared_ptr<Node>& node, Attributes attributes) {
    const bool firstRead = !node->visited;
    visit(*node);
    bool servedBefore = false;
    for (int attribute = 0; attribute < kAttributeCount; ++attribute) {
        if ((attributes & bit(attribute)) != 0 &&
            node->served[attribute] >= kAnswersPerRecord[attribute]) {
            servedBefore = true;
        }
    }
    if (unanswered_) {
        return;  // nothing more is asked of an application that did not answer
    }
    if (!node->requested) {
        waitForCache();
        if (unanswered_) {
            return;
        }
        request(node);
    } else if (ready(*node) && servedBefore) {
        refetch(node);
    }
    if (firstRead) {
        if (node->stream != nullptr) {
            topUp(*node->stream);
        }
        // Now and then, send what is queued and take in what has arrived, so that
        // the application always has work while the walk reads what is ready.
        if (++visits_ % tuning_.pumpEvery == 0) {
            transport_->pump(false);
        }
    }
    if (!ready(*node)) {
        // The walk has caught up with the application. Rather than wake for every
        // answer, wait until a batch of the elements asked for ahead is in too: the
        // application answers in order and has more queued, so it never idles.
        std::shared_ptr<Node> horizon = batchHorizon(node->stream);
        while (!ready(*node) || (horizon && !ready(*horizon))) {
            if (!transport_->pump(true)) {
                break;  // nothing in flight: what is missing stays missing
            }
        }
    }
}

AttributeRead Snapshot::read(const std::shared_ptr<Node>& node, int attribute) {
    // A reader that starts with one attribute at a time is given everything.
    want(wantedKnown_ ? bit(attribute) : kEveryAttribute, node);
    prepare(node, bit(attribute));
    if (unanswered_) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    ++node->served[attribute];
    return answer(node, attribute);
}

std::vector<AttributeRead> Snapshot::readMany(const std::shared_ptr<Node>& node,
                                              const std::vector<int>& attributes) {
    Attributes asked = 0;
    for (int attribute : attributes) {
        asked |= bit(attribute);
    }
    // Several attributes at once: a walk begins, which will read most of what
    // the application's cache holds, and the toolkit says how far to trust it.
    if (cache_ == Cache::notAsked) {
        askCache();
        askToolkit();
    }
    want(asked, node);
    prepare(node, asked);
    if (unanswered_) {
        return std::vector<AttributeRead>(attributes.size(),
                                          AttributeRead::failure(kAXErrorCannotComplete));
    }
    std::vector<AttributeRead> answers;
    answers.reserve(attributes.size());
    for (int attribute : attributes) {
        // One read of several attributes answers each of them in full.
        node->served[attribute] = kAnswersPerRecord[attribute];
        answers.push_back(answer(node, attribute));
    }
    return answers;
}

AttributeRead Snapshot::readChildren(const std::shared_ptr<Node>& node, int64_t index,
                                     int64_t maxValues) {
    const int64_t wantedEnd = index + std::max<int64_t>(maxValues, 0);
    // The walk's remaining budget only shrinks: the last slice is the bound.
    childLimit_ = wantedEnd;
    want(bit(kChildren), node);
    prepare(node, bit(kChildren));
    if (unanswered_) {
        return AttributeRead::failure(kAXErrorCannotComplete);
    }
    ++node->served[kChildren];
    if (node->childrenByIndex && node->record.children.ok() && node->childCount >= 0) {
        // Fetched ahead as far as an earlier limit reached: fetch the rest of the
        // slice now.
        const auto reach = static_cast<size_t>(std::min<int64_t>(node->childCount, wantedEnd));
        if (node->childSlotsAsked < reach) {
            node->record.children.state = Fetched<std::vector<AtspiAddress>>::State::asked;
            node->childrenMade = false;
            node->children.clear();
            askChildSlots(node, reach);
            while (!ready(*node)) {
                if (!transport_->pump(true)) {
                    break;
                }
            }
        }
    }
    AttributeRead list = answer(node, kChildren);
    if (list.code == kAXErrorSuccess && list.value) {
        auto& items = list.value->elements;
        const auto size = static_cast<int64_t>(items.size());
        const int64_t from = std::clamp<int64_t>(index, 0, size);
        const int64_t to = from + std::clamp<int64_t>(maxValues, 0, size - from);
        items = std::vector<AXElement>(items.begin() + from, items.begin() + to);
    }
    return list;
}

std::shared_ptr<Node> Snapshot::batchHorizon(Stream* stream) {
    if (stream == nullptr) {
        return nullptr;
    }
    auto& inFlight = stream->inFlight;
    while (!inFlight.empty()) {
        auto front = inFlight.front().lock();
        if (front && !ready(*front)) {
            break;
        }
        inFlight.pop_front();
    }
    if (inFlight.empty()) {
        return nullptr;
    }
    const size_t last = std::min<size_t>(inFlight.size(), tuning_.waitForBatch) - 1;
    return inFlight[last].lock();
}

void Snapshot::visit(Node& node) {
    if (node.visited) {
        return;
    }
    node.visited = true;
    Stream* stream = node.stream;
    if (stream == nullptr) {
        return;
    }
    stream->active = true;
    ++stream->visited;
    if (node.prefetched) {
        node.prefetched = false;
        --stream->ahead;
    }
}

void Snapshot::topUp(Stream& stream) {
    // While the cache and the toolkit are on their way nothing is asked ahead:
    // they may answer it.
    if (!stream.active || toppingUp_ || cache_ == Cache::asked || toolkit_ == Toolkit::asked) {
        return;
    }
    const int window = std::min(tuning_.maxLookAhead, tuning_.minLookAhead + stream.visited);
    toppingUp_ = true;
    while (stream.ahead < window && !stream.frontier.empty()) {
        auto next = stream.frontier.begin();
        std::shared_ptr<Node> node = next->second;
        stream.frontier.erase(next);
        if (node->requested) {
            continue;  // read out of turn and already asked for
        }
        node->prefetched = true;
        ++stream.ahead;
        stream.inFlight.push_back(node);
        request(node);
    }
    toppingUp_ = false;
}

void Snapshot::askCache() {
    cache_ = Cache::asked;
    std::weak_ptr<Snapshot> weakSelf = weak_from_this();
    const std::string busName = application_.busName;
    transport_->send(AtspiRequest{AtspiCall::cacheItems, application_},
                     [weakSelf, busName](const AtspiReply& reply) {
                         auto self = weakSelf.lock();
                         if (!self) {
                             return;
                         }
                         self->unanswered_ = self->unanswered_ || reply.unanswered;
                         if (reply.ok) {
                             self->index_ = std::make_shared<AtspiCacheIndex>(busName, reply.items);
                             self->cache_ = Cache::ready;
                         } else {
                             self->cache_ = Cache::unavailable;
                         }
                     });
}

void Snapshot::askToolkit() {
    toolkit_ = Toolkit::asked;
    std::weak_ptr<Snapshot> weakSelf = weak_from_this();
    transport_->send(
        AtspiRequest{AtspiCall::toolkitName, application_}, [weakSelf](const AtspiReply& reply) {
            if (auto self = weakSelf.lock()) {
                self->unanswered_ = self->unanswered_ || reply.unanswered;
                self->textToTheEnd_ = reply.ok && readsTextToTheEndAtMinusOne(reply.text);
                self->childlessInCache_ = reply.ok && cachedChildlessMeansNoChildren(reply.text);
                self->propertyBatches_ = reply.ok && answersPropertyBatches(reply.text);
                self->toolkit_ = Toolkit::known;
            }
        });
}

void Snapshot::waitForCache() {
    while (cache_ == Cache::asked || toolkit_ == Toolkit::asked) {
        if (!transport_->pump(true)) {
            if (cache_ == Cache::asked) {
                cache_ = Cache::unavailable;
            }
            toolkit_ = Toolkit::known;
        }
    }
}

void Snapshot::request(const std::shared_ptr<Node>& node) {
    node->requested = true;
    AtspiRecord& record = node->record;
    const AtspiCacheItem* cached = nullptr;
    if (!node->refetched && cache_ == Cache::ready) {
        cached = index_->find(node->address);
    }
    const bool needsInterfaces = wanted(kValue) || wanted(kPosition) || wanted(kSize);
    if (cached != nullptr) {
        record.role.answer(cached->role);
        record.name.answer(cached->name);
        record.interfaces.answer(cached->interfaces);
        record.states.answer(cached->states);
        node->childCount = cached->childCount;
        // A leaf, by a count its toolkit keeps as GetChildren lists: nothing to
        // ask. Most elements of a tree are leaves.
        if (childlessInCache_ && cached->childCount == 0) {
            record.children.answer({});
        }
    } else {
        askFact(node, &AtspiRecord::role, &AtspiReply::number, AtspiCall::role);
        // Its name and identifier come in one request, with its child count:
        // an element the count says has no children needs no child list.
        const bool batched = propertyBatches_ && (wanted(kTitle) || wanted(kIdentifier));
        if (batched) {
            askProperties(node);
        }
        if (wanted(kValue)) {
            // The states: they give checkable elements their values, name some
            // roles (a multi-line text, an editable combo box) and say whether the
            // children are to be read one index at a time.
            askFact(node, &AtspiRecord::states, &AtspiReply::states, AtspiCall::states);
        } else if (!batched) {
            // A walk without values needs the states only for the roles they
            // name (asked once the role is known); the child count decides how
            // the children are read, and that an element without any needs no
            // child list.
            askChildCount(node);
        }
        // Which interfaces an object has does not change: read once, as libatspi does.
        if (needsInterfaces && !record.interfaces.ok()) {
            askFact(node, &AtspiRecord::interfaces, &AtspiReply::interfaces, AtspiCall::interfaces);
        }
    }
    advance(node);
}

void Snapshot::askChildCount(const std::shared_ptr<Node>& node) {
    node->reportedChildCount.state = Fetched<int32_t>::State::asked;
    ask(node, AtspiRequest{AtspiCall::childCount, node->address},
        [](Node& answered, const AtspiReply& reply) {
            if (reply.ok) {
                answered.reportedChildCount.answer(reply.integer);
                answered.childCount = reply.integer;
            } else {
                answered.reportedChildCount.fail();
            }
        });
}

void Snapshot::askProperties(const std::shared_ptr<Node>& node) {
    AtspiRecord& record = node->record;
    record.name.state = Fetched<std::string>::State::asked;
    record.accessibleId.state = Fetched<std::string>::State::asked;
    node->reportedChildCount.state = Fetched<int32_t>::State::asked;
    std::weak_ptr<Snapshot> weakSelf = weak_from_this();
    ask(node, AtspiRequest{AtspiCall::properties, node->address},
        [weakSelf](Node& answered, const AtspiReply& reply) {
            AtspiRecord& stored = answered.record;
            if (!reply.ok) {
                // An application without property batches (or an object gone):
                // the name and identifier are asked for one by one, and the
                // children found as without a count. The rest of the walk asks
                // one by one too rather than fail the same way for every element.
                if (auto self = weakSelf.lock()) {
                    self->propertyBatches_ = false;
                }
                stored.name.state = Fetched<std::string>::State::unasked;
                stored.accessibleId.state = Fetched<std::string>::State::unasked;
                answered.reportedChildCount.fail();
                return;
            }
            // A property the answer leaves out is one its own request fails.
            const AtspiAccessibleProperties& properties = reply.properties;
            properties.name ? stored.name.answer(*properties.name) : stored.name.fail();
            properties.accessibleId ? stored.accessibleId.answer(*properties.accessibleId)
                                    : stored.accessibleId.fail();
            if (properties.childCount) {
                answered.reportedChildCount.answer(*properties.childCount);
                answered.childCount = *properties.childCount;
            } else {
                answered.reportedChildCount.fail();
            }
        });
}

void Snapshot::askChildren(const std::shared_ptr<Node>& node) {
    AtspiRecord& record = node->record;
    const bool manages =
        record.states.ok() && hasState(record.states.value, ATSPI_STATE_MANAGES_DESCENDANTS);
    if (manages || node->childCount > childLimit_) {
        // Its children may be made only when asked for, and be millions: ask for
        // them one index at a time, no further than a walk can record.
        node->childrenByIndex = true;
        askChildrenByIndex(node);
        return;
    }
    record.children.state = Fetched<std::vector<AtspiAddress>>::State::asked;
    ask(node, AtspiRequest{AtspiCall::children, node->address},
        [](Node& answered, const AtspiReply& reply) {
            if (!reply.ok) {
                // Some applications refuse GetChildren (too many children, or not
                // implemented): read the children one index at a time instead.
                answered.childrenByIndex = true;
                answered.record.children.state = Fetched<std::vector<AtspiAddress>>::State::unasked;
                return;
            }
            // A null reference is a child that went away in the meantime: it is
            // left out, as reading one index at a time leaves it out.
            std::vector<AtspiAddress> children;
            for (const auto& reference : reply.references) {
                if (reference.path != kAtspiNullPath) {
                    children.push_back(reference);
                }
            }
            answered.record.children.answer(std::move(children));
        });
}

void Snapshot::refetch(const std::shared_ptr<Node>& node) {
    ++node->generation;
    Fetched<AtspiInterfaces> interfaces = node->record.interfaces;
    node->record = AtspiRecord{};
    if (interfaces.ok()) {
        node->record.interfaces = std::move(interfaces);
    }
    node->outstanding = 0;
    node->childRolesAsked = false;
    node->childrenByIndex = false;
    node->childCount = -1;
    node->reportedChildCount = {};
    node->childSlots.clear();
    node->childSlotsPending = 0;
    node->childSlotsAsked = 0;
    node->childrenMade = false;
    node->children.clear();
    node->served = {};
    node->refetched = true;
    request(node);
}

void Snapshot::askChildrenByIndex(const std::shared_ptr<Node>& node) {
    node->record.children.state = Fetched<std::vector<AtspiAddress>>::State::asked;
    if (node->reportedChildCount.ok()) {
        return;  // the count is in: the indices are asked for from it
    }
    ask(node, AtspiRequest{AtspiCall::childCount, node->address},
        [](Node& answered, const AtspiReply& reply) {
            if (!reply.ok) {
                answered.record.children.fail();
                return;
            }
            answered.childCount = std::max(reply.integer, 0);
        });
}

void Snapshot::askChildSlots(const std::shared_ptr<Node>& node, size_t upTo) {
    if (node->childSlots.size() < upTo) {
        node->childSlots.resize(upTo);
    }
    for (size_t i = node->childSlotsAsked; i < upTo; ++i) {
        ++node->childSlotsPending;
        ask(node, AtspiRequest{AtspiCall::childAtIndex, node->address, static_cast<int32_t>(i)},
            [i](Node& answered, const AtspiReply& reply) {
                if (reply.ok && !reply.references.empty() &&
                    reply.references.front().path != kAtspiNullPath) {
                    answered.childSlots[i] = reply.references.front();
                }
                if (--answered.childSlotsPending == 0) {
                    std::vector<AtspiAddress> children;
                    for (auto& slot : answered.childSlots) {
                        if (slot) {
                            children.push_back(*slot);
                        }
                    }
                    answered.record.children.answer(std::move(children));
                }
            });
    }
    node->childSlotsAsked = std::max(node->childSlotsAsked, upTo);
}

void Snapshot::advance(const std::shared_ptr<Node>& node) {
    if (unanswered_) {
        return;  // what is missing stays missing: asking again would wait again
    }
    AtspiRecord& record = node->record;

    // The name and identifier, where neither the cache nor a batch gave them (or
    // the application refused the batch): one request each.
    if (node->requested && wanted(kTitle) &&
        record.name.state == Fetched<std::string>::State::unasked) {
        askFact(node, &AtspiRecord::name, &AtspiReply::text, AtspiCall::name);
    }
    if (node->requested && wanted(kIdentifier) &&
        record.accessibleId.state == Fetched<std::string>::State::unasked) {
        askFact(node, &AtspiRecord::accessibleId, &AtspiReply::text, AtspiCall::accessibleId);
    }

    if (node->requested && record.states.state == Fetched<AtspiStateBits>::State::unasked &&
        statesNeeded(*node)) {
        askFact(node, &AtspiRecord::states, &AtspiReply::states, AtspiCall::states);
    }
    if (node->requested &&
        record.children.state == Fetched<std::vector<AtspiAddress>>::State::unasked) {
        if (node->childrenByIndex) {
            askChildrenByIndex(node);
        } else if (childCountDecides(*node)) {
            if (node->reportedChildCount.value <= 0) {
                record.children.answer({});
            } else {
                askChildren(node);
            }
        } else if (record.states.known()) {
            askChildren(node);
        }
    }
    if (node->childrenByIndex && node->childCount >= 0 && node->childSlotsAsked == 0 &&
        record.children.state == Fetched<std::vector<AtspiAddress>>::State::asked &&
        node->childSlotsPending == 0) {
        // The count is known: ask for every index the walk can reach at once.
        const auto reach = static_cast<size_t>(std::min<int64_t>(node->childCount, childLimit_));
        if (reach == 0) {
            record.children.answer({});
        } else {
            askChildSlots(node, reach);
        }
    }

    // Only objects with a Component have extents (asking others makes toolkits
    // complain), so the extents wait for the interfaces.
    if ((wanted(kPosition) || wanted(kSize)) &&
        record.extents.state == Fetched<AtspiExtents>::State::unasked &&
        hasInterface(record, kAtspiComponent)) {
        askFact(node, &AtspiRecord::extents, &AtspiReply::extents, AtspiCall::extents);
    }

    switch (wanted(kValue) ? valueSource(record) : ValueSource::none) {
        case ValueSource::currentValue:
            if (record.currentValue.state == Fetched<double>::State::unasked) {
                askFact(node, &AtspiRecord::currentValue, &AtspiReply::real,
                        AtspiCall::currentValue);
            }
            break;
        case ValueSource::text:
            // To the end at once where the toolkit reads an end offset of -1 so;
            // elsewhere the count first (GTK 4 reads -1 as 0).
            if (textToTheEnd_) {
                if (record.text.state == Fetched<std::string>::State::unasked) {
                    askFact(node, &AtspiRecord::text, &AtspiReply::text, AtspiCall::text, 0, -1);
                }
            } else if (record.characterCount.state == Fetched<int32_t>::State::unasked) {
                askFact(node, &AtspiRecord::characterCount, &AtspiReply::integer,
                        AtspiCall::characterCount);
            } else if (record.characterCount.ok() &&
                       record.text.state == Fetched<std::string>::State::unasked) {
                askFact(node, &AtspiRecord::text, &AtspiReply::text, AtspiCall::text, 0,
                        record.characterCount.value);
            }
            break;
        default:
            break;
    }

    if (needsChildRoles(record) && record.children.ok() && !node->childRolesAsked) {
        node->childRolesAsked = true;
        record.childRoles.assign(record.children.value.size(), {});
        for (size_t i = 0; i < record.children.value.size(); ++i) {
            record.childRoles[i].state = Fetched<uint32_t>::State::asked;
            ask(node, AtspiRequest{AtspiCall::role, record.children.value[i]},
                [i](Node& answered, const AtspiReply& reply) {
                    if (reply.ok) {
                        answered.record.childRoles[i].answer(reply.number);
                    } else {
                        answered.record.childRoles[i].fail();
                    }
                });
        }
    }

    if (record.children.ok() && !node->childrenMade) {
        makeChildren(node);
    }
}

void Snapshot::makeChildren(const std::shared_ptr<Node>& node) {
    node->childrenMade = true;
    // A record fetched again is read outside the walk that fetched the first one:
    // its children start a stream of their own.
    Stream* stream = node->refetched || node->stream == nullptr ? newStream() : node->stream;
    const std::vector<int32_t> base = stream == node->stream ? node->key : std::vector<int32_t>{};
    const auto& addresses = node->record.children.value;
    node->children.reserve(addresses.size());
    for (size_t i = 0; i < addresses.size(); ++i) {
        auto child = std::make_shared<Node>();
        child->address = addresses[i];
        child->depth = node->depth + 1;
        child->key = base;
        child->key.push_back(static_cast<int32_t>(i));
        child->stream = stream;
        if (child->depth <= tuning_.deepest) {
            stream->frontier.emplace(child->key, child);
        }
        node->children.push_back(std::move(child));
    }
    topUp(*stream);
}

std::vector<AXElement> Snapshot::elementsOf(const std::vector<std::shared_ptr<Node>>& nodes) {
    std::vector<AXElement> elements;
    elements.reserve(nodes.size());
    for (const auto& node : nodes) {
        elements.push_back(std::make_shared<SnapshotElement>(shared_from_this(), node));
    }
    return elements;
}

AttributeRead Snapshot::answer(const std::shared_ptr<Node>& node, int attribute) {
    const AtspiRecord& record = node->record;
    switch (attribute) {
        case kRole:
            return roleAnswer(record);
        case kTitle:
            return titleAnswer(record);
        case kIdentifier:
            return identifierAnswer(record);
        case kValue:
            return valueAnswer(record);
        case kPosition:
            return positionAnswer(record);
        case kSize:
            return sizeAnswer(record);
        case kChildren: {
            AtspiListAnswer list = childrenAnswer(record);
            if (list.code != kAXErrorSuccess) {
                return AttributeRead::failure(list.code);
            }
            return AttributeRead::success(AttributeValue::ofElements(elementsOf(node->children)));
        }
        case kWindows: {
            AtspiListAnswer list = windowsAnswer(record);
            if (list.code != kAXErrorSuccess) {
                return AttributeRead::failure(list.code);
            }
            // A second list of the same windows: new elements, walked afresh.
            Stream* stream = newStream();
            std::vector<std::shared_ptr<Node>> windows;
            for (size_t i = 0; i < list.addresses.size(); ++i) {
                auto window = std::make_shared<Node>();
                window->address = list.addresses[i];
                window->depth = node->depth + 1;
                window->key = {static_cast<int32_t>(i)};
                window->stream = stream;
                stream->frontier.emplace(window->key, window);
                windows.push_back(std::move(window));
            }
            return AttributeRead::success(AttributeValue::ofElements(elementsOf(windows)));
        }
        default:
            return AttributeRead::failure(kAXErrorAttributeUnsupported);
    }
}

}  // namespace

AXElement openAtspiSnapshot(std::shared_ptr<AtspiTransport> transport, AtspiAddress application,
                            AtspiSnapshotTuning tuning) {
    auto snapshot =
        std::make_shared<Snapshot>(std::move(transport), std::move(application), tuning);
    return std::make_shared<SnapshotElement>(snapshot, snapshot->makeRoot());
}

bool isSnapshotElement(const AXElement& element) {
    return dynamic_cast<const SnapshotElement*>(element.get()) != nullptr;
}

bool sameSnapshotObject(const AXElement& a, const AXElement& b) {
    const auto* first = dynamic_cast<const SnapshotElement*>(a.get());
    const auto* second = dynamic_cast<const SnapshotElement*>(b.get());
    return first != nullptr && second != nullptr && first->address() == second->address() &&
           first->application() == second->application();
}

const AtspiAddress* snapshotApplication(const AXElement& element) {
    const auto* snapshotElement = dynamic_cast<const SnapshotElement*>(element.get());
    return snapshotElement == nullptr ? nullptr : &snapshotElement->application();
}

std::vector<AttributeRead> readSnapshotElementAttributes(const AXElement& element,
                                                         const std::vector<std::string>& names) {
    const auto* snapshotElement = dynamic_cast<const SnapshotElement*>(element.get());
    if (snapshotElement == nullptr) {
        return std::vector<AttributeRead>(names.size(), AttributeRead::failure(kAXErrorFailure));
    }
    std::vector<int> known;
    for (const std::string& name : names) {
        if (const int attribute = attributeOf(name); attribute >= 0) {
            known.push_back(attribute);
        }
    }
    std::vector<AttributeRead> answers = snapshotElement->readMany(known);
    std::vector<AttributeRead> reads;
    reads.reserve(names.size());
    size_t next = 0;
    for (const std::string& name : names) {
        reads.push_back(attributeOf(name) >= 0
                            ? std::move(answers[next++])
                            : AttributeRead::failure(kAXErrorAttributeUnsupported));
    }
    return reads;
}

AttributeRead readSnapshotElementSlice(const AXElement& element, const std::string& name,
                                       int64_t index, int64_t maxValues) {
    const auto* snapshotElement = dynamic_cast<const SnapshotElement*>(element.get());
    if (snapshotElement == nullptr) {
        return AttributeRead::failure(kAXErrorFailure);
    }
    if (attributeOf(name) != kChildren) {
        return sliceOfElementList(readSnapshotElement(element, name), index, maxValues);
    }
    return snapshotElement->readChildren(index, maxValues);
}

AttributeRead readSnapshotElement(const AXElement& element, const std::string& name) {
    const auto* snapshotElement = dynamic_cast<const SnapshotElement*>(element.get());
    if (snapshotElement == nullptr) {
        return AttributeRead::failure(kAXErrorFailure);
    }
    const int attribute = attributeOf(name);
    if (attribute < 0) {
        return AttributeRead::failure(kAXErrorAttributeUnsupported);
    }
    return snapshotElement->read(attribute);
}

}  // namespace velmora::native::freedesktop
