#include "core/native/linux/desktop/DesktopEntries.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>

#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <unistd.h>

namespace velmora::native::freedesktop {

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using GObjectPtr = std::unique_ptr<T, GObjectUnref>;

struct GFree {
    void operator()(gpointer memory) const { g_free(memory); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

constexpr std::string_view kDesktopSuffix = ".desktop";

std::string textOr(const char* text) {
    return text != nullptr ? std::string(text) : std::string();
}

}  // namespace

bool isDesktopFileName(const std::string& path) {
    return path.size() > kDesktopSuffix.size() && path.ends_with(kDesktopSuffix);
}

std::vector<DesktopEntry> installedDesktopEntries() {
    std::vector<DesktopEntry> entries;
    GList* all = g_app_info_get_all();
    for (GList* item = all; item != nullptr; item = item->next) {
        auto* info = static_cast<GAppInfo*>(item->data);
        if (!G_IS_DESKTOP_APP_INFO(info)) {
            continue;
        }
        auto* desktopInfo = G_DESKTOP_APP_INFO(info);
        DesktopEntry entry;
        std::string id = textOr(g_app_info_get_id(info));
        if (isDesktopFileName(id)) {
            id.resize(id.size() - kDesktopSuffix.size());
        }
        entry.id = id;
        entry.fileName = textOr(g_desktop_app_info_get_filename(desktopInfo));
        entry.startupWMClass = textOr(g_desktop_app_info_get_startup_wm_class(desktopInfo));
        entry.program = baseName(textOr(g_app_info_get_executable(info)));
        entry.shown = g_app_info_should_show(info) != FALSE;
        if (!entry.id.empty()) {
            entries.push_back(std::move(entry));
        }
    }
    g_list_free_full(all, g_object_unref);
    return entries;
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
    if (isDesktopFileName(location)) {
        info.reset(G_APP_INFO(g_desktop_app_info_new_from_filename(location.c_str())));
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
