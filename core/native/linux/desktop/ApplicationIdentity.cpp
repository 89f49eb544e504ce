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

namespace {

bool launchedItself(const ProcessFacts& facts) {
    return facts.launchedDesktopFile && !facts.launchedDesktopFile->empty() &&
           (!facts.launchedDesktopFilePid || *facts.launchedDesktopFilePid == facts.processId);
}

const DesktopEntry* entryOfWindowClasses(const std::vector<std::string>& classes,
                                         const std::vector<DesktopEntry>& entries) {
    if (classes.empty()) {
        return nullptr;
    }
    return bestEntry(entries, [&](const DesktopEntry& candidate) {
        return !candidate.startupWMClass.empty() &&
               std::find(classes.begin(), classes.end(), candidate.startupWMClass) != classes.end();
    });
}

}  // namespace

std::string applicationIdOf(const ProcessFacts& facts, const std::vector<DesktopEntry>& entries) {
    if (launchedItself(facts)) {
        return desktopIdOfFile(*facts.launchedDesktopFile, entries);
    }

    for (const auto& window : facts.windows) {
        if (const auto* entry = entryOfWindowClasses(window.classes, entries)) {
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

    for (const auto& window : facts.windows) {
        if (!window.gtkApplicationId.empty()) {
            return window.gtkApplicationId;
        }
    }
    return executableName.empty() ? facts.commandName : executableName;
}

std::string applicationIdOfWindow(const ProcessFacts& facts, const WindowIdentity& window,
                                  const std::vector<DesktopEntry>& entries) {
    if (!launchedItself(facts)) {
        if (const auto* entry = entryOfWindowClasses(window.classes, entries)) {
            return entry->id;
        }
    }
    return applicationIdOf(facts, entries);
}

std::vector<std::string> applicationIdsOf(const ProcessFacts& facts,
                                          const std::vector<DesktopEntry>& entries) {
    if (facts.windows.empty()) {
        return {applicationIdOf(facts, entries)};
    }
    std::vector<std::string> ids;
    for (const auto& window : facts.windows) {
        std::string id = applicationIdOfWindow(facts, window, entries);
        if (std::find(ids.begin(), ids.end(), id) == ids.end()) {
            ids.push_back(std::move(id));
        }
    }
    return ids;
}

bool ownsWindowsOf(const ProcessFacts& facts, const std::string& applicationId,
                   const std::vector<DesktopEntry>& entries) {
    return std::any_of(facts.windows.begin(), facts.windows.end(), [&](const WindowIdentity& w) {
        return applicationIdOfWindow(facts, w, entries) == applicationId;
    });
}

}  // namespace velmora::native::freedesktop
