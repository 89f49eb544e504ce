#include "tests/e2e/DisplayApplications.h"

#include <dirent.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

#include "tests/e2e/DesktopSupport.h"

namespace velmora::e2e {

namespace {

// A process's environment, or nothing when it cannot be read (gone, or not ours).
std::map<std::string, std::string> environmentOf(pid_t processId) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/environ", std::ios::binary);
    std::string block((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::map<std::string, std::string> variables;
    size_t start = 0;
    while (start < block.size()) {
        size_t end = block.find('\0', start);
        if (end == std::string::npos) {
            end = block.size();
        }
        std::string entry = block.substr(start, end - start);
        if (size_t equals = entry.find('='); equals != std::string::npos) {
            variables.emplace(entry.substr(0, equals), entry.substr(equals + 1));
        }
        start = end + 1;
    }
    return variables;
}

std::vector<pid_t> allProcessIds() {
    std::vector<pid_t> ids;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* entry = readdir(proc)) {
            char* end = nullptr;
            long id = std::strtol(entry->d_name, &end, 10);
            if (id > 0 && end != nullptr && *end == '\0') {
                ids.push_back(static_cast<pid_t>(id));
            }
        }
        closedir(proc);
    }
    return ids;
}

// Processes GIO launched on our display: entry path by process id.
std::map<pid_t, std::string> launchedOnThisDisplay() {
    std::map<pid_t, std::string> launched;
    const char* ours = std::getenv("DISPLAY");
    if (ours == nullptr || *ours == '\0') {
        return launched;
    }
    for (pid_t id : allProcessIds()) {
        if (processEnded(id)) {
            continue;
        }
        auto variables = environmentOf(id);
        auto display = variables.find("DISPLAY");
        auto entry = variables.find("GIO_LAUNCHED_DESKTOP_FILE");
        auto entryProcess = variables.find("GIO_LAUNCHED_DESKTOP_FILE_PID");
        if (display != variables.end() && display->second == ours && entry != variables.end() &&
            entryProcess != variables.end() && entryProcess->second == std::to_string(id)) {
            launched.emplace(id, entry->second);
        }
    }
    return launched;
}

// The processes whose parent is `parent`.
std::vector<pid_t> childrenOf(pid_t parent) {
    std::vector<pid_t> children;
    for (pid_t id : allProcessIds()) {
        std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
        std::string line;
        if (!std::getline(stat, line)) {
            continue;
        }
        // After the parenthesised command name: the state, then the parent.
        size_t close = line.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        std::istringstream fields(line.substr(close + 1));
        std::string state;
        long parentId = 0;
        if (fields >> state >> parentId && parentId == parent) {
            children.push_back(id);
        }
    }
    return children;
}

}  // namespace

bool processEnded(pid_t processId) {
    std::ifstream stat("/proc/" + std::to_string(processId) + "/stat");
    std::string line;
    if (!std::getline(stat, line)) {
        return true;
    }
    // The state follows the parenthesised command name, which may hold blanks.
    size_t close = line.rfind(')');
    return close == std::string::npos || line.compare(close, 4, ") Z ") == 0;
}

std::vector<pid_t> processesLaunchedFrom(const std::string& entryPath) {
    std::vector<pid_t> ids;
    for (const auto& [id, entry] : launchedOnThisDisplay()) {
        if (entry == entryPath) {
            ids.push_back(id);
        }
    }
    return ids;
}

std::set<pid_t> applicationProcesses() {
    std::set<pid_t> ids;
    for (pid_t id : windowOwnerProcessIds()) {
        if (id > 0 && !processEnded(id)) {
            ids.insert(id);
        }
    }
    for (const auto& launched : launchedOnThisDisplay()) {
        ids.insert(launched.first);
    }
    return ids;
}

StartedApplications::StartedApplications() : before_(applicationProcesses()) {}

StartedApplications::~StartedApplications() {
    endAll();
}

std::vector<pid_t> StartedApplications::endAll() {
    std::vector<pid_t> started;
    for (pid_t id : applicationProcesses()) {
        if (!before_.contains(id) && id != getpid()) {
            started.push_back(id);
        }
    }
    // Browsers and office suites run helper processes (renderers, a launcher's
    // child): they were started with the application and end with it.
    for (size_t i = 0; i < started.size(); ++i) {
        for (pid_t child : childrenOf(started[i])) {
            if (std::find(started.begin(), started.end(), child) == started.end() &&
                child != getpid()) {
                started.push_back(child);
            }
        }
    }
    for (pid_t id : started) {
        kill(id, SIGTERM);
    }
    for (pid_t id : started) {
        if (!waitUntil([&] { return processEnded(id); }, 5)) {
            kill(id, SIGKILL);
            waitUntil([&] { return processEnded(id); }, 5);
        }
    }
    return started;
}

}  // namespace velmora::e2e
