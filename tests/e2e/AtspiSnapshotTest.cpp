// The pipelined reader against a scripted application: what a tree walk gets, in
// which order requests go out, how far ahead they go, when the application's
// cache is used and when an element is read afresh. No bus, no desktop.

#include <gtest/gtest.h>

#include <atspi/atspi-constants.h>

#include <climits>
#include <deque>
#include <map>
#include <optional>
#include <set>

#include "core/native/AXCGDriver.h"
#include "core/native/linux/atspi/AtspiSnapshot.h"
#include "tests/support/ScriptedPlatform.h"

namespace velmora::native::freedesktop {
namespace {

constexpr const char* kBus = ":1.7";
constexpr const char* kRoot = "/root";
constexpr const char* kAccessible = "org.a11y.atspi.Accessible";
constexpr const char* kApplicationInterface = "org.a11y.atspi.Application";

struct FakeObject {
    uint32_t role = ATSPI_ROLE_FILLER;
    std::string name{};
    std::string id{};
    std::vector<std::string> interfaces = {kAccessible, kAtspiComponentInterface};
    AtspiStateBits states{};
    AtspiExtents extents{0, 0, 10, 10};
    double value = 0;
    std::string text{};
    std::vector<std::string> children{};       // paths; kAtspiNullPath for a child that went away
    std::set<AtspiCall> failing{};             // calls answered with an error
    bool cacheHidesChildren = false;           // its cache item has child count -1
    std::optional<int32_t> cacheChildCount{};  // the child count the cache gives, if not its own
    std::optional<int32_t> cacheIndex{};  // the index in its parent the cache gives, if not its own
};

AtspiStateBits statesWith(std::initializer_list<uint32_t> states) {
    AtspiStateBits bits{};
    for (uint32_t state : states) {
        bits[state / 32] |= uint32_t{1} << (state % 32);
    }
    return bits;
}

// An application answering over a scripted transport. Answers arrive only when
// the reader waits: each wait delivers everything sent until then, so a reader
// that did not send ahead would wait once per request.
class FakeApplication : public AtspiTransport {
  public:
    std::map<std::string, FakeObject> objects;
    bool offersCache = true;
    bool refusesGetChildren = false;
    bool refusesPropertyBatches = false;
    bool silent = false;  // every request times out unanswered
    std::string toolkit;  // its ToolkitName
    std::vector<AtspiRequest> sent;
    int waits = 0;

    FakeObject& add(const std::string& path, FakeObject object, const std::string& parent = "") {
        auto& added = objects[path] = std::move(object);
        if (!parent.empty()) {
            objects.at(parent).children.push_back(path);
        }
        return added;
    }

    void send(const AtspiRequest& request, AtspiReplyHandler handler) override {
        sent.push_back(request);
        queue_.emplace_back(request, std::move(handler));
    }

    bool pump(bool wait) override {
        if (!wait || queue_.empty()) {
            return false;
        }
        ++waits;
        auto batch = std::move(queue_);
        queue_.clear();
        for (auto& [request, handler] : batch) {
            handler(answer(request));
        }
        return true;
    }

    size_t inFlight() const { return queue_.size(); }

    int count(AtspiCall call) const {
        int n = 0;
        for (const auto& request : sent) {
            n += request.call == call ? 1 : 0;
        }
        return n;
    }
    int count(AtspiCall call, const std::string& path) const {
        int n = 0;
        for (const auto& request : sent) {
            n += request.call == call && request.target.path == path ? 1 : 0;
        }
        return n;
    }
    std::set<std::string> objectsAskedAbout() const {
        std::set<std::string> paths;
        for (const auto& request : sent) {
            if (request.call != AtspiCall::cacheItems) {
                paths.insert(request.target.path);
            }
        }
        return paths;
    }

  private:
    static bool has(const FakeObject& object, const char* interface) {
        return std::find(object.interfaces.begin(), object.interfaces.end(), interface) !=
               object.interfaces.end();
    }

