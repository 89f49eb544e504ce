#include "core/native/linux/desktop/DesktopEntries.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <fcntl.h>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <glib.h>
#include <unistd.h>

#include "core/native/linux/SharedLibrary.h"
#include "core/native/linux/desktop/DesktopEntryScan.h"
#include "core/native/linux/desktop/GLibPointers.h"
#include "core/native/linux/desktop/ToolkitSwitches.h"

namespace velmora::native::freedesktop {

namespace {

// GIO's functions for reading single entries and launching them (and GObject's,
// which it brings). Loaded at their first use: a request that launches nothing
// and finds its application running needs neither library.
struct Libgio {
    decltype(&::g_app_info_create_from_commandline) g_app_info_create_from_commandline = nullptr;
    decltype(&::g_app_info_get_executable) g_app_info_get_executable = nullptr;
    decltype(&::g_app_launch_context_new) g_app_launch_context_new = nullptr;
    decltype(&::g_app_launch_context_setenv) g_app_launch_context_setenv = nullptr;
    decltype(&::g_app_launch_context_unsetenv) g_app_launch_context_unsetenv = nullptr;
    decltype(&::g_desktop_app_info_get_filename) g_desktop_app_info_get_filename = nullptr;
    decltype(&::g_desktop_app_info_launch_uris_as_manager_with_fds)
        g_desktop_app_info_launch_uris_as_manager_with_fds = nullptr;
    decltype(&::g_desktop_app_info_new) g_desktop_app_info_new = nullptr;
    decltype(&::g_desktop_app_info_new_from_filename) g_desktop_app_info_new_from_filename =
        nullptr;
    decltype(&::g_desktop_app_info_new_from_keyfile) g_desktop_app_info_new_from_keyfile = nullptr;
    decltype(&::g_object_unref) g_object_unref = nullptr;
};

SharedLibrary& gioLibrary() {
    static SharedLibrary library("libgio-2.0.so.0");
    return library;
}

// None when GIO cannot be loaded (`gioLibrary().error()` says why).
const Libgio* libgio() {
    SharedLibrary& library = gioLibrary();
    static Libgio table;
    static const bool found =
        VELMORA_LIBRARY_FUNCTION(library, table, g_app_info_create_from_commandline) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_app_info_get_executable) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_app_launch_context_new) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_app_launch_context_setenv) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_app_launch_context_unsetenv) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_desktop_app_info_get_filename) &&
        VELMORA_LIBRARY_FUNCTION(library, table,
                                 g_desktop_app_info_launch_uris_as_manager_with_fds) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_desktop_app_info_new) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_desktop_app_info_new_from_filename) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_desktop_app_info_new_from_keyfile) &&
        VELMORA_LIBRARY_FUNCTION(library, table, g_object_unref);
    return found ? &table : nullptr;
}

// Every call into GIO comes after `libgio()` has been found.
const Libgio& gio() {
    return *libgio();
}

// A GDesktopAppInfo is a GAppInfo: the interface is the instance itself, as
// GIO's checked cast would return it.
GAppInfo* appInfo(GDesktopAppInfo* info) {
    return reinterpret_cast<GAppInfo*>(info);
}

