// velmora-bench-snapshot: how long the agent's query without selector takes per
// element, next to a baseline that reads the same attributes one synchronous
// libatspi call at a time, on velmora-fixture-tree at several sizes and on real
// applications; and where the time goes: the agent's own CPU time, the
// application's, the X server's, the accessibility bus daemon's (the agent's
// reader also measured over a direct connection to the application, which the
// agent does not open: the application would keep it), and what
// other processes of the machine took. Also per element: the whole `query`
// action as a process (velmora-agent run: process start, the query's walk and
// the structural state's), the structural state alone, and the requests each
// sends; and the total time of a request of six actions against a stopped
// application.
//
//   velmora-bench-snapshot [--sizes 300,1000,3000] [--apps org.xfce.mousepad,galculator,gtk3-demo]
//                          [--seconds S] [--readers agent,direct,baseline]
//                          [--page N]
//
// --page N adds Firefox ESR showing a generated local page of about N accessible
// objects (0: none; default 3000).
//
// It needs a desktop: run it through bench/snapshot/run, or as
// scripts/desktop BUILD/bench/snapshot/velmora-bench-snapshot. Each measurement
// repeats the query until it has taken at least S seconds (default 2) and at
// least 3 times, after one unmeasured query; the readers take turns. --readers
// picks which readers run (for profiling one alone). The exit status is 0 when
// the readers read the same elements everywhere, 1 when not, 69 without a
// desktop or when a target does not start.

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "agent/Modes.h"
#include "bench/snapshot/BaselineReader.h"
#include "core/model/Json.h"
#include "core/native/AXCGDriver.h"
#include "core/native/linux/LinuxPlatform.h"
#include "core/native/linux/atspi/DBusAtspiTransport.h"

extern char** environ;

namespace velmora::bench {
namespace {

using native::AXCGDriver;
using native::freedesktop::AtspiReads;
using native::freedesktop::DBusAtspiTransport;
using native::freedesktop::kAtspiCallCount;
using native::freedesktop::LinuxPlatform;

constexpr const char* kFixtureId = "velmora-fixture-tree";

double now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double ownCpu() {
    timespec spent{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
    return static_cast<double>(spent.tv_sec) + static_cast<double>(spent.tv_nsec) * 1e-9;
}

// A process's scheduling totals over all its threads, in seconds: time on a CPU,
// and time runnable but waiting for one (the machine being busy elsewhere).
struct Scheduling {
    double running = 0;
    double queued = 0;
};

Scheduling schedulingOf(int32_t processId) {
    Scheduling total;
    if (processId <= 0) {
        return total;
    }
    const std::string tasks = "/proc/" + std::to_string(processId) + "/task";
    if (DIR* directory = opendir(tasks.c_str())) {
        while (dirent* entry = readdir(directory)) {
            if (entry->d_name[0] == '.') {
                continue;
            }
            std::ifstream stat(tasks + "/" + entry->d_name + "/schedstat");
            double running = 0;
            double queued = 0;
            if (stat >> running >> queued) {
                total.running += running * 1e-9;
                total.queued += queued * 1e-9;
            }
        }
        closedir(directory);
    }
    return total;
}

std::string commandLine(int32_t processId) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/cmdline", std::ios::binary);
    std::string line((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::replace(line.begin(), line.end(), '\0', ' ');
    return line;
}

std::optional<std::string> variableOf(int32_t processId, const std::string& name) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/environ", std::ios::binary);
    std::string entry;
    while (std::getline(file, entry, '\0')) {
        if (entry.rfind(name + "=", 0) == 0) {
            return entry.substr(name.size() + 1);
        }
    }
    return std::nullopt;
}

int32_t parentOf(int32_t processId) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
    std::string stat;
    std::getline(file, stat);
    auto close = stat.rfind(')');
    if (close == std::string::npos) {
        return 0;
    }
    std::istringstream fields(stat.substr(close + 2));
    std::string state;
    int32_t parent = 0;
    fields >> state >> parent;
    return parent;
}

// The accessibility bus daemon of this desktop: the dbus-daemon whose parent is
// an at-spi-bus-launcher sharing our session bus. 0 when not found.
int32_t accessibilityBusDaemon() {
    const char* session = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    int32_t found = 0;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* entry = readdir(proc)) {
            const int32_t processId = std::atoi(entry->d_name);
            if (processId <= 0 || commandLine(processId).find("dbus-daemon") == std::string::npos) {
                continue;
            }
            const int32_t parent = parentOf(processId);
            if (commandLine(parent).find("at-spi-bus-launcher") == std::string::npos) {
                continue;
            }
            auto parentSession = variableOf(parent, "DBUS_SESSION_BUS_ADDRESS");
            if (session != nullptr && parentSession == session) {
                found = processId;
            }
        }
        closedir(proc);
    }
    return found;
}

