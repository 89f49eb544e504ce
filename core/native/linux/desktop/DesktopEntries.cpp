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

#include "core/native/linux/desktop/DesktopEntryScan.h"
#include "core/native/linux/desktop/GLibPointers.h"
#include "core/native/linux/desktop/ToolkitSwitches.h"

namespace velmora::native::freedesktop {

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
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
    GObjectPtr<GDesktopAppInfo> installed(g_desktop_app_info_new_from_filename(fileName.c_str()));
    if (!installed) {
        return nullptr;
    }
    auto switches =
        accessibilitySwitchesFor(textOr(g_app_info_get_executable(G_APP_INFO(installed.get()))));
    if (switches.empty()) {
        return G_APP_INFO(installed.release());
    }
    KeyFilePtr keys(g_key_file_new());
    if (!g_key_file_load_from_file(keys.get(), fileName.c_str(), G_KEY_FILE_KEEP_TRANSLATIONS,
                                   nullptr)) {
        return G_APP_INFO(installed.release());
    }
    GCharPtr exec(g_key_file_get_string(keys.get(), G_KEY_FILE_DESKTOP_GROUP,
                                        G_KEY_FILE_DESKTOP_KEY_EXEC, nullptr));
    if (!exec) {
        return G_APP_INFO(installed.release());
    }
    g_key_file_set_string(keys.get(), G_KEY_FILE_DESKTOP_GROUP, G_KEY_FILE_DESKTOP_KEY_EXEC,
                          withSwitches(exec.get(), switches).c_str());
    GDesktopAppInfo* changed = g_desktop_app_info_new_from_keyfile(keys.get());
    if (changed == nullptr) {
        return G_APP_INFO(installed.release());
    }
    recordFile = true;
    return G_APP_INFO(changed);
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
    std::string desktopId = isDesktopFileName(id) ? id : id + std::string(kDesktopSuffix);
    GObjectPtr<GDesktopAppInfo> info(g_desktop_app_info_new(desktopId.c_str()));
    if (!info) {
        return std::nullopt;
    }
    const char* fileName = g_desktop_app_info_get_filename(info.get());
    if (fileName == nullptr) {
        return std::nullopt;
    }
    return std::string(fileName);
}

std::optional<std::string> desktopFileProgram(const std::string& fileName) {
    GObjectPtr<GDesktopAppInfo> info(g_desktop_app_info_new_from_filename(fileName.c_str()));
    if (!info) {
        return std::nullopt;
    }
    const char* program = g_app_info_get_executable(G_APP_INFO(info.get()));
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
        info.reset(g_app_info_create_from_commandline(location.c_str(), nullptr,
                                                      G_APP_INFO_CREATE_NONE, &error));
        if (!info) {
            std::string message = error != nullptr ? error->message : "cannot start " + location;
            g_clear_error(&error);
            return message;
        }
    }

    GObjectPtr<GAppLaunchContext> context(g_app_launch_context_new());
    g_app_launch_context_setenv(context.get(), "DISPLAY", displayName.c_str());
    for (const auto& variable :
         accessibilityEnvironment(environmentVariable("XDG_CURRENT_DESKTOP"),
                                  environmentVariable("SAL_USE_VCLPLUGIN"))) {
        g_app_launch_context_setenv(context.get(), variable.name.c_str(), variable.value.c_str());
    }
    if (recordFile) {
        // Names the process by its entry (ApplicationIdentity.h), as GIO does
        // for an entry it launches from its file.
        g_app_launch_context_setenv(context.get(), "GIO_LAUNCHED_DESKTOP_FILE", location.c_str());
        g_app_launch_context_unsetenv(context.get(), "GIO_LAUNCHED_DESKTOP_FILE_PID");
    }
    // The application must not write into the agent's standard output, which
    // carries one document, nor its standard error: its streams go nowhere.
    int nowhere = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (nowhere < 0) {
        return std::string("cannot open /dev/null: ") + std::strerror(errno);
    }
    gboolean launched = g_desktop_app_info_launch_uris_as_manager_with_fds(
        G_DESKTOP_APP_INFO(info.get()), nullptr, context.get(), G_SPAWN_SEARCH_PATH, nullptr,
        nullptr, nullptr, nullptr, nowhere, nowhere, nowhere, &error);
    close(nowhere);
    if (launched == FALSE) {
        std::string message = error != nullptr ? error->message : "cannot start " + location;
        g_clear_error(&error);
        return message;
    }
    return std::nullopt;
}

}  // namespace velmora::native::freedesktop
