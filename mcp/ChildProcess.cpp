#include "mcp/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace velmora::mcp {

namespace {

using std::chrono::milliseconds;

// While the child's output is closed but the process has not been reaped yet:
// the moment between its last write and its exit.
constexpr milliseconds kReapStep{5};

milliseconds ceilMilliseconds(SteadyTime::duration duration) {
    return std::chrono::ceil<milliseconds>(duration);
}

void closeFd(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

}  // namespace

ChildProcessRunner::ChildProcessRunner(std::string program, ProcessSystem& system,
                                       SteadyClock& clock, milliseconds killGrace)
    : program_(std::move(program)), system_(system), clock_(clock), killGrace_(killGrace) {}

AgentOutcome ChildProcessRunner::run(const std::string& requestText, milliseconds timeLimit,
                                     const Cancellation& cancellation) {
    const SteadyTime deadline = clock_.now() + timeLimit;
    ChildIo child;
    try {
        child = system_.spawn(program_, {"run"});
    } catch (const std::exception& error) {
        AgentOutcome outcome;
        outcome.ending = AgentOutcome::Ending::notStarted;
        outcome.detail = error.what();
        return outcome;
    }
    child.input = requestText;
    child.outLimit = kOutLimit;
    child.errLimit = kErrLimit;
    while (true) {
        if (cancellation.requested()) {
            return end(child, AgentOutcome::Ending::cancelled);
        }
        if (child.outOverflow) {
            return end(child, AgentOutcome::Ending::tooMuchOutput);
        }
        SteadyTime now = clock_.now();
        if (now >= deadline) {
            return end(child, AgentOutcome::Ending::timedOut);
        }
        milliseconds left = ceilMilliseconds(deadline - now);
        if (child.out < 0 && child.err < 0) {
            if (auto status = system_.reap(child.processId)) {
                return finish(child, *status);
            }
            system_.exchange(child, std::min(left, kReapStep), cancellation.wakeFd());
        } else {
            system_.exchange(child, left, cancellation.wakeFd());
        }
    }
}

AgentOutcome ChildProcessRunner::end(ChildIo& child, AgentOutcome::Ending why) {
    system_.signal(child.processId, SIGTERM);
    const SteadyTime graceEnd = clock_.now() + killGrace_;
    bool killed = false;
    while (true) {
        if (auto status = system_.reap(child.processId)) {
            AgentOutcome outcome = finish(child, *status);
            outcome.ending = why;
            return outcome;
        }
        SteadyTime now = clock_.now();
        if (!killed && now >= graceEnd) {
            system_.signal(child.processId, SIGKILL);
            killed = true;
        }
        milliseconds wait = kReapStep;
        if (!killed && (child.out >= 0 || child.err >= 0)) {
            // Its pipes close when it dies: wait for that, up to the grace's end.
            wait = ceilMilliseconds(graceEnd - now);
        }
        system_.exchange(child, wait, -1);
    }
}

AgentOutcome ChildProcessRunner::finish(ChildIo& child, int waitStatus) {
    system_.closeAll(child);
    AgentOutcome outcome;
    outcome.processId = child.processId;
    outcome.out = std::move(child.outText);
    outcome.err = std::move(child.errText);
    if (WIFSIGNALED(waitStatus)) {
        outcome.ending = AgentOutcome::Ending::signalled;
        outcome.signal = WTERMSIG(waitStatus);
    } else {
        outcome.ending = AgentOutcome::Ending::exited;
        outcome.exitStatus = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
    }
    return outcome;
}

ChildIo PosixProcessSystem::spawn(const std::string& program,
                                  const std::vector<std::string>& arguments) {
    int in[2], out[2], err[2];
    int* pipes[] = {in, out, err};
    int made = 0;
    for (; made < 3; ++made) {
        if (::pipe(pipes[made]) != 0) {
            break;
        }
        for (int fd : {pipes[made][0], pipes[made][1]}) {
            ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
    }
    if (made < 3) {
        int saved = errno;
        for (int i = 0; i < made; ++i) {
            ::close(pipes[i][0]);
            ::close(pipes[i][1]);
        }
        throw std::runtime_error(std::string("pipe: ") + std::strerror(saved));
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
    // We ignore SIGPIPE; the agent should get the default.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> argvText{program};
    argvText.insert(argvText.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& text : argvText) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);

    pid_t processId = 0;
    int failure =
        program.find('/') == std::string::npos
            ? posix_spawnp(&processId, program.c_str(), &actions, &attributes, argv.data(), environ)
            : posix_spawn(&processId, program.c_str(), &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    ::close(in[0]);
    ::close(out[1]);
    ::close(err[1]);
    if (failure != 0) {
        ::close(in[1]);
        ::close(out[0]);
        ::close(err[0]);
        throw std::runtime_error(program + ": " + std::strerror(failure));
    }
    ChildIo child;
    child.processId = processId;
    child.in = in[1];
    child.out = out[0];
    child.err = err[0];
    for (int fd : {child.in, child.out, child.err}) {
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
    return child;
}

void PosixProcessSystem::exchange(ChildIo& child, milliseconds limit, int wakeFd) {
    if (child.in >= 0 && child.written >= child.input.size()) {
        closeFd(child.in);
    }
    pollfd fds[4];
    nfds_t count = 0;
    auto add = [&](int fd, short events) {
        if (fd >= 0) {
            fds[count++] = pollfd{fd, events, 0};
        }
    };
    add(child.in, POLLOUT);
    add(child.out, POLLIN);
    add(child.err, POLLIN);
    add(wakeFd, POLLIN);
    long long waitMs = std::max<long long>(0, limit.count());
    int ready = ::poll(fds, count, static_cast<int>(std::min<long long>(waitMs, 1 << 30)));
    if (ready <= 0) {
        return;
    }
    for (nfds_t i = 0; i < count; ++i) {
        if (fds[i].revents == 0) {
            continue;
        }
        int fd = fds[i].fd;
        if (fd == child.in) {
            ssize_t n = ::write(fd, child.input.data() + child.written,
                                std::min<size_t>(child.input.size() - child.written, 1 << 16));
            if (n > 0) {
                child.written += static_cast<size_t>(n);
            }
            if ((n < 0 && errno != EAGAIN && errno != EINTR) ||
                child.written >= child.input.size()) {
                // Written, or the child stopped reading: it sees the end of its input.
                closeFd(child.in);
            }
        } else if (fd == child.out || fd == child.err) {
            bool isOut = fd == child.out;
            std::string& text = isOut ? child.outText : child.errText;
            size_t limit = isOut ? child.outLimit : child.errLimit;
            char buffer[65536];
            while (true) {
                ssize_t n = ::read(fd, buffer, sizeof buffer);
                if (n > 0) {
                    size_t room = limit > text.size() ? limit - text.size() : 0;
                    text.append(buffer, std::min<size_t>(room, static_cast<size_t>(n)));
                    if (isOut && static_cast<size_t>(n) > room) {
                        child.outOverflow = true;
                    }
                    continue;
                }
                if (n < 0 && (errno == EAGAIN || errno == EINTR)) {
                    break;
                }
                closeFd(isOut ? child.out : child.err);
                break;
            }
        }
    }
}

std::optional<int> PosixProcessSystem::reap(pid_t processId) {
    int status = 0;
    pid_t done = ::waitpid(processId, &status, WNOHANG);
    if (done == processId) {
        return status;
    }
    if (done < 0 && errno == ECHILD) {
        // Already reaped elsewhere: it has certainly ended, how is unknown.
        return 255 << 8;
    }
    return std::nullopt;
}

void PosixProcessSystem::signal(pid_t processId, int signalNumber) {
    if (processId > 0) {
        ::kill(processId, signalNumber);
    }
}

void PosixProcessSystem::closeAll(ChildIo& child) {
    closeFd(child.in);
    closeFd(child.out);
    closeFd(child.err);
}

}  // namespace velmora::mcp