    AtspiReply answer(const AtspiRequest& request) {
        if (silent) {
            return AtspiReply::noAnswer();
        }
        AtspiReply reply;
        if (request.call == AtspiCall::cacheItems) {
            if (!offersCache) {
                return AtspiReply::failure();
            }
            for (const auto& [path, object] : objects) {
                AtspiCacheItem item;
                item.object = {kBus, path};
                item.parent = {kBus, ""};
                for (const auto& [parentPath, parent] : objects) {
                    auto at = std::find(parent.children.begin(), parent.children.end(), path);
                    if (at != parent.children.end()) {
                        item.parent = {kBus, parentPath};
                        item.indexInParent = object.cacheIndex.value_or(
                            static_cast<int32_t>(at - parent.children.begin()));
                    }
                }
                item.childCount = object.cacheHidesChildren
                                      ? -1
                                      : object.cacheChildCount.value_or(
                                            static_cast<int32_t>(object.children.size()));
                for (const auto& name : object.interfaces) {
                    item.interfaces |= interfaceNamed(name);
                }
                item.name = object.name;
                item.role = object.role;
                item.states = object.states;
                reply.items.push_back(std::move(item));
            }
            reply.ok = true;
            return reply;
        }
        auto found = objects.find(request.target.path);
        if (request.target.busName != kBus || found == objects.end() ||
            found->second.failing.count(request.call) != 0) {
            return AtspiReply::failure();
        }
        const FakeObject& object = found->second;
        reply.ok = true;
        switch (request.call) {
            case AtspiCall::role:
                reply.number = object.role;
                break;
            case AtspiCall::name:
                reply.text = object.name;
                break;
            case AtspiCall::accessibleId:
                reply.text = object.id;
                break;
            case AtspiCall::properties:
                if (refusesPropertyBatches) {
                    return AtspiReply::failure();
                }
                // A property whose own request fails is left out.
                if (object.failing.count(AtspiCall::name) == 0) {
                    reply.properties.name = object.name;
                }
                if (object.failing.count(AtspiCall::accessibleId) == 0) {
                    reply.properties.accessibleId = object.id;
                }
                if (object.failing.count(AtspiCall::childCount) == 0) {
                    reply.properties.childCount = static_cast<int32_t>(object.children.size());
                }
                break;
            case AtspiCall::interfaces:
                for (const auto& name : object.interfaces) {
                    reply.interfaces |= interfaceNamed(name);
                }
                break;
            case AtspiCall::states:
                reply.states = object.states;
                break;
            case AtspiCall::children:
                if (refusesGetChildren) {
                    return AtspiReply::failure();
                }
                for (const auto& child : object.children) {
                    reply.references.push_back({kBus, child});
                }
                break;
            case AtspiCall::childCount:
                reply.integer = static_cast<int32_t>(object.children.size());
                break;
            case AtspiCall::childAtIndex:
                if (request.first < 0 ||
                    request.first >= static_cast<int32_t>(object.children.size())) {
                    return AtspiReply::failure();
                }
                reply.references.push_back({kBus, object.children[request.first]});
                break;
            case AtspiCall::extents:
                if (!has(object, kAtspiComponentInterface)) {
                    return AtspiReply::failure();
                }
                reply.extents = object.extents;
                break;
            case AtspiCall::currentValue:
                if (!has(object, kAtspiValueInterface)) {
                    return AtspiReply::failure();
                }
                reply.real = object.value;
                break;
            case AtspiCall::characterCount:
                if (!has(object, kAtspiTextInterface)) {
                    return AtspiReply::failure();
                }
                reply.integer = static_cast<int32_t>(object.text.size());
                break;
            case AtspiCall::text:
                if (!has(object, kAtspiTextInterface)) {
                    return AtspiReply::failure();
                }
                // -1 is the end of the text, as ATK has it.
                reply.text = object.text.substr(
                    request.first, request.second == -1
                                       ? std::string::npos
                                       : static_cast<size_t>(request.second - request.first));
                break;
            case AtspiCall::toolkitName:
                reply.text = toolkit;
                break;
            case AtspiCall::processId:
                return AtspiReply::failure();  // the snapshot never asks the bus
            case AtspiCall::cacheItems:
                break;
        }
        return reply;
    }

    std::vector<std::pair<AtspiRequest, AtspiReplyHandler>> queue_;
};

// The scripted platform, with its accessibility answered by a snapshot of the
// fake application.
class SnapshotPlatform : public ScriptedPlatform {
  public:
    explicit SnapshotPlatform(std::shared_ptr<FakeApplication> application)
        : application_(std::move(application)) {}

    AXElement applicationElement(int32_t /*processId*/) override {
        return openAtspiSnapshot(application_, {kBus, kRoot});
    }
    AttributeRead copyAttribute(const AXElement& element, const std::string& name) override {
        return readSnapshotElement(element, name);
    }
    std::vector<AttributeRead> copyAttributes(const AXElement& element,
                                              const std::vector<std::string>& names) override {
        return readSnapshotElementAttributes(element, names);
    }
    AttributeRead copyAttributeValues(const AXElement& element, const std::string& name,
                                      int64_t index, int64_t maxValues) override {
        return readSnapshotElementSlice(element, name, index, maxValues);
    }

  private:
    std::shared_ptr<FakeApplication> application_;
};

const std::string kAppId = "org.example.fixture";
constexpr int32_t kPid = 77;

class AtspiSnapshotTest : public ::testing::Test {
  protected:
    AtspiSnapshotTest() : application(std::make_shared<FakeApplication>()), platform(application) {
        platform.addRunningApp(kAppId, RunningApplication{kPid, {}, {}});
        FakeObject root;
        root.role = ATSPI_ROLE_APPLICATION;
        root.name = "fixture";
        root.interfaces = {kAccessible, kApplicationInterface};
        application->add(kRoot, root);
    }

    std::vector<ElementInfo> query(int64_t budget = 3000) {
        AXCGDriver driver(platform, budget, 1.5);
        return driver.query(kAppId, std::nullopt, true);
    }

    // A window with `boxes` boxes of `labels` labels each.
    void addWideTree(int boxes, int labels) {
        FakeObject window;
        window.role = ATSPI_ROLE_FRAME;
        window.name = "Wide";
        application->add("/w", window, kRoot);
        for (int b = 0; b < boxes; ++b) {
            const std::string box = "/w/" + std::to_string(b);
            application->add(box, FakeObject{}, "/w");
            for (int l = 0; l < labels; ++l) {
                FakeObject label;
                label.role = ATSPI_ROLE_LABEL;
                label.name = "Label " + std::to_string(b) + "." + std::to_string(l);
                label.interfaces.push_back(kAtspiTextInterface);
                label.text = label.name;
                application->add(box + "/" + std::to_string(l), label, box);
            }
        }
    }

