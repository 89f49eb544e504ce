#include "core/native/linux/desktop/ApplicationIdentity.h"

#include <algorithm>

namespace velmora::native::freedesktop {

namespace {

constexpr std::string_view kDesktopSuffix = ".desktop";

// Shown entries first, then by id, so that a menu entry wins over a settings
// entry running the same program and the choice never depends on the
// installation's directory order.
bool preferredEntry(const DesktopEntry* a, const DesktopEntry* b) {
    if (a->shown != b->shown) {
        return a->shown;
    }
    return a->id < b->id;
}

template <typename Matches>
const DesktopEntry* bestEntry(const std::vector<DesktopEntry>& entries, Matches matches) {
    const DesktopEntry* best = nullptr;
    for (const auto& entry : entries) {
        if (matches(entry) && (best == nullptr || preferredEntry(&entry, best))) {
            best = &entry;
        }
    }
    return best;
}

}  // namespace

std::string baseName(const std::string& path) {
    auto slash = path.find_last_of('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string desktopIdOfFile(const std::string& fileName, const std::vector<DesktopEntry>& entries) {
    for (const auto& entry : entries) {
        if (entry.fileName == fileName) {
            return entry.id;
        }
    }
    std::string id = baseName(fileName);
    if (id.size() > kDesktopSuffix.size() && id.ends_with(kDesktopSuffix)) {
        id.resize(id.size() - kDesktopSuffix.size());
    }
    return id;
}

std::string applicationIdOf(const ProcessFacts& facts, const std::vector<DesktopEntry>& entries) {
    if (facts.launchedDesktopFile && !facts.launchedDesktopFile->empty() &&
        (!facts.launchedDesktopFilePid || *facts.launchedDesktopFilePid == facts.processId)) {
        return desktopIdOfFile(*facts.launchedDesktopFile, entries);
    }

    if (!facts.windowClasses.empty()) {
        const auto* entry = bestEntry(entries, [&](const DesktopEntry& candidate) {
            return !candidate.startupWMClass.empty() &&
                   std::find(facts.windowClasses.begin(), facts.windowClasses.end(),
                             candidate.startupWMClass) != facts.windowClasses.end();
        });
        if (entry != nullptr) {
            return entry->id;
        }
    }

    const std::string executableName = baseName(facts.executablePath);
    const auto* byProgram = bestEntry(entries, [&](const DesktopEntry& candidate) {
        return !candidate.program.empty() &&
               (candidate.program == executableName || candidate.program == facts.commandName);
    });
    if (byProgram != nullptr) {
        return byProgram->id;
    }

    if (!facts.gtkApplicationId.empty()) {
        return facts.gtkApplicationId;
    }
    return executableName.empty() ? facts.commandName : executableName;
}

}  // namespace velmora::native::freedesktop
