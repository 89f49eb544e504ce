#include "core/native/linux/GLibLogging.h"

#include <mutex>

#include <glib.h>

namespace velmora::native::freedesktop {

namespace {

void discard(const gchar*, GLogLevelFlags, const gchar*, gpointer) {}

}  // namespace

void quietGLibLogging() {
    static std::once_flag once;
    std::call_once(once, [] { g_log_set_default_handler(discard, nullptr); });
}

}  // namespace velmora::native::freedesktop