    std::shared_ptr<FakeApplication> application;
    SnapshotPlatform platform;
};

ElementInfo info(std::string role, std::optional<std::string> title,
                 std::optional<std::string> identifier, bool valuePresent,
                 std::optional<std::string> value, std::optional<Rect> frame) {
    ElementInfo made;
    made.role = std::move(role);
    made.title = std::move(title);
    made.identifier = std::move(identifier);
    made.valuePresent = valuePresent;
    made.value = std::move(value);
    made.frame = frame;
    return made;
}

TEST_F(AtspiSnapshotTest, AWalkReadsEveryKindOfElementAsTheRulesSay) {
    FakeObject window;
    window.role = ATSPI_ROLE_FRAME;
    window.name = "Main";
    window.extents = {0, 0, 800, 600};
    application->add("/w", window, kRoot);
    application->add("/w/box", FakeObject{.extents = {5, 5, 790, 590}}, "/w");
    application->add(
        "/w/box/label",
        FakeObject{.role = ATSPI_ROLE_LABEL,
                   .name = "Hello",
                   .id = "greeting",
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiTextInterface},
                   .extents = {10, 10, 50, 20},
                   .text = "Hello"},
        "/w/box");
    application->add(
        "/w/box/notes",
        FakeObject{.role = ATSPI_ROLE_TEXT,
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiTextInterface},
                   .states = statesWith({ATSPI_STATE_MULTI_LINE}),
                   .extents = {10, 40, 200, 100},
                   .text = ""},
        "/w/box");
    application->add(
        "/w/box/agree",
        FakeObject{.role = ATSPI_ROLE_CHECK_BOX,
                   .name = "Agree",
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiTextInterface},
                   .states = statesWith({ATSPI_STATE_CHECKED}),
                   .extents = {10, 150, 80, 20},
                   .text = "Agree"},
        "/w/box");
    application->add(
        "/w/box/volume",
        FakeObject{.role = ATSPI_ROLE_SLIDER,
                   .name = "Volume",
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiValueInterface},
                   .extents = {10, 180, 100, 20},
                   .value = 0.25},
        "/w/box");
    application->add(
        "/w/box/choice",
        FakeObject{.role = ATSPI_ROLE_COMBO_BOX, .name = "Choice", .extents = {10, 210, 100, 20}},
        "/w/box");
    application->add("/w/box/choice/menu",
                     FakeObject{.role = ATSPI_ROLE_MENU, .extents = {INT32_MIN, INT32_MIN, 0, 0}},
                     "/w/box/choice");
    application->add(
        "/w/box/choice/entry",
        FakeObject{.role = ATSPI_ROLE_ENTRY,
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiTextInterface},
                   .extents = {12, 212, 80, 16},
                   .text = "alpha"},
        "/w/box/choice");
    application->objects.at("/w/box").children.push_back(kAtspiNullPath);  // went away

    std::vector<ElementInfo> window1 = {
        info("AXWindow", "Main", std::nullopt, false, std::nullopt, Rect{0, 0, 800, 600}),
        info("AXGroup", std::nullopt, std::nullopt, false, std::nullopt, Rect{5, 5, 790, 590}),
        info("AXStaticText", "Hello", "greeting", true, "Hello", Rect{10, 10, 50, 20}),
        info("AXTextArea", std::nullopt, std::nullopt, true, "", Rect{10, 40, 200, 100}),
        info("AXCheckBox", "Agree", std::nullopt, true, std::nullopt, Rect{10, 150, 80, 20}),
        info("AXSlider", "Volume", std::nullopt, true, std::nullopt, Rect{10, 180, 100, 20}),
        info("AXComboBox", "Choice", std::nullopt, false, std::nullopt, Rect{10, 210, 100, 20}),
        info("AXMenu", std::nullopt, std::nullopt, false, std::nullopt, std::nullopt),
        info("AXTextField", std::nullopt, std::nullopt, true, "alpha", Rect{12, 212, 80, 16}),
    };
    std::vector<ElementInfo> expected = {
        info("AXApplication", "fixture", std::nullopt, false, std::nullopt, std::nullopt)};
    expected.insert(expected.end(), window1.begin(), window1.end());
    expected.insert(expected.end(), window1.begin(), window1.end());  // again through AXWindows

    EXPECT_EQ(query(), expected);
}

TEST_F(AtspiSnapshotTest, OpeningTheApplicationSendsNothing) {
    AXElement root = platform.applicationElement(kPid);
    EXPECT_TRUE(isSnapshotElement(root));
    EXPECT_TRUE(application->sent.empty());
    // Attributes the walk does not know are refused without asking.
    EXPECT_EQ(platform.copyAttribute(root, "AXDescription").code, kAXErrorAttributeUnsupported);
    EXPECT_TRUE(application->sent.empty());
    EXPECT_EQ(platform.copyAttribute(root, "AXPosition").code, kAXErrorAttributeUnsupported);
    EXPECT_FALSE(application->sent.empty());
}

TEST_F(AtspiSnapshotTest, RequestsGoOutWithoutWaitingForAnswers) {
    addWideTree(20, 40);  // 1 + 1 + 20 + 800 elements
    auto elements = query();
    ASSERT_EQ(elements.size(), 2u * 821u + 1u);
    // A reader asking one thing at a time would wait once per request (over 10000
    // here); asking ahead, it waits a few times per level.
    EXPECT_LT(application->waits, 100) << application->sent.size() << " requests";
}