// Totals over the measured repetitions of one query.
// The X server of this desktop: the Xvfb that scripts/desktop started next to
// this program (same parent). 0 when not found.
int32_t displayServer() {
    const int32_t parent = getppid();
    int32_t found = 0;
    if (DIR* proc = opendir("/proc")) {
        while (dirent* entry = readdir(proc)) {
            const int32_t processId = std::atoi(entry->d_name);
            if (processId > 0 && parentOf(processId) == parent &&
                commandLine(processId).rfind("Xvfb", 0) == 0) {
                found = processId;
            }
        }
        closedir(proc);
    }
    return found;
}

struct Sample {
    int repetitions = 0;
    size_t elements = 0;  // per query
    std::vector<double> walls;
    double ownCpu = 0;
    double applicationCpu = 0;
    double busCpu = 0;
    double displayCpu = 0;
    double ownQueued = 0;  // runnable, waiting for a CPU
    double applicationQueued = 0;
    // What the pipelined transport did (the baseline does not use it).
    uint64_t requests = 0;
    uint64_t writes = 0;
    uint64_t reads = 0;
    uint64_t blockingWaits = 0;
    double blockedSeconds = 0;
    std::array<uint64_t, kAtspiCallCount> byCall{};
    std::vector<ElementInfo> result;

    double perElement(double seconds) const {
        return elements == 0 || repetitions == 0
                   ? 0
                   : seconds * 1e6 / (static_cast<double>(elements) * repetitions);
    }
    // The median query's wall time per element, in microseconds.
    double medianMicroseconds() const {
        if (walls.empty() || elements == 0) {
            return 0;
        }
        std::vector<double> sorted = walls;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2] * 1e6 / static_cast<double>(elements);
    }
    double totalWall() const {
        double total = 0;
        for (double wall : walls) {
            total += wall;
        }
        return total;
    }
};

struct Helpers {
    int32_t bus = 0;
    int32_t display = 0;
};

using Query = std::function<std::vector<ElementInfo>()>;

// Runs one query and adds what it took to the sample.
void measureOnce(Sample& sample, const Query& query, int32_t application, Helpers helpers) {
    const auto transport0 = DBusAtspiTransport::processStatistics();
    const double cpu0 = ownCpu();
    const Scheduling own0 = schedulingOf(getpid());
    const Scheduling app0 = schedulingOf(application);
    const Scheduling bus0 = schedulingOf(helpers.bus);
    const Scheduling display0 = schedulingOf(helpers.display);
    const double start = now();
    auto result = query();
    sample.walls.push_back(now() - start);
    const Scheduling own1 = schedulingOf(getpid());
    const Scheduling app1 = schedulingOf(application);
    sample.ownCpu += ownCpu() - cpu0;
    sample.ownQueued += own1.queued - own0.queued;
    sample.applicationCpu += app1.running - app0.running;
    sample.applicationQueued += app1.queued - app0.queued;
    sample.busCpu += schedulingOf(helpers.bus).running - bus0.running;
    sample.displayCpu += schedulingOf(helpers.display).running - display0.running;
    const auto& transport = DBusAtspiTransport::processStatistics();
    sample.requests += transport.requests - transport0.requests;
    sample.writes += transport.writes - transport0.writes;
    sample.reads += transport.reads - transport0.reads;
    sample.blockingWaits += transport.blockingWaits - transport0.blockingWaits;
    sample.blockedSeconds += transport.waitingSeconds - transport0.waitingSeconds;
    for (size_t call = 0; call < sample.byCall.size(); ++call) {
        sample.byCall[call] += transport.byCall[call] - transport0.byCall[call];
    }
    ++sample.repetitions;
    sample.elements = std::min(sample.elements, result.size());
}

