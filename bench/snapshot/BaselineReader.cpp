#include "bench/snapshot/BaselineReader.h"

#include <atspi/atspi.h>

#include <climits>
#include <memory>
#include <optional>
#include <string>

#include "core/native/linux/atspi/RoleNames.h"

namespace velmora::bench {

namespace {

using native::freedesktop::macRoleName;
using native::freedesktop::RoleTraits;

constexpr int kMaxDepth = 60;

// An owned GObject reference.
template <typename T>
class Owned {
  public:
    explicit Owned(T* object = nullptr) : object_(object) {}
    ~Owned() {
        if (object_ != nullptr) {
            g_object_unref(object_);
        }
    }
    Owned(const Owned&) = delete;
    Owned& operator=(const Owned&) = delete;
    T* get() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }

  private:
    T* object_;
};

// A GError that clears itself; `out()` resets it for the next call.
class Error {
  public:
    ~Error() { g_clear_error(&error_); }
    GError** out() {
        g_clear_error(&error_);
        return &error_;
    }
    bool failed() const { return error_ != nullptr; }

  private:
    GError* error_ = nullptr;
};

std::optional<std::string> takeNonEmpty(gchar* text, bool failed) {
    std::optional<std::string> result;
    if (!failed && text != nullptr && *text != '\0') {
        result = text;
    }
    g_free(text);
    return result;
}

bool has(AtspiAccessible* object, AtspiStateType state) {
    Owned<AtspiStateSet> states(atspi_accessible_get_state_set(object));
    return states && atspi_state_set_contains(states.get(), state);
}

std::optional<std::string> role(AtspiAccessible* object) {
    Error error;
    AtspiRole role = atspi_accessible_get_role(object, error.out());
    if (error.failed()) {
        return std::nullopt;
    }
    RoleTraits traits;
    if (role == ATSPI_ROLE_TEXT || role == ATSPI_ROLE_ENTRY || role == ATSPI_ROLE_PASSWORD_TEXT) {
        traits.multiLine = has(object, ATSPI_STATE_MULTI_LINE);
    } else if (role == ATSPI_ROLE_COMBO_BOX) {
        traits.editable = has(object, ATSPI_STATE_EDITABLE);
        Error childError;
        gint count =
            traits.editable ? 0 : atspi_accessible_get_child_count(object, childError.out());
        for (gint i = 0; !childError.failed() && i < count; ++i) {
            Owned<AtspiAccessible> child(
                atspi_accessible_get_child_at_index(object, i, childError.out()));
            if (!child) {
                continue;
            }
            AtspiRole childRole = atspi_accessible_get_role(child.get(), childError.out());
            if (!childError.failed() &&
                (childRole == ATSPI_ROLE_TEXT || childRole == ATSPI_ROLE_ENTRY)) {
                traits.editable = true;
                break;
            }
        }
    }
    return macRoleName(role, traits);
}

bool checkable(AtspiAccessible* object, AtspiStateSet* states) {
    if (states != nullptr && atspi_state_set_contains(states, ATSPI_STATE_CHECKABLE)) {
        return true;
    }
    Error error;
    AtspiRole role = atspi_accessible_get_role(object, error.out());
    return !error.failed() &&
           (role == ATSPI_ROLE_CHECK_BOX || role == ATSPI_ROLE_RADIO_BUTTON ||
            role == ATSPI_ROLE_TOGGLE_BUTTON || role == ATSPI_ROLE_CHECK_MENU_ITEM ||
            role == ATSPI_ROLE_RADIO_MENU_ITEM);
}

// One read of the value: whether there is one, and its text when it is text.
struct ValueRead {
    bool present = false;
    std::optional<std::string> text;
};

ValueRead value(AtspiAccessible* object) {
    Error error;
    if (Owned<AtspiValue> valueInterface(atspi_accessible_get_value_iface(object));
        valueInterface) {
        atspi_value_get_current_value(valueInterface.get(), error.out());
        return {!error.failed(), std::nullopt};
    }
    Owned<AtspiStateSet> states(atspi_accessible_get_state_set(object));
    if (checkable(object, states.get())) {
        return {true, std::nullopt};
    }
    if (Owned<AtspiText> text(atspi_accessible_get_text_iface(object)); text) {
        gint count = atspi_text_get_character_count(text.get(), error.out());
        if (error.failed()) {
            return {};
        }
        gchar* contents = atspi_text_get_text(text.get(), 0, count, error.out());
        if (error.failed() || contents == nullptr) {
            g_free(contents);
            return {};
        }
        ValueRead read{true, std::string(contents)};
        g_free(contents);
        return read;
    }
    return {};
}

// One read of the extents, as the position or the size reads them.
std::optional<AtspiRect> extents(AtspiAccessible* object) {
    Owned<AtspiComponent> component(atspi_accessible_get_component_iface(object));
    if (!component) {
        return std::nullopt;
    }
    Error error;
    AtspiRect* rect =
        atspi_component_get_extents(component.get(), ATSPI_COORD_TYPE_SCREEN, error.out());
    std::optional<AtspiRect> result;
    if (!error.failed() && rect != nullptr && rect->x != G_MININT32 && rect->y != G_MININT32) {
        result = *rect;
    }
    g_free(rect);
    return result;
}

class Walk {
  public:
    explicit Walk(int64_t budget) : budget_(budget) {}