TEST_F(AtspiSnapshotTest, TheFirstReadSendsEverythingTheWalkWillReadOfTheElement) {
    AXElement root = platform.applicationElement(kPid);
    // Nothing has been answered yet when the requests for the element's whole
    // record are all on their way.
    addWideTree(1, 1);
    EXPECT_EQ(platform.copyAttribute(root, "AXRole").value->text, "AXApplication");
    EXPECT_EQ(application->count(AtspiCall::role, kRoot), 1);
    EXPECT_EQ(application->count(AtspiCall::name, kRoot), 1);
    EXPECT_EQ(application->count(AtspiCall::accessibleId, kRoot), 1);
    EXPECT_EQ(application->count(AtspiCall::interfaces, kRoot), 1);
    EXPECT_EQ(application->count(AtspiCall::states, kRoot), 1);
    EXPECT_EQ(application->count(AtspiCall::children, kRoot), 1);
    // Extents only for what has a Component, which the application has not.
    EXPECT_EQ(application->count(AtspiCall::extents, kRoot), 0);
    // The child list is asked for once the states are in (an element that
    // manages its descendants has its children read one index at a time).
    EXPECT_EQ(application->waits, 2);
    // Its children were asked for ahead, before the walk reads them.
    EXPECT_EQ(application->count(AtspiCall::role, "/w"), 1);
    // A read of one attribute is not a walk: the cache is not worth asking.
    EXPECT_EQ(application->count(AtspiCall::cacheItems), 0);
}

TEST_F(AtspiSnapshotTest, LookAheadIsBoundedWhenTheBudgetStopsTheWalk) {
    addWideTree(50, 40);  // 2052 elements
    auto elements = query(100);
    ASSERT_EQ(elements.size(), 100u);
    const auto asked = application->objectsAskedAbout();
    EXPECT_GE(asked.size(), 100u);
    EXPECT_LE(asked.size(), 100u + 128u) << "objects asked about beyond the look-ahead";
}

TEST_F(AtspiSnapshotTest, NothingBelowTheDeepestLevelIsFetchedAhead) {
    std::string parent = kRoot;
    for (int depth = 1; depth <= 63; ++depth) {
        std::string path = "/d" + std::to_string(depth);
        application->add(path, FakeObject{.role = ATSPI_ROLE_PANEL}, parent);
        parent = path;
    }
    auto elements = query();
    // The walk records depths 0 to 60 (twice below the application).
    EXPECT_EQ(elements.size(), 1u + 60u + 60u);
    const auto asked = application->objectsAskedAbout();
    EXPECT_EQ(asked.count("/d60"), 1u);
    EXPECT_EQ(asked.count("/d61"), 0u);
    EXPECT_EQ(asked.count("/d62"), 0u);
}

TEST_F(AtspiSnapshotTest, AWalkAsksTheCacheOnceAndReadsWhatItListsFromThere) {
    addWideTree(10, 30);  // 312 elements
    auto withCache = query();
    ASSERT_EQ(withCache.size(), 1u + 2u * 311u);
    // Once for the whole snapshot, the walk of the windows included, and before
    // anything else.
    EXPECT_EQ(application->count(AtspiCall::cacheItems), 1);
    ASSERT_FALSE(application->sent.empty());
    EXPECT_EQ(application->sent.front().call, AtspiCall::cacheItems);
    // What the cache lists is not asked for again; the rest is.
    EXPECT_EQ(application->count(AtspiCall::role), 0);
    EXPECT_EQ(application->count(AtspiCall::name), 0);
    EXPECT_EQ(application->count(AtspiCall::states), 0);
    EXPECT_EQ(application->count(AtspiCall::interfaces), 0);
    EXPECT_EQ(application->count(AtspiCall::accessibleId), 1 + 2 * 311);  // not in the cache
    // Child lists are not taken from the cache: every element is asked for its own.
    EXPECT_EQ(application->count(AtspiCall::children), 1 + 2 * 311);

    // The same results without a cache.
    auto fresh = std::make_shared<FakeApplication>();
    fresh->objects = application->objects;
    fresh->offersCache = false;
    SnapshotPlatform uncached(fresh);
    uncached.addRunningApp(kAppId, RunningApplication{kPid, {}, {}});
    AXCGDriver driver(uncached, 3000, 1.5);
    EXPECT_EQ(driver.query(kAppId, std::nullopt, true), withCache);
    // An application without a cache is asked once per snapshot.
    EXPECT_EQ(fresh->count(AtspiCall::cacheItems), 1);
    EXPECT_EQ(fresh->count(AtspiCall::role), 1 + 2 * 311);
}

TEST_F(AtspiSnapshotTest, ChildrenComeInTheOrderTheApplicationListsThemNotTheCaches) {
    // A window whose title bar says it comes after the contents (as GTK 3's
    // client-side title bars do) while the window lists it first.
    application->add("/w", FakeObject{.role = ATSPI_ROLE_FRAME, .name = "Demo"}, kRoot);
    application->add("/w/title", FakeObject{.role = ATSPI_ROLE_PANEL, .cacheIndex = 1}, "/w");
    application->add("/w/content", FakeObject{.role = ATSPI_ROLE_SCROLL_PANE, .cacheIndex = 0},
                     "/w");
    const auto elements = query();
    ASSERT_EQ(elements.size(), 1u + 2u * 3u);
    EXPECT_EQ(elements[2].role, "AXGroup");
    EXPECT_EQ(elements[3].role, "AXScrollArea");
    EXPECT_EQ(elements[5].role, "AXGroup");
    EXPECT_EQ(elements[6].role, "AXScrollArea");
}

TEST_F(AtspiSnapshotTest, ChildrenTheCacheDoesNotListAreAskedFor) {
    addWideTree(10, 10);
    application->objects.at("/w/9").cacheHidesChildren = true;  // like a GTK menu
    auto elements = query();
    EXPECT_EQ(elements.size(), 1u + 2u * 111u);
    EXPECT_EQ(application->count(AtspiCall::children, "/w/9"), 2);  // once per pass
    EXPECT_EQ(elements[3 + 9 * 11 + 9].title, "Label 9.9");
}

