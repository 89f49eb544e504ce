#include "tests/e2e/MarshalledMessages.h"

#include <gtest/gtest.h>

namespace velmora::native::freedesktop {

std::string methodReturn(const std::function<void(DBusMessageIter*)>& append) {
    DBusMessage* message = dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN);
    dbus_message_set_reply_serial(message, 41);
    dbus_message_set_serial(message, 5);
    DBusMessageIter iter;
    dbus_message_iter_init_append(message, &iter);
    append(&iter);
    char* bytes = nullptr;
    int length = 0;
    EXPECT_TRUE(dbus_message_marshal(message, &bytes, &length));
    std::string marshalled(bytes, static_cast<size_t>(length));
    dbus_free(bytes);
    dbus_message_unref(message);
    return marshalled;
}

}  // namespace velmora::native::freedesktop
