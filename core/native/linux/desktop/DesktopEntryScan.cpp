#include "core/native/linux/desktop/DesktopEntryScan.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>

#include <glib.h>

#include "core/native/linux/desktop/GLibPointers.h"

namespace velmora::native::freedesktop {

namespace {

constexpr std::string_view kDesktopSuffix = ".desktop";
constexpr const char* kGroup = "Desktop Entry";

// Two parts of a path with one slash between them, as GLib joins them: the
// system's data directories may end in a slash.
std::string joined(const std::string& directory, const std::string& name) {
    GCharPtr path(g_build_filename(directory.c_str(), name.c_str(), nullptr));
    return path.get();
}

// Desktop id (with ".desktop") to file, for one applications directory and its
// subdirectories; a subdirectory's name and "-" prefix the ids found in it.
void collectFiles(const std::string& path, const std::string& prefix,
                  std::map<std::string, std::string>& files) {
    GDir* directory = g_dir_open(path.c_str(), 0, nullptr);
    if (directory == nullptr) {
        return;
    }
    while (const char* name = g_dir_read_name(directory)) {
        const std::string fileName = joined(path, name);
        const std::string_view view(name);
        if (view.size() >= kDesktopSuffix.size() && view.ends_with(kDesktopSuffix)) {
            files[prefix + name] = fileName;
        } else if (g_file_test(fileName.c_str(), G_FILE_TEST_IS_DIR)) {
            collectFiles(fileName, prefix + name + "-", files);
        }
    }
    g_dir_close(directory);
}

std::string stringOf(GKeyFile* keys, const char* key) {
    GCharPtr value(g_key_file_get_string(keys, kGroup, key, nullptr));
    return value ? std::string(value.get()) : std::string();
}

std::vector<std::string> listOf(GKeyFile* keys, const char* key) {
    StrvPtr list(g_key_file_get_string_list(keys, kGroup, key, nullptr, nullptr));
    std::vector<std::string> values;
    for (gchar** item = list.get(); item != nullptr && *item != nullptr; ++item) {
        values.emplace_back(*item);
    }
    return values;
}

bool onPath(const std::string& program) {
    GCharPtr found(g_find_program_in_path(program.c_str()));
    return found != nullptr;
}

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// The desktop entry format's OnlyShowIn and NotShowIn, the current desktops
// looked at in order: the first that either list names decides.
bool shownOn(const std::vector<std::string>& onlyShowIn, bool hasOnlyShowIn,
             const std::vector<std::string>& notShowIn,
             const std::vector<std::string>& currentDesktops) {
    for (const auto& desktop : currentDesktops) {
        if (contains(onlyShowIn, desktop)) {
            return true;
        }
        if (contains(notShowIn, desktop)) {
            return false;
        }
    }
    return !hasOnlyShowIn;
}

// The first word of an Exec line, up to the first space, as GIO names an entry's
// program.
std::string firstWord(const std::string& exec) {
    const size_t start = exec.find_first_not_of(' ');
    if (start == std::string::npos) {
        return {};
    }
    const size_t end = exec.find(' ', start);
    return exec.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

// Reads an entry's file into `entry`; false when the file is no application
// entry, or one that says it is hidden.
bool load(const std::string& fileName, const std::vector<std::string>& currentDesktops,
          DesktopEntry& entry) {
    KeyFilePtr keys(g_key_file_new());
    if (!g_key_file_load_from_file(keys.get(), fileName.c_str(), G_KEY_FILE_NONE, nullptr)) {
        return false;
    }
    GCharPtr start(g_key_file_get_start_group(keys.get()));
    if (!start || std::strcmp(start.get(), kGroup) != 0) {
        return false;
    }
    if (stringOf(keys.get(), "Type") != "Application") {
        return false;
    }
    const std::string tryExec = stringOf(keys.get(), "TryExec");
    if (!tryExec.empty() && !onPath(tryExec)) {
        return false;
    }
    // An entry whose Exec line does not parse, or names a program that is not
    // there, is not an application that can run.
    const std::string exec = stringOf(keys.get(), "Exec");
    if (!exec.empty()) {
        gchar** words = nullptr;
        if (!g_shell_parse_argv(exec.c_str(), nullptr, &words, nullptr)) {
            return false;
        }
        StrvPtr owned(words);
        if (!onPath(words[0])) {
            return false;
        }
    }
    if (g_key_file_get_boolean(keys.get(), kGroup, "Hidden", nullptr)) {
        return false;
    }
    entry.fileName = fileName;
    entry.startupWMClass = stringOf(keys.get(), "StartupWMClass");
    entry.program = baseName(firstWord(exec));
    const bool noDisplay = g_key_file_get_boolean(keys.get(), kGroup, "NoDisplay", nullptr);
    const bool hasOnlyShowIn = g_key_file_has_key(keys.get(), kGroup, "OnlyShowIn", nullptr);
    entry.shown = !noDisplay && shownOn(listOf(keys.get(), "OnlyShowIn"), hasOnlyShowIn,
                                        listOf(keys.get(), "NotShowIn"), currentDesktops);
    return true;
}

}  // namespace

DesktopEntrySearch sessionDesktopEntrySearch() {
    DesktopEntrySearch search;
    search.directories.push_back(joined(g_get_user_data_dir(), "applications"));
    for (const gchar* const* directory = g_get_system_data_dirs(); *directory != nullptr;
         ++directory) {
        search.directories.push_back(joined(*directory, "applications"));
    }
    if (const char* desktops = std::getenv("XDG_CURRENT_DESKTOP")) {
        StrvPtr names(g_strsplit(desktops, ":", 0));
        for (gchar** name = names.get(); *name != nullptr; ++name) {
            search.currentDesktops.emplace_back(*name);
        }
    }
    return search;
}

std::vector<DesktopEntry> scanDesktopEntries(const DesktopEntrySearch& search) {
    std::vector<DesktopEntry> entries;
    std::set<std::string> seen;  // ids a more important directory has
    for (const auto& directory : search.directories) {
        std::map<std::string, std::string> files;
        collectFiles(directory, "", files);
        for (const auto& [desktopId, fileName] : files) {
            if (!seen.insert(desktopId).second) {
                continue;
            }
            DesktopEntry entry;
            if (!load(fileName, search.currentDesktops, entry)) {
                continue;
            }
            entry.id = desktopId.substr(0, desktopId.size() - kDesktopSuffix.size());
            if (!entry.id.empty()) {
                entries.push_back(std::move(entry));
            }
        }
    }
    return entries;
}

}  // namespace velmora::native::freedesktop