TEST_F(AtspiSnapshotTest, TheStructuralStateFetchesOnlyRolesStatesAndChildLists) {
    addWideTree(5, 10);
    AXCGDriver driver(platform, 3000, 1.5);
    const StructuralState state = driver.structuralState(kAppId);
    EXPECT_EQ(state.elementCount, 1 + 2 * 56);
    EXPECT_EQ(state.roleHistogram.at("AXStaticText"), 2 * 50);
    EXPECT_EQ(application->count(AtspiCall::name), 0);
    EXPECT_EQ(application->count(AtspiCall::accessibleId), 0);
    EXPECT_EQ(application->count(AtspiCall::interfaces), 0);
    EXPECT_EQ(application->count(AtspiCall::extents), 0);
    EXPECT_EQ(application->count(AtspiCall::characterCount), 0);
    EXPECT_EQ(application->count(AtspiCall::text), 0);
    // Roles and states came from the cache: besides it, only child lists were
    // asked for, one per element.
    EXPECT_EQ(application->count(AtspiCall::cacheItems), 1);
    EXPECT_EQ(application->count(AtspiCall::children), 1 + 2 * 56);
    EXPECT_EQ(application->count(AtspiCall::toolkitName), 1);
    EXPECT_EQ(application->sent.size(), 2u + 1u + 2u * 56u);
    // The same elements as a query finds.
    application->sent.clear();
    const auto elements = query();
    EXPECT_EQ(static_cast<int64_t>(elements.size()), state.elementCount);
    EXPECT_GT(application->count(AtspiCall::accessibleId), 0);
}

TEST_F(AtspiSnapshotTest, ATextIsReadToTheEndInOneRequestWhereTheToolkitReadsMinusOneSo) {
    addWideTree(2, 3);
    const auto counted = query();
    EXPECT_EQ(application->count(AtspiCall::toolkitName), 1);
    EXPECT_EQ(application->count(AtspiCall::characterCount), 2 * 6);

    for (const char* toolkit : {"Gecko", "Chromium", "gtk"}) {
        application->toolkit = toolkit;
        application->sent.clear();
        EXPECT_EQ(query(), counted) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::toolkitName), 1) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::characterCount), 0) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::text), 2 * 6) << toolkit;
        for (const auto& request : application->sent) {
            if (request.call == AtspiCall::text) {
                EXPECT_EQ(request.first, 0);
                EXPECT_EQ(request.second, -1);
            }
        }
    }
    // GTK 4 reads an end offset of -1 as 0; Qt and toolkits not known are asked
    // for the count first.
    for (const char* toolkit : {"GTK", "Qt", "Gtk", ""}) {
        application->toolkit = toolkit;
        application->sent.clear();
        EXPECT_EQ(query(), counted) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::characterCount), 2 * 6) << toolkit;
    }
}

TEST_F(AtspiSnapshotTest, EveryWalkAsksForTheToolkitOnceWithTheCache) {
    addWideTree(2, 3);
    application->toolkit = "Gecko";
    AXCGDriver driver(platform, 3000, 1.5);
    driver.structuralState(kAppId);
    EXPECT_EQ(application->count(AtspiCall::toolkitName), 1);
    ASSERT_GE(application->sent.size(), 2u);
    EXPECT_EQ(application->sent[0].call, AtspiCall::cacheItems);
    EXPECT_EQ(application->sent[1].call, AtspiCall::toolkitName);
}

TEST_F(AtspiSnapshotTest, AGtk3CacheSparesTheChildListsOfWhatItCountsWithoutChildren) {
    addWideTree(3, 4);
    application->objects.at("/w/2").cacheHidesChildren = true;  // counted -1: asked for
    auto labelsAskedForChildren = [&] {
        int asked = 0;
        for (int b = 0; b < 3; ++b) {
            for (int l = 0; l < 4; ++l) {
                asked += application->count(AtspiCall::children,
                                            "/w/" + std::to_string(b) + "/" + std::to_string(l));
            }
        }
        return asked;
    };
    // A toolkit not known: every element is asked for its child list.
    const auto everyList = query();
    EXPECT_GT(labelsAskedForChildren(), 0);

    // GTK 3 counts children for its cache as GetChildren lists them: its leaves
    // are not asked, everything with children is, and the walk is the same.
    application->toolkit = "gtk";
    application->sent.clear();
    EXPECT_EQ(query(), everyList);
    EXPECT_EQ(labelsAskedForChildren(), 0);
    for (const char* parent : {kRoot, "/w", "/w/0", "/w/1", "/w/2"}) {
        EXPECT_GT(application->count(AtspiCall::children, parent), 0) << parent;
    }
    application->sent.clear();
    AXCGDriver driver(platform, 3000, 1.5);
    EXPECT_EQ(driver.structuralState(kAppId).elementCount, static_cast<int64_t>(everyList.size()));
    EXPECT_EQ(labelsAskedForChildren(), 0);

    // GTK 4 counts no children for its application object, which has windows;
    // there, and for every other toolkit, a count of none is not taken at its word.
    application->objects.at(kRoot).cacheChildCount = 0;
    for (const char* toolkit : {"GTK", "Qt", "Gecko", ""}) {
        application->toolkit = toolkit;
        application->sent.clear();
        EXPECT_EQ(query(), everyList) << toolkit;
        EXPECT_GT(labelsAskedForChildren(), 0) << toolkit;
    }
}