bool waitFor(const std::function<bool()>& condition, double seconds) {
    const double deadline = now() + seconds;
    while (!condition()) {
        if (now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

// A process this program started and ends, by its id.
class Started {
  public:
    explicit Started(int32_t processId) : processId_(processId) {}
    ~Started() {
        if (processId_ <= 0) {
            return;
        }
        kill(processId_, SIGTERM);
        bool ended = waitFor(
            [&] {
                int status = 0;
                pid_t done = waitpid(processId_, &status, WNOHANG);
                // Not our child (launched through the desktop): watch /proc instead.
                return done == processId_ || (done < 0 && kill(processId_, 0) != 0);
            },
            5);
        if (!ended) {
            kill(processId_, SIGKILL);
            waitpid(processId_, nullptr, 0);
        }
    }
    Started(const Started&) = delete;
    Started& operator=(const Started&) = delete;
    int32_t processId() const { return processId_; }

  private:
    int32_t processId_;
};

// Starts the fixture with `elements` elements and waits until it says it is ready.
int32_t startFixture(long elements) {
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) {
        return 0;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    const std::string count = std::to_string(elements);
    std::vector<char*> arguments = {const_cast<char*>(VELMORA_FIXTURE_TREE_PATH),
                                    const_cast<char*>("--elements"),
                                    const_cast<char*>(count.c_str()), nullptr};
    pid_t processId = 0;
    int spawned = posix_spawn(&processId, VELMORA_FIXTURE_TREE_PATH, &actions, nullptr,
                              arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (spawned != 0) {
        close(out[0]);
        return 0;
    }
    std::string said;
    const double deadline = now() + 60;
    while (said.find('\n') == std::string::npos && now() < deadline) {
        pollfd ready{out[0], POLLIN, 0};
        if (poll(&ready, 1, 200) > 0) {
            char buffer[64];
            ssize_t got = read(out[0], buffer, sizeof buffer);
            if (got <= 0) {
                break;
            }
            said.append(buffer, static_cast<size_t>(got));
        }
    }
    close(out[0]);
    if (said.rfind("ready ", 0) != 0) {
        std::fprintf(stderr, "velmora-bench-snapshot: the fixture did not get ready (%s)\n",
                     said.c_str());
        kill(processId, SIGKILL);
        waitpid(processId, nullptr, 0);
        return 0;
    }
    return processId;
}

// Whether the platform finds the application under `id` with a window on the
// accessibility desktop.
bool visible(LinuxPlatform& platform, const std::string& id, int32_t processId) {
    auto running = platform.runningApplications(id);
    if (std::none_of(running.begin(), running.end(),
                     [&](const auto& app) { return app.processId == processId; })) {
        return false;
    }
    auto read = platform.copyAttribute(platform.applicationElement(processId), "AXWindows");
    return read.code == native::kAXErrorSuccess && read.value && !read.value->elements.empty();
}

std::optional<Rect> firstWindowFrame(LinuxPlatform& platform, int32_t processId) {
    auto windows = platform.copyAttribute(platform.applicationElement(processId), "AXWindows");
    if (windows.code != native::kAXErrorSuccess || !windows.value ||
        windows.value->elements.empty()) {
        return std::nullopt;
    }
    const auto& window = windows.value->elements.front();
    auto position = platform.copyAttribute(window, "AXPosition");
    auto size = platform.copyAttribute(window, "AXSize");
    if (position.code != native::kAXErrorSuccess || size.code != native::kAXErrorSuccess ||
        !position.value || !size.value) {
        return std::nullopt;
    }
    return Rect{position.value->boxed.point.x, position.value->boxed.point.y,
                size.value->boxed.size.width, size.value->boxed.size.height};
}

// Waits until the window manager has placed the first window: its frame stays put.
bool settled(LinuxPlatform& platform, int32_t processId) {
    std::optional<Rect> last;
    int unchanged = 0;
    return waitFor(
        [&] {
            auto frame = firstWindowFrame(platform, processId);
            unchanged = frame && frame == last ? unchanged + 1 : 0;
            last = frame;
            return unchanged >= 6;
        },
        15);
}

// Runs `velmora-agent run` with `request` on its standard input; its standard
// output, or none when it could not be run.
std::optional<std::string> runAgentProcess(const std::string& request) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    if (pipe2(out, O_CLOEXEC) != 0) {
        close(in[0]);
        close(in[1]);
        return std::nullopt;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    std::vector<char*> arguments = {const_cast<char*>(VELMORA_AGENT_PATH), const_cast<char*>("run"),
                                    nullptr};
    pid_t processId = 0;
    const int spawned =
        posix_spawn(&processId, VELMORA_AGENT_PATH, &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    if (spawned != 0) {
        close(in[1]);
        close(out[0]);
        return std::nullopt;
    }
    size_t written = 0;
    while (written < request.size()) {
        const ssize_t sent = write(in[1], request.data() + written, request.size() - written);
        if (sent <= 0) {
            break;
        }
        written += static_cast<size_t>(sent);
    }
    close(in[1]);
    std::string output;
    char buffer[65536];
    ssize_t got = 0;
    while ((got = read(out[0], buffer, sizeof buffer)) > 0) {
        output.append(buffer, static_cast<size_t>(got));
    }
    close(out[0]);
    waitpid(processId, nullptr, 0);
    return output;
}

std::string requestFor(const std::string& id, const velmora::Json& actions) {
    return velmora::Json{{"protocolVersion", "velmora.driver_broker.v1"},
                         {"sessionId", "bench"},
                         {"seatLease", "bench-lease"},
                         {"targetBundleId", id},
                         {"actions", actions},
                         {"screenshotDir", "/tmp"}}
        .dump();
}

// The `query` action as a broker has it run: a process of its own, its query
// and the structural state after it. As many placeholder elements as the query
// found, for the per-element figures.
std::vector<ElementInfo> queryAsProcess(const std::string& id) {
    auto output = runAgentProcess(requestFor(id, velmora::Json::array({{{"kind", "query"}}})));
    if (!output) {
        return {};
    }
    try {
        const auto response = velmora::Json::parse(*output);
        return std::vector<ElementInfo>(response.at("receipts").at(0).at("queryResult").size());
    } catch (const std::exception&) {
        return {};
    }
}

struct Row {
    std::string target;
    Sample agent;
    Sample baseline;
    Sample direct;
    Sample process;              // velmora-agent run with one query action, start to exit
    Sample structure;            // the structural state alone
    std::vector<double> ratios;  // baseline over agent, per round
    bool equal = false;
    double lookupMilliseconds = 0;  // finding the application, per query
    double lookupCpuMilliseconds = 0;

    double medianRatio() const {
        if (ratios.empty()) {
            return 0;
        }
        std::vector<double> sorted = ratios;
        std::sort(sorted.begin(), sorted.end());
        return sorted[sorted.size() / 2];
    }
};

std::string describe(const ElementInfo& info) {
    std::string text =
        info.role + " title=" + info.title.value_or("-") + " id=" + info.identifier.value_or("-") +
        " valuePresent=" + (info.valuePresent ? "1" : "0") + " value=" + info.value.value_or("-");
    if (info.frame) {
        text += " frame=" + std::to_string(info.frame->x) + "," + std::to_string(info.frame->y) +
                "," + std::to_string(info.frame->width) + "," + std::to_string(info.frame->height);
    }
    return text;
}

struct Readers {
    bool agent = true;
    bool baseline = true;
    bool direct = true;  // the agent's reader over a direct connection
};

// Measures the agent's query and the baseline's in alternation, so that both meet
// the same load of the machine: one of each per round, for at least three rounds
// and `seconds` in all.
Row benchmark(const std::string& target, const std::string& id, int32_t processId, Helpers helpers,
              double seconds, Readers readers) {
    LinuxPlatform platform(AtspiReads::pipelined);
    AXCGDriver driver(platform, kNodeBudget, kFocusTimeoutSeconds);
    LinuxPlatform directPlatform(AtspiReads::pipelinedDirect);
    AXCGDriver directDriver(directPlatform, kNodeBudget, kFocusTimeoutSeconds);
    const Query agent = [&] { return driver.query(id, std::nullopt, true); };
    const Query agentDirect = [&] { return directDriver.query(id, std::nullopt, true); };
    const Query baseline = [&] { return baselineQuery(processId, kNodeBudget); };
    const Query process = [&] { return queryAsProcess(id); };
    const Query structure = [&] {
        return std::vector<ElementInfo>(
            static_cast<size_t>(driver.structuralState(id).elementCount));
    };

    Row row;
    row.target = target;
    // Unmeasured: the first reads create the toolkit's accessible objects.
    if (readers.agent) {
        row.agent.result = agent();
        row.agent.elements = row.agent.result.size();
    }
    if (readers.baseline) {
        row.baseline.result = baseline();
        row.baseline.elements = row.baseline.result.size();
    }
    if (readers.direct) {
        row.direct.result = agentDirect();
        row.direct.elements = row.direct.result.size();
    }
    if (readers.agent) {
        row.process.elements = process().size();
        row.structure.elements = structure().size();
    }
    // What every query pays before reading any element: finding the application's
    // process and its element on the accessibility desktop.
    if (readers.agent) {
        const double lookupStart = now();
        const double lookupCpu = ownCpu();
        for (int i = 0; i < 5; ++i) {
            platform.runningApplications(id);
            platform.applicationElement(processId);
        }
        row.lookupMilliseconds = (now() - lookupStart) * 1e3 / 5;
        row.lookupCpuMilliseconds = (ownCpu() - lookupCpu) * 1e3 / 5;
    }
    const double started = now();
    for (int round = 0; round < 100 && (round < 3 || now() - started < seconds); ++round) {
        if (readers.agent) {
            measureOnce(row.agent, agent, processId, helpers);
        }
        if (readers.baseline) {
            measureOnce(row.baseline, baseline, processId, helpers);
        }
        if (readers.direct) {
            measureOnce(row.direct, agentDirect, processId, helpers);
        }
        if (readers.agent) {
            measureOnce(row.process, process, processId, helpers);
            measureOnce(row.structure, structure, processId, helpers);
        }
        if (readers.agent && readers.baseline) {
            row.ratios.push_back(row.baseline.walls.back() / row.agent.walls.back());
        }
    }

    row.equal = row.agent.result == row.baseline.result &&
                (!readers.direct || row.direct.result == row.baseline.result);
    // Where a reader's walk first departs from the baseline's, with the elements
    // around it: an element in the one walk and not in the other shifts the rest.
    auto showDifference = [&](const char* reader, const std::vector<ElementInfo>& a) {
        const auto& b = row.baseline.result;
        if (a == b) {
            return;
        }
        size_t i = 0;
        while (i < a.size() && i < b.size() && a[i] == b[i]) {
            ++i;
        }
        std::fprintf(stderr, "%s: %s and the baseline differ first at element %zu of %zu/%zu:\n",
                     target.c_str(), reader, i, a.size(), b.size());
        for (size_t at = i < 3 ? 0 : i - 3; at < i + 4; ++at) {
            std::fprintf(stderr, "  %5zu %-9s%s\n        baseline %s\n", at, reader,
                         at < a.size() ? describe(a[at]).c_str() : "(none)",
                         at < b.size() ? describe(b[at]).c_str() : "(none)");
        }
    };
    if (readers.baseline && readers.agent) {
        showDifference("agent", row.agent.result);
    }
    if (readers.baseline && readers.direct) {
        showDifference("direct", row.direct.result);
    }
    return row;
}

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    std::string part;
    while (std::getline(stream, part, ',')) {
        if (!part.empty()) {
            parts.push_back(part);
        }
    }
    return parts;
}

const char* readerName(const Row& row, const Sample* sample) {
    return sample == &row.agent       ? "agent"
           : sample == &row.direct    ? "direct"
           : sample == &row.process   ? "process"
           : sample == &row.structure ? "structure"
                                      : "baseline";
}

double ratioOf(double numerator, double denominator) {
    return denominator > 0 ? numerator / denominator : 0;
}

void printRows(const std::vector<Row>& rows) {
    std::printf(
        "\nMicroseconds per element, median query. agent: the agent's query as it runs\n"
        "(pipelined, over the accessibility bus); direct: the same over a direct\n"
        "connection to the application; baseline: one synchronous libatspi call per\n"
        "read. The ratio is the median over rounds of the baseline's query time over the\n"
        "agent's, the two measured one after the other.\n\n");
    std::printf("%-36s %8s %11s %9s %14s %7s  %s\n", "target", "elements", "agent us/el", "direct",
                "baseline us/el", "ratio", "same elements");
    for (const auto& row : rows) {
        const bool compared = row.agent.repetitions > 0 && row.baseline.repetitions > 0;
        std::printf("%-36s %8zu %11.1f %9.1f %14.1f %6.1fx  %s\n", row.target.c_str(),
                    row.agent.elements, row.agent.medianMicroseconds(),
                    row.direct.medianMicroseconds(), row.baseline.medianMicroseconds(),
                    row.medianRatio(),
                    !compared   ? "-"
                    : row.equal ? "yes"
                                : "NO");
    }

    std::printf(
        "\nThe whole `query` action as a broker runs it: velmora-agent run, one process\n"
        "per request (start, the query's walk, the structural state's walk, the\n"
        "response), in microseconds per element, next to the baseline's walk alone;\n"
        "and the structural state alone, and as a share of the agent's query.\n\n");
    std::printf("%-36s %8s %13s %14s %7s %15s %8s\n", "target", "elements", "process us/el",
                "baseline us/el", "ratio", "structure us/el", "of query");
    for (const auto& row : rows) {
        const double process = row.process.medianMicroseconds();
        const double structure = row.structure.medianMicroseconds();
        std::printf("%-36s %8zu %13.1f %14.1f %6.1fx %15.1f %7.0f%%\n", row.target.c_str(),
                    row.process.elements, process, row.baseline.medianMicroseconds(),
                    ratioOf(row.baseline.medianMicroseconds(), process), structure,
                    100 * ratioOf(structure, row.agent.medianMicroseconds()));
    }

    std::printf(
        "\nOf each agent query, finding the application (its process by identifier, its\n"
        "element on the accessibility desktop) before any element is read:\n\n");
    for (const auto& row : rows) {
        std::printf("%-36s %6.1f ms (%.1f ms CPU)\n", row.target.c_str(), row.lookupMilliseconds,
                    row.lookupCpuMilliseconds);
    }

    std::printf(
        "\nWhere the time goes, microseconds per element over all rounds. wall: elapsed;\n"
        "agent: this process on a CPU (walk, reads, marshalling, system calls);\n"
        "application: the target answering; X: the X server; bus: the accessibility bus\n"
        "daemon routing; queued: runnable but waiting for a CPU held by other processes\n"
        "of the machine (this process/the application).\n\n");
    std::printf("%-36s %-8s %5s %8s %8s %11s %6s %6s %14s\n", "target", "reader", "runs", "wall",
                "agent", "application", "X", "bus", "queued a/app");
    for (const auto& row : rows) {
        for (const auto* sample : {&row.agent, &row.direct, &row.structure, &row.baseline}) {
            if (sample->repetitions == 0) {
                continue;
            }
            std::printf("%-36s %-8s %5d %8.1f %8.1f %11.1f %6.1f %6.1f %6.1f/%-7.1f\n",
                        row.target.c_str(), readerName(row, sample), sample->repetitions,
                        sample->perElement(sample->totalWall()), sample->perElement(sample->ownCpu),
                        sample->perElement(sample->applicationCpu),
                        sample->perElement(sample->displayCpu), sample->perElement(sample->busCpu),
                        sample->perElement(sample->ownQueued),
                        sample->perElement(sample->applicationQueued));
        }
    }

    std::printf(
        "\nThe pipelined reader's traffic per element: method calls sent, socket writes\n"
        "and reads, times it blocked for answers, and microseconds blocked.\n\n");
    std::printf("%-36s %-8s %9s %8s %8s %8s %11s\n", "target", "reader", "requests", "writes",
                "reads", "blocks", "blocked us");
    for (const auto& row : rows) {
        for (const auto* sample : {&row.agent, &row.direct, &row.structure}) {
            const double count = static_cast<double>(sample->elements) * sample->repetitions;
            if (count == 0) {
                continue;
            }
            std::printf("%-36s %-8s %9.2f %8.2f %8.2f %8.3f %11.1f\n", row.target.c_str(),
                        readerName(row, sample), static_cast<double>(sample->requests) / count,
                        static_cast<double>(sample->writes) / count,
                        static_cast<double>(sample->reads) / count,
                        static_cast<double>(sample->blockingWaits) / count,
                        sample->perElement(sample->blockedSeconds));
        }
    }

    static const std::array<const char*, kAtspiCallCount> kCallNames = {
        "role",   "name",    "id",    "props", "ifaces", "states", "children", "count",
        "child@", "extents", "value", "chars", "text",   "cache",  "toolkit",  "pid"};
    std::printf("\nThe same requests per element by kind.\n\n%-36s %-9s", "target", "reader");
    for (const char* name : kCallNames) {
        std::printf(" %7s", name);
    }
    std::printf("\n");
    for (const auto& row : rows) {
        for (const auto* sample : {&row.agent, &row.structure}) {
            const double count = static_cast<double>(sample->elements) * sample->repetitions;
            if (count == 0) {
                continue;
            }
            std::printf("%-36s %-9s", row.target.c_str(), readerName(row, sample));
            for (uint64_t requests : sample->byCall) {
                std::printf(" %7.3f", static_cast<double>(requests) / count);
            }
            std::printf("\n");
        }
    }
}

// A page of about `objects` accessible objects: rows of a paragraph with its
// text, a link, a button and a text input (about eight objects each).
std::string writePage(const std::string& directory, long objects) {
    const std::string path = directory + "/velmora-bench-page.html";
    std::ofstream page(path);
    page << "<!DOCTYPE html><html><head><meta charset=\"utf-8\"><title>Velmora bench page"
            "</title></head><body><h1>Velmora bench page</h1>\n";
    for (long row = 0; row < objects / 8; ++row) {
        page << "<p>Row " << row << " <a href=\"#r" << row << "\">link " << row
             << "</a> <button>Button " << row << "</button> <input value=\"entry " << row
             << "\"></p>\n";
    }
    page << "</body></html>\n";
    return path;
}

// Starts a process with these arguments, its standard streams sent to /dev/null.
int32_t startQuietly(const std::vector<std::string>& command) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> arguments;
    for (const auto& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str()));
    }
    arguments.push_back(nullptr);
    pid_t processId = 0;
    const int spawned =
        posix_spawn(&processId, arguments[0], &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? processId : 0;
}

}  // namespace
}  // namespace velmora::bench

