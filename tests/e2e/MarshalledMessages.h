#pragma once

#include <dbus/dbus.h>

#include <functional>
#include <string>

namespace velmora::native::freedesktop {

// The bytes of a method return to serial 41 whose body `append` writes,
// marshalled by libdbus, as an application's answer comes over the wire.
std::string methodReturn(const std::function<void(DBusMessageIter*)>& append);

}  // namespace velmora::native::freedesktop