TEST_F(AtspiSnapshotTest, WithoutACacheTheStructuralStateAsksChildCountsAndNoStatesTheRoleIgnores) {
    addWideTree(5, 10);
    FakeObject notes;
    notes.role = ATSPI_ROLE_ENTRY;
    notes.states = statesWith({ATSPI_STATE_MULTI_LINE});
    application->add("/w/notes", notes, "/w");
    AXCGDriver driver(platform, 3000, 1.5);
    const StructuralState cached = driver.structuralState(kAppId);
    application->offersCache = false;
    application->sent.clear();

    const StructuralState state = driver.structuralState(kAppId);
    EXPECT_EQ(state.elementCount, cached.elementCount);
    EXPECT_EQ(state.roleHistogram, cached.roleHistogram);
    EXPECT_EQ(state.roleHistogram.at("AXTextArea"), 2);  // named by its states
    // Every element is asked for its role and child count (the application once,
    // the window's tree once per pass); the states only of the entry, whose role
    // they name; child lists only of the elements that have children: the
    // application, the window and its five boxes.
    const int elements = 1 + 2 * 57;
    EXPECT_EQ(application->count(AtspiCall::role), elements);
    EXPECT_EQ(application->count(AtspiCall::childCount), elements);
    EXPECT_EQ(application->count(AtspiCall::states), 2);
    EXPECT_EQ(application->count(AtspiCall::states, "/w/notes"), 2);
    EXPECT_EQ(application->count(AtspiCall::children), 1 + 2 * 6);
    EXPECT_EQ(application->count(AtspiCall::children, "/w/0/0"), 0);
    EXPECT_EQ(application->count(AtspiCall::children, "/w/notes"), 0);
    // And the cache, refused, and the toolkit.
    EXPECT_EQ(application->sent.size(), 2u + 2u * elements + 2u + 13u);
}

TEST_F(AtspiSnapshotTest, WithoutACacheAQueryAsksNameIdentifierAndChildCountInOneRequest) {
    application->toolkit = "Gecko";
    addWideTree(5, 10);
    const auto cached = query();
    application->offersCache = false;
    application->sent.clear();

    EXPECT_EQ(query(), cached);
    // Every element once for its properties (the window's tree once per pass),
    // never for its name, identifier or child count alone; child lists only of
    // the elements that have children: the application, the window, its boxes.
    const int elements = 1 + 2 * 56;
    EXPECT_EQ(application->count(AtspiCall::properties), elements);
    EXPECT_EQ(application->count(AtspiCall::name), 0);
    EXPECT_EQ(application->count(AtspiCall::accessibleId), 0);
    EXPECT_EQ(application->count(AtspiCall::childCount), 0);
    EXPECT_EQ(application->count(AtspiCall::children), 1 + 2 * 6);
    EXPECT_EQ(application->count(AtspiCall::children, "/w/0/0"), 0);
}

TEST_F(AtspiSnapshotTest, AnApplicationRefusingPropertyBatchesIsAskedOnePropertyAtATime) {
    application->toolkit = "gtk";
    addWideTree(5, 10);
    application->objects.at("/w/0/0").id = "first-label";
    const auto cached = query();
    application->offersCache = false;
    application->refusesPropertyBatches = true;
    application->sent.clear();

    const auto walked = query();
    EXPECT_EQ(walked, cached);
    const auto first = std::find_if(walked.begin(), walked.end(), [](const ElementInfo& element) {
        return element.title == "Label 0.0";
    });
    ASSERT_NE(first, walked.end());
    EXPECT_EQ(first->identifier, "first-label");
    // Refused once, it is not asked again in the same walk; of the elements
    // asked for ahead in the meantime, each asks again one property at a time.
    const int asked = application->count(AtspiCall::properties);
    EXPECT_GE(asked, 1);
    EXPECT_LE(asked, 9);  // the application and the look-ahead of its first read
    const int elements = 1 + 2 * 56;
    EXPECT_EQ(application->count(AtspiCall::name), elements);
    EXPECT_EQ(application->count(AtspiCall::accessibleId), elements);
    // Without a child count, every element's child list is asked for.
    EXPECT_EQ(application->count(AtspiCall::children), elements);
}

TEST_F(AtspiSnapshotTest, OnlyToolkitsKnownToAnswerPropertyBatchesAreAskedForThem) {
    // Qt's bridge leaves Properties.GetAll unanswered: asked, each element would
    // wait out the time limit. Unknown toolkits are not asked either.
    addWideTree(2, 3);
    application->offersCache = false;
    for (const char* toolkit : {"Qt", "", "SomethingNew"}) {
        application->toolkit = toolkit;
        application->sent.clear();
        EXPECT_EQ(query().size(), 1u + 2u * 9u) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::properties), 0) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::name), 1 + 2 * 9) << toolkit;
    }
    for (const char* toolkit : {"gtk", "GTK", "Gecko", "Chromium"}) {
        application->toolkit = toolkit;
        application->sent.clear();
        EXPECT_EQ(query().size(), 1u + 2u * 9u) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::properties), 1 + 2 * 9) << toolkit;
        EXPECT_EQ(application->count(AtspiCall::name), 0) << toolkit;
    }
}

TEST_F(AtspiSnapshotTest, WithoutACacheAStructuralWalkReadsALongChildListByIndex) {
    application->offersCache = false;
    FakeObject list;
    list.role = ATSPI_ROLE_LIST;
    auto& added = application->add("/list", list, kRoot);
    for (int i = 0; i < 20000; ++i) {
        added.children.push_back("/list/" + std::to_string(i));
    }
    for (int i = 0; i < 200; ++i) {
        application->objects["/list/" + std::to_string(i)] = FakeObject{};
    }
    AXCGDriver driver(platform, 100, 1.5);
    const StructuralState state = driver.structuralState(kAppId);
    EXPECT_EQ(state.elementCount, 100);
    EXPECT_EQ(application->count(AtspiCall::children, "/list"), 0);
    EXPECT_LE(application->count(AtspiCall::childAtIndex), 100);
    EXPECT_GE(application->count(AtspiCall::childAtIndex), 98);
}