    void visit(AtspiAccessible* object, int depth) {
        if (budget_ < 1 || depth > kMaxDepth) {
            return;
        }
        --budget_;
        ElementInfo info;
        info.role = role(object).value_or("AXUnknown");
        Error error;
        info.title = takeNonEmpty(atspi_accessible_get_name(object, error.out()), error.failed());
        info.identifier =
            takeNonEmpty(atspi_accessible_get_accessible_id(object, error.out()), error.failed());
        info.valuePresent = value(object).present;
        info.value = value(object).text;
        if (auto position = extents(object)) {
            if (auto size = extents(object)) {
                info.frame =
                    Rect{static_cast<double>(position->x), static_cast<double>(position->y),
                         static_cast<double>(size->width), static_cast<double>(size->height)};
            }
        }
        elements_.push_back(std::move(info));

        // The whole child list first, as the agent reads it, then each child.
        std::vector<std::unique_ptr<Owned<AtspiAccessible>>> children;
        gint count = atspi_accessible_get_child_count(object, error.out());
        for (gint i = 0; !error.failed() && i < count; ++i) {
            Error childError;
            auto child = std::make_unique<Owned<AtspiAccessible>>(
                atspi_accessible_get_child_at_index(object, i, childError.out()));
            if (*child) {
                children.push_back(std::move(child));
            }
        }
        for (const auto& child : children) {
            if (budget_ < 1) {
                break;
            }
            visit(child->get(), depth + 1);
        }
    }

    std::vector<ElementInfo> take() { return std::move(elements_); }

  private:
    int64_t budget_;
    std::vector<ElementInfo> elements_;
};

}  // namespace

std::vector<ElementInfo> baselineQuery(int32_t processId, int64_t budget) {
    atspi_init();
    atspi_set_timeout(2500, -1);
    Owned<AtspiAccessible> desktop(atspi_get_desktop(0));
    Error error;
    gint count = atspi_accessible_get_child_count(desktop.get(), error.out());
    for (gint i = 0; !error.failed() && i < count; ++i) {
        Owned<AtspiAccessible> application(
            atspi_accessible_get_child_at_index(desktop.get(), i, error.out()));
        if (!application) {
            error.out();
            continue;
        }
        Error pidError;
        guint owner = atspi_accessible_get_process_id(application.get(), pidError.out());
        if (pidError.failed() || static_cast<int32_t>(owner) != processId) {
            continue;
        }
        Walk walk(budget);
        walk.visit(application.get(), 0);
        // The windows of an application are its top-level children, walked again.
        Error windowError;
        if (atspi_accessible_get_role(application.get(), windowError.out()) ==
                ATSPI_ROLE_APPLICATION &&
            !windowError.failed()) {
            std::vector<std::unique_ptr<Owned<AtspiAccessible>>> windows;
            gint windowCount =
                atspi_accessible_get_child_count(application.get(), windowError.out());
            for (gint w = 0; !windowError.failed() && w < windowCount; ++w) {
                Error childError;
                auto window = std::make_unique<Owned<AtspiAccessible>>(
                    atspi_accessible_get_child_at_index(application.get(), w, childError.out()));
                if (*window) {
                    windows.push_back(std::move(window));
                }
            }
            for (const auto& window : windows) {
                walk.visit(window->get(), 1);
            }
        }
        return walk.take();
    }
    return {};
}

}  // namespace velmora::bench
