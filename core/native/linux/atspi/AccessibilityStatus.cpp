#include "core/native/linux/atspi/AccessibilityStatus.h"

#include <memory>
#include <optional>

#include <dbus/dbus.h>

namespace velmora::native::freedesktop {

namespace {

constexpr const char* kLauncher = "org.a11y.Bus";
constexpr const char* kLauncherPath = "/org/a11y/bus";
constexpr const char* kStatus = "org.a11y.Status";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";
// The launcher answers at once when it runs; a bus without one answers an error
// at once too. Only a hung launcher takes this long.
constexpr int kCallTimeoutMs = 2000;

struct ConnectionClose {
    void operator()(DBusConnection* connection) const {
        dbus_connection_close(connection);
        dbus_connection_unref(connection);
    }
};
using Connection = std::unique_ptr<DBusConnection, ConnectionClose>;

struct MessageUnref {
    void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, MessageUnref>;

Connection sessionBus() {
    DBusError error;
    dbus_error_init(&error);
    DBusConnection* connection = dbus_bus_get_private(DBUS_BUS_SESSION, &error);
    dbus_error_free(&error);
    if (connection != nullptr) {
        dbus_connection_set_exit_on_disconnect(connection, FALSE);
    }
    return Connection(connection);
}

Message call(DBusConnection* connection, Message request) {
    if (!request) {
        return nullptr;
    }
    DBusError error;
    dbus_error_init(&error);
    DBusMessage* reply = dbus_connection_send_with_reply_and_block(connection, request.get(),
                                                                   kCallTimeoutMs, &error);
    dbus_error_free(&error);
    return Message(reply);
}

// The Boolean property `name` of org.a11y.Status; none when it cannot be read.
std::optional<bool> readSwitch(DBusConnection* connection, const char* name) {
    Message request(dbus_message_new_method_call(kLauncher, kLauncherPath, kProperties, "Get"));
    if (!request || !dbus_message_append_args(request.get(), DBUS_TYPE_STRING, &kStatus,
                                              DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID)) {
        return std::nullopt;
    }
    Message reply = call(connection, std::move(request));
    if (!reply) {
        return std::nullopt;
    }
    DBusMessageIter iter;
    DBusMessageIter variant;
    if (!dbus_message_iter_init(reply.get(), &iter) ||
        dbus_message_iter_get_arg_type(&iter) != DBUS_TYPE_VARIANT) {
        return std::nullopt;
    }
    dbus_message_iter_recurse(&iter, &variant);
    if (dbus_message_iter_get_arg_type(&variant) != DBUS_TYPE_BOOLEAN) {
        return std::nullopt;
    }
    dbus_bool_t value = FALSE;
    dbus_message_iter_get_basic(&variant, &value);
    return value != FALSE;
}

bool setSwitchOn(DBusConnection* connection, const char* name) {
    Message request(dbus_message_new_method_call(kLauncher, kLauncherPath, kProperties, "Set"));
    if (!request) {
        return false;
    }
    DBusMessageIter iter;
    DBusMessageIter variant;
    dbus_bool_t on = TRUE;
    dbus_message_iter_init_append(request.get(), &iter);
    if (!dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &kStatus) ||
        !dbus_message_iter_append_basic(&iter, DBUS_TYPE_STRING, &name) ||
        !dbus_message_iter_open_container(&iter, DBUS_TYPE_VARIANT, DBUS_TYPE_BOOLEAN_AS_STRING,
                                          &variant)) {
        return false;
    }
    if (!dbus_message_iter_append_basic(&variant, DBUS_TYPE_BOOLEAN, &on)) {
        dbus_message_iter_abandon_container(&iter, &variant);
        return false;
    }
    if (!dbus_message_iter_close_container(&iter, &variant)) {
        return false;
    }
    Message reply = call(connection, std::move(request));
    return reply && dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_METHOD_RETURN;
}

}  // namespace

AccessibilitySwitch switchAccessibilityOn() {
    Connection bus = sessionBus();
    if (!bus) {
        return AccessibilitySwitch::unreachable;
    }
    auto enabled = readSwitch(bus.get(), "IsEnabled");
    if (!enabled) {
        return AccessibilitySwitch::unreachable;
    }
    if (*enabled) {
        return AccessibilitySwitch::alreadyOn;
    }
    return setSwitchOn(bus.get(), "IsEnabled") ? AccessibilitySwitch::switchedOn
                                               : AccessibilitySwitch::unreachable;
}

}  // namespace velmora::native::freedesktop