TEST_F(AtspiSnapshotTest, AStructuralWalkAsksTheStatesOfAnElementWhoseChildCountFails) {
    application->offersCache = false;
    addWideTree(2, 2);
    application->objects.at("/w/1").failing = {AtspiCall::childCount};
    AXCGDriver driver(platform, 3000, 1.5);
    const StructuralState state = driver.structuralState(kAppId);
    EXPECT_EQ(state.elementCount, 1 + 2 * (1 + 2 + 4));
    EXPECT_EQ(application->count(AtspiCall::states), 2);
    EXPECT_EQ(application->count(AtspiCall::states, "/w/1"), 2);
    EXPECT_EQ(application->count(AtspiCall::children, "/w/1"), 2);
}

TEST_F(AtspiSnapshotTest, AnElementManagingItsDescendantsIsReadOnlyAsFarAsTheBudgetReaches) {
    application->offersCache = false;
    FakeObject window;
    window.role = ATSPI_ROLE_FRAME;
    window.name = "Sheet";
    application->add("/w", window, kRoot);
    FakeObject table;
    table.role = ATSPI_ROLE_TABLE;
    table.states = statesWith({ATSPI_STATE_MANAGES_DESCENDANTS});
    auto& added = application->add("/w/table", table, "/w");
    for (int i = 0; i < 20000; ++i) {
        added.children.push_back("/w/table/" + std::to_string(i));
    }
    for (int i = 0; i < 200; ++i) {
        FakeObject cell;
        cell.role = ATSPI_ROLE_TABLE_CELL;
        cell.name = "Cell " + std::to_string(i);
        application->objects["/w/table/" + std::to_string(i)] = cell;
    }

    const auto elements = query(100);
    ASSERT_EQ(elements.size(), 100u);
    EXPECT_EQ(elements[2].role, "AXTable");
    EXPECT_EQ(elements[3].title, "Cell 0");
    EXPECT_EQ(elements[99].title, "Cell 96");
    // Never the whole list; its children one index at a time, no further than
    // the budget reached.
    EXPECT_EQ(application->count(AtspiCall::children, "/w/table"), 0);
    EXPECT_EQ(application->count(AtspiCall::childCount, "/w/table"), 1);
    EXPECT_LE(application->count(AtspiCall::childAtIndex), 100);
    EXPECT_GE(application->count(AtspiCall::childAtIndex), 96);
}

TEST_F(AtspiSnapshotTest, ChildrenFetchedAheadByIndexAreCompletedWhenTheWalkAsksForMore) {
    application->offersCache = false;
    FakeObject table;
    table.role = ATSPI_ROLE_TABLE;
    table.states = statesWith({ATSPI_STATE_MANAGES_DESCENDANTS});
    auto& added = application->add("/table", table, kRoot);
    for (int i = 0; i < 5000; ++i) {
        added.children.push_back("/table/" + std::to_string(i));
        FakeObject cell;
        cell.role = ATSPI_ROLE_TABLE_CELL;
        application->objects["/table/" + std::to_string(i)] = cell;
    }
    // A budget beyond what is fetched ahead before the walk first says how far
    // it reaches.
    const auto elements = query(4500);
    ASSERT_EQ(elements.size(), 4500u);
    EXPECT_EQ(application->count(AtspiCall::children, "/table"), 0);
    EXPECT_LE(application->count(AtspiCall::childAtIndex), 4499);
}

TEST_F(AtspiSnapshotTest, ChildrenAreReadByIndexWhenGetChildrenIsRefused) {
    addWideTree(3, 3);
    // A child that the application lists but cannot answer for.
    auto& middle = application->objects.at("/w/1").children;
    middle.insert(middle.begin() + 1, "/gone");
    auto normal = query();
    application->refusesGetChildren = true;
    application->offersCache = false;
    application->sent.clear();
    auto byIndex = query();
    EXPECT_EQ(byIndex, normal);
    EXPECT_GT(application->count(AtspiCall::childAtIndex), 0);
    EXPECT_EQ(normal.size(), 1u + 2u * 14u);
    EXPECT_EQ(normal[8].role, "AXUnknown");  // "/gone", after the first label of box 1
}

TEST_F(AtspiSnapshotTest, EachAnswerIsGivenOnceThenTheElementIsReadAfresh) {
    application->add("/w", FakeObject{.role = ATSPI_ROLE_FRAME, .name = "Editor"}, kRoot);
    application->add(
        "/w/text",
        FakeObject{.role = ATSPI_ROLE_ENTRY,
                   .interfaces = {kAccessible, kAtspiComponentInterface, kAtspiTextInterface},
                   .text = "before"},
        "/w");
    AXElement root = platform.applicationElement(kPid);
    auto windows = platform.copyAttribute(root, "AXChildren").value->elements;
    auto fields = platform.copyAttribute(windows.at(0), "AXChildren").value->elements;
    AXElement field = fields.at(0);

    EXPECT_EQ(platform.copyAttribute(field, "AXValue").value->text, "before");
    application->objects.at("/w/text").text = "after";
    // The record answers the value twice, as the walk reads it.
    EXPECT_EQ(platform.copyAttribute(field, "AXValue").value->text, "before");
    const int textReads = application->count(AtspiCall::text, "/w/text");
    EXPECT_EQ(platform.copyAttribute(field, "AXValue").value->text, "after");
    EXPECT_EQ(application->count(AtspiCall::text, "/w/text"), textReads + 1);
    EXPECT_EQ(platform.copyAttribute(field, "AXValue").value->text, "after");

    // A second child list is a new set of elements, read afresh.
    application->objects.at("/w").name = "Renamed";
    auto again = platform.copyAttribute(root, "AXChildren").value->elements;
    ASSERT_EQ(again.size(), 1u);
    EXPECT_NE(again[0].get(), windows[0].get());
    EXPECT_EQ(platform.copyAttribute(again[0], "AXTitle").value->text, "Renamed");
}