int main(int argc, char** argv) {
    using namespace velmora::bench;
    std::vector<std::string> sizes = {"300", "1000", "3000"};
    std::vector<std::string> apps = {"org.xfce.mousepad", "galculator", "gtk3-demo"};
    double seconds = 2;
    long pageObjects = 3000;
    Readers readers;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--sizes" && i + 1 < argc) {
            sizes = split(argv[++i]);
        } else if (option == "--apps" && i + 1 < argc) {
            apps = split(argv[++i]);
        } else if (option == "--page" && i + 1 < argc) {
            pageObjects = std::atol(argv[++i]);
        } else if (option == "--seconds" && i + 1 < argc) {
            seconds = std::atof(argv[++i]);
        } else if (option == "--readers" && i + 1 < argc) {
            auto names = split(argv[++i]);
            readers.agent = std::find(names.begin(), names.end(), "agent") != names.end();
            readers.baseline = std::find(names.begin(), names.end(), "baseline") != names.end();
            readers.direct = std::find(names.begin(), names.end(), "direct") != names.end();
        } else {
            std::fprintf(stderr,
                         "usage: velmora-bench-snapshot [--sizes 300,1000,3000] "
                         "[--apps org.xfce.mousepad,galculator,gtk3-demo] [--seconds S] "
                         "[--readers agent,direct,baseline] [--page N]\n");
            return 64;
        }
    }
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || *display == '\0') {
        std::fprintf(stderr,
                     "velmora-bench-snapshot needs a desktop: run bench/snapshot/run, or "
                     "scripts/desktop %s\n",
                     argv[0]);
        return 69;
    }

    Helpers helpers;
    helpers.bus = accessibilityBusDaemon();
    helpers.display = displayServer();
    const int32_t bus = helpers.bus;
    std::printf(
        "Query without selector, node budget %lld. Agent: the pipelined reader (%s);\n"
        "baseline: one synchronous libatspi call per read. Accessibility bus daemon: %s.\n",
        static_cast<long long>(velmora::kNodeBudget), "AXCGDriver over LinuxPlatform",
        bus > 0 ? ("pid " + std::to_string(bus)).c_str() : "not found");

    std::vector<Row> rows;
    LinuxPlatform platform(AtspiReads::pipelined);
    for (const auto& size : sizes) {
        Started fixture(startFixture(std::atol(size.c_str())));
        if (fixture.processId() == 0 ||
            !waitFor([&] { return visible(platform, kFixtureId, fixture.processId()); }, 30) ||
            !settled(platform, fixture.processId())) {
            std::fprintf(stderr,
                         "velmora-bench-snapshot: the fixture of %s elements did not show\n",
                         size.c_str());
            return 69;
        }
        std::printf("measuring %s %s ...\n", kFixtureId, size.c_str());
        std::fflush(stdout);
        rows.push_back(benchmark(std::string(kFixtureId) + " --elements " + size, kFixtureId,
                                 fixture.processId(), helpers, seconds, readers));
    }
    for (const auto& app : apps) {
        auto location = platform.applicationLocation(app);
        if (!location) {
            std::fprintf(stderr, "velmora-bench-snapshot: %s is not installed\n", app.c_str());
            return 69;
        }
        platform.openApplication(*location, true, [](std::optional<std::string>) {});
        int32_t processId = 0;
        waitFor(
            [&] {
                auto running = platform.runningApplications(app);
                processId = running.empty() ? 0 : running.front().processId;
                return processId != 0;
            },
            15);
        Started launched(processId);
        if (processId == 0 || !waitFor([&] { return visible(platform, app, processId); }, 20) ||
            !settled(platform, processId)) {
            std::fprintf(stderr, "velmora-bench-snapshot: %s did not show a window\n", app.c_str());
            return 69;
        }
        std::printf("measuring %s ...\n", app.c_str());
        std::fflush(stdout);
        rows.push_back(benchmark(app, app, processId, helpers, seconds, readers));
    }
    if (pageObjects > 0) {
        const char* scratch = std::getenv("VELMORA_DESKTOP_DIR");
        const std::string directory = scratch != nullptr ? scratch : "/tmp";
        const std::string page = writePage(directory, pageObjects);
        const std::string profile = directory + "/velmora-bench-firefox";
        mkdir(profile.c_str(), 0700);
        {
            // What the end-to-end tests' Firefox profile says: no first-run pages,
            // no default-browser question, nothing fetched from the network, no
            // new-tab page made ahead. A fresh profile otherwise opens a second tab
            // (the privacy notice), and a while after its start Firefox adds a
            // hidden new-tab document to the window: either way the tree changes
            // between the readers' walks.
            std::ofstream prefs(profile + "/user.js");
            prefs << "user_pref(\"browser.shell.checkDefaultBrowser\", false);\n"
                     "user_pref(\"browser.aboutwelcome.enabled\", false);\n"
                     "user_pref(\"browser.startup.homepage_override.mstone\", \"ignore\");\n"
                     "user_pref(\"datareporting.policy.dataSubmissionEnabled\", false);\n"
                     "user_pref(\"toolkit.telemetry.reportingpolicy.firstRun\", false);\n"
                     "user_pref(\"app.update.auto\", false);\n"
                     "user_pref(\"network.captive-portal-service.enabled\", false);\n"
                     "user_pref(\"network.connectivity-service.enabled\", false);\n"
                     "user_pref(\"browser.safebrowsing.update.enabled\", false);\n"
                     "user_pref(\"extensions.update.enabled\", false);\n"
                     "user_pref(\"browser.newtab.preload\", false);\n";
        }
        Started firefox(startQuietly(
            {"/usr/bin/firefox-esr", "--no-remote", "--profile", profile, "file://" + page}));
        const std::string id = "firefox-esr";
        int32_t processId = 0;
        // Its page is in the tree once the query finds the last row's input.
        LinuxPlatform probe(AtspiReads::pipelined);
        AXCGDriver driver(probe, velmora::kNodeBudget, velmora::kFocusTimeoutSeconds);
        const bool shown =
            firefox.processId() > 0 &&
            waitFor(
                [&] {
                    auto running = platform.runningApplications(id);
                    processId = running.empty() ? 0 : running.front().processId;
                    return processId != 0 && driver.query(id, std::nullopt, false).size() >= 500;
                },
                60);
        // Measured once the page has stopped changing: while it still loads, the
        // toolbar shows Stop where it later shows Reload, and readers taking
        // turns would each read another tree.
        std::vector<velmora::ElementInfo> previous;
        const bool stable = shown && waitFor(
                                         [&] {
                                             auto current = driver.query(id, std::nullopt, true);
                                             const bool same = current == previous;
                                             previous = std::move(current);
                                             return same;
                                         },
                                         30);
        if (!shown) {
            std::fprintf(stderr, "velmora-bench-snapshot: firefox-esr did not show the page\n");
        } else if (!stable) {
            std::fprintf(stderr, "velmora-bench-snapshot: firefox-esr's page kept changing\n");
        } else {
            std::printf("measuring %s page ...\n", id.c_str());
            std::fflush(stdout);
            rows.push_back(benchmark(id + " page of " + std::to_string(pageObjects) + " objects",
                                     id, processId, helpers, seconds, readers));
        }
    }

    // A request of six actions against a stopped application: the first
    // unanswered read costs the time-out, every later walk a short probe.
    double hungSeconds = -1;
    size_t hungReceipts = 0;
    {
        Started fixture(startFixture(300));
        if (fixture.processId() != 0 &&
            waitFor([&] { return visible(platform, kFixtureId, fixture.processId()); }, 30) &&
            settled(platform, fixture.processId())) {
            kill(fixture.processId(), SIGSTOP);
            const double start = now();
            auto output = runAgentProcess(requestFor(kFixtureId, velmora::Json::parse(R"([
                {"kind": "query"},
                {"kind": "click", "selector": {"role": "AXButton", "title": "Button 1"}},
                {"kind": "assert", "selector": {"role": "AXButton"}, "expect": {"exists": true}},
                {"kind": "typeText", "text": "x"},
                {"kind": "screenshot"},
                {"kind": "frontmost"}
            ])")));
            hungSeconds = now() - start;
            kill(fixture.processId(), SIGCONT);
            try {
                hungReceipts = output ? velmora::Json::parse(*output).at("receipts").size() : 0;
            } catch (const std::exception&) {
                hungReceipts = 0;
            }
        }
    }

    printRows(rows);
    std::printf(
        "\nA request of six actions (query, click by selector, a failing assert,\n"
        "typeText, screenshot, frontmost) against %s stopped with SIGSTOP,\n"
        "velmora-agent run from start to exit: %.2f s, %zu receipts.\n",
        kFixtureId, hungSeconds, hungReceipts);
    return std::all_of(rows.begin(), rows.end(), [](const Row& row) { return row.equal; }) ? 0 : 1;
}