struct GObjectUnref {
    void operator()(gpointer object) const { gio().g_object_unref(object); }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

constexpr std::string_view kDesktopSuffix = ".desktop";

std::string textOr(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

std::optional<std::string> environmentVariable(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
}

// The Exec line with `switches` inserted after its program (the first word,
// which the desktop entry format may quote).
std::string withSwitches(const std::string& exec, const std::vector<std::string>& switches) {
    size_t end = 0;
    if (!exec.empty() && exec.front() == '"') {
        end = 1;
        while (end < exec.size() && exec[end] != '"') {
            end += exec[end] == '\\' ? 2 : 1;
        }
        end = std::min(end + 1, exec.size());
    } else {
        end = std::min(exec.find(' '), exec.size());
    }
    std::string line = exec.substr(0, end);
    for (const auto& word : switches) {
        line += " " + word;
    }
    return line + exec.substr(end);
}

// The entry of `fileName` as GIO launches it: with the switches its toolkit
// needs to expose its accessibility tree (ToolkitSwitches.h) added to its Exec
// line. Such an entry is launched from memory, so GIO cannot record its file in
// the new process's environment: `recordFile` is then set, and the caller
// records it.
GAppInfo* entryToLaunch(const std::string& fileName, bool& recordFile) {
    recordFile = false;
    GObjectPtr<GDesktopAppInfo> installed(
        gio().g_desktop_app_info_new_from_filename(fileName.c_str()));
    if (!installed) {
        return nullptr;
    }
    auto switches =
        accessibilitySwitchesFor(textOr(gio().g_app_info_get_executable(appInfo(installed.get()))));
    if (switches.empty()) {
        return appInfo(installed.release());
    }
    KeyFilePtr keys(g_key_file_new());
    if (!g_key_file_load_from_file(keys.get(), fileName.c_str(), G_KEY_FILE_KEEP_TRANSLATIONS,
                                   nullptr)) {
        return appInfo(installed.release());
    }
    GCharPtr exec(g_key_file_get_string(keys.get(), G_KEY_FILE_DESKTOP_GROUP,
                                        G_KEY_FILE_DESKTOP_KEY_EXEC, nullptr));
    if (!exec) {
        return appInfo(installed.release());
    }
    g_key_file_set_string(keys.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_EXEC,
                          withSwitches(exec.get(), switches).c_str());
    GDesktopAppInfo* changed = gio().g_desktop_app_info_new_from_keyfile(keys.get());
    if (changed == nullptr) {
        return appInfo(installed.release());
    }
    recordFile = true;
    return appInfo(changed);
}

}  // namespace

bool isDesktopFileName(const std::string& path) {
    return path.size() > kDesktopSuffix.size() && path.ends_with(kDesktopSuffix);
}

std::vector<DesktopEntry> installedDesktopEntries() {
    return scanDesktopEntries(sessionDesktopEntrySearch());
}

std::optional<std::string> desktopFileOfId(const std::string& id) {
    if (id.empty()) {
        return std::nullopt;
    }
    if (libgio() == nullptr) {
        return std::nullopt;
    }
    std::string desktopId = isDesktopFileName(id) ? id : id + std::string(kDesktopSuffix);
    GObjectPtr<GDesktopAppInfo> info(gio().g_desktop_app_info_new(desktopId.c_str()));
    if (!info) {
        return std::nullopt;
    }
    const char* fileName = gio().g_desktop_app_info_get_filename(info.get());
    if (fileName == nullptr) {
        return std::nullopt;
    }
    return std::string(fileName);
}

std::optional<std::string> desktopFileProgram(const std::string& fileName) {
    if (libgio() == nullptr) {
        return std::nullopt;
    }
    GObjectPtr<GDesktopAppInfo> info(gio().g_desktop_app_info_new_from_filename(fileName.c_str()));
    if (!info) {
        return std::nullopt;
    }
    const char* program = gio().g_app_info_get_executable(appInfo(info.get()));
    if (program == nullptr || *program == '\0') {
        return std::nullopt;
    }
    GCharPtr found(g_find_program_in_path(program));
    if (!found) {
        return std::nullopt;
    }
    return std::string(found.get());
}

std::optional<std::string> launchApplication(const std::string& location,
                                             const std::string& displayName) {
    if (libgio() == nullptr) {
        return "cannot launch without GIO: " + gioLibrary().error();
    }
    GError* error = nullptr;
    GObjectPtr<GAppInfo> info;
    bool recordFile = false;
    if (isDesktopFileName(location)) {
        info.reset(entryToLaunch(location, recordFile));
        if (!info) {
            return "no application entry at " + location;
        }
    } else {
        if (access(location.c_str(), X_OK) != 0) {
            return "no application at " + location;
        }
        info.reset(gio().g_app_info_create_from_commandline(location.c_str(), nullptr,
                                                            G_APP_INFO_CREATE_NONE, &error));
        if (!info) {
            std::string message = error != nullptr ? error->message : "cannot start " + location;
            g_clear_error(&error);
            return message;
        }
    }

    GObjectPtr<GAppLaunchContext> context(gio().g_app_launch_context_new());
    gio().g_app_launch_context_setenv(context.get(), "DISPLAY", displayName.c_str());
    for (const auto& variable :
         accessibilityEnvironment(environmentVariable("XDG_CURRENT_DESKTOP"),
                                  environmentVariable("SAL_USE_VCLPLUGIN"))) {
        gio().g_app_launch_context_setenv(context.get(), variable.name.c_str(),
                                          variable.value.c_str());
    }
    if (recordFile) {
        // Names the process by its entry (ApplicationIdentity.h), as GIO does
        // for an entry it launches from its file.
        gio().g_app_launch_context_setenv(context.get(), "GIO_LAUNCHED_DESKTOP_FILE",
                                          location.c_str());
        gio().g_app_launch_context_unsetenv(context.get(), "GIO_LAUNCHED_DESKTOP_FILE_PID");
    }
    // The application must not write into the agent's standard output, which
    // carries one document, nor its standard error: its streams go nowhere.
    int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0) {
        return std::string("cannot open /dev/null: ") + std::strerror(errno);
    }
    gboolean launched = gio().g_desktop_app_info_launch_uris_as_manager_with_fds(
        reinterpret_cast<GDesktopAppInfo*>(info.get()), nullptr, context.get(), G_SPAWN_SEARCH_PATH,
        nullptr, nullptr, nullptr, nullptr, nowhere, nowhere, nowhere, &error);
    close(nowhere);
    if (launched == FALSE) {
        std::string message = error != nullptr ? error->message : "cannot start " + location;
        g_clear_error(&error);
        return message;
    }
    return std::nullopt;
}

}  // namespace velmora::native::freedesktop