TEST_F(AtspiSnapshotTest, WindowsAreANewSetOfElements) {
    addWideTree(2, 2);
    AXElement root = platform.applicationElement(kPid);
    auto children = platform.copyAttribute(root, "AXChildren").value->elements;
    auto windows = platform.copyAttribute(root, "AXWindows").value->elements;
    ASSERT_EQ(windows.size(), 1u);
    EXPECT_NE(windows[0].get(), children[0].get());
    // A stream that nobody reads fetches nothing.
    EXPECT_EQ(application->count(AtspiCall::role, "/w"), 1);
    EXPECT_EQ(platform.copyAttribute(windows[0], "AXTitle").value->text, "Wide");
    EXPECT_EQ(application->count(AtspiCall::role, "/w"), 2);
    EXPECT_EQ(platform.copyAttribute(windows[0], "AXWindows").code, kAXErrorAttributeUnsupported);
}

TEST_F(AtspiSnapshotTest, FailedReadsKeepTheirResultCodes) {
    application->add(
        "/w",
        FakeObject{.role = ATSPI_ROLE_FRAME,
                   .name = "",
                   .failing = {AtspiCall::role, AtspiCall::extents, AtspiCall::accessibleId}},
        kRoot);
    application->add("/w/broken",
                     FakeObject{.failing = {AtspiCall::children, AtspiCall::childCount}}, "/w");
    AXElement root = platform.applicationElement(kPid);
    auto window = platform.copyAttribute(root, "AXChildren").value->elements.at(0);
    EXPECT_EQ(platform.copyAttribute(window, "AXRole").code, kAXErrorCannotComplete);
    EXPECT_EQ(platform.copyAttribute(window, "AXTitle").code, kAXErrorNoValue);
    EXPECT_EQ(platform.copyAttribute(window, "AXIdentifier").code, kAXErrorCannotComplete);
    EXPECT_EQ(platform.copyAttribute(window, "AXValue").code, kAXErrorNoValue);
    EXPECT_EQ(platform.copyAttribute(window, "AXPosition").code, kAXErrorCannotComplete);
    EXPECT_EQ(platform.copyAttribute(window, "AXWindows").code, kAXErrorCannotComplete);
    auto broken = platform.copyAttribute(window, "AXChildren").value->elements.at(0);
    // GetChildren failed, and so did the child count: no children.
    EXPECT_EQ(platform.copyAttribute(broken, "AXChildren").code, kAXErrorCannotComplete);
}

TEST_F(AtspiSnapshotTest, AnApplicationThatIsGoneAnswersNothing) {
    application->objects.clear();
    auto elements = query();
    ASSERT_EQ(elements.size(), 1u);
    EXPECT_EQ(elements[0],
              info("AXUnknown", std::nullopt, std::nullopt, false, std::nullopt, std::nullopt));
}

TEST_F(AtspiSnapshotTest, AfterARequestGoesUnansweredEveryReadFailsWithoutAsking) {
    addWideTree(2, 3);
    application->silent = true;
    AXElement root = platform.applicationElement(kPid);
    const auto reads = platform.copyAttributes(root, {"AXRole", "AXTitle", "AXChildren"});
    ASSERT_EQ(reads.size(), 3u);
    for (const auto& read : reads) {
        EXPECT_EQ(read.code, kAXErrorCannotComplete);
    }
    // The walk's first questions (the cache and the toolkit) went unanswered:
    // one wait, and the element itself was never asked about.
    EXPECT_EQ(application->sent.size(), 2u);
    EXPECT_EQ(application->waits, 1);
    // Nor is anything asked again in this snapshot, even once it would answer.
    application->silent = false;
    EXPECT_EQ(platform.copyAttribute(root, "AXTitle").code, kAXErrorCannotComplete);
    EXPECT_EQ(platform.copyAttributeValues(root, "AXChildren", 0, 10).code, kAXErrorCannotComplete);
    EXPECT_EQ(application->sent.size(), 2u);
    // A new snapshot asks again.
    EXPECT_EQ(query().size(), 1u + 2u * 9u);
}

TEST_F(AtspiSnapshotTest, AnUnansweredReadOfOneAttributeFailsAfterOneWait) {
    addWideTree(1, 1);
    application->silent = true;
    AXElement root = platform.applicationElement(kPid);
    EXPECT_EQ(platform.copyAttribute(root, "AXRole").code, kAXErrorCannotComplete);
    EXPECT_EQ(application->waits, 1);
    const size_t sent = application->sent.size();
    EXPECT_GT(sent, 0u);
    EXPECT_EQ(platform.copyAttribute(root, "AXChildren").code, kAXErrorCannotComplete);
    EXPECT_EQ(application->sent.size(), sent);
    EXPECT_EQ(application->waits, 1);
}

}  // namespace
}  // namespace velmora::native::freedesktop
