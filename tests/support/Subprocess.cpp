#include "tests/support/Subprocess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace velmora::testing {

namespace {

void closeQuietly(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

}  // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input,
                         const std::map<std::string, std::string>& environment,
                         double timeoutSeconds) {
    // A child that exits without reading its input must not kill us with SIGPIPE.
    ::signal(SIGPIPE, SIG_IGN);
    int inPipe[2], outPipe[2], errPipe[2];
    if (::pipe2(inPipe, O_CLOEXEC) != 0 || ::pipe2(outPipe, O_CLOEXEC) != 0 ||
        ::pipe2(errPipe, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe: ") + std::strerror(errno));
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, inPipe[0], 0);
    posix_spawn_file_actions_adddup2(&actions, outPipe[1], 1);
    posix_spawn_file_actions_adddup2(&actions, errPipe[1], 2);

    std::vector<std::string> argvText{program};
    argvText.insert(argvText.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& text : argvText) {
        argv.push_back(text.data());
    }
    argv.push_back(nullptr);

    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text(*entry);
        auto equals = text.find('=');
        if (equals != std::string::npos) {
            merged[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [key, value] : environment) {
        merged[key] = value;
    }
    std::vector<std::string> envText;
    for (const auto& [key, value] : merged) {
        envText.push_back(key + "=" + value);
    }
    std::vector<char*> envp;
    for (auto& text : envText) {
        envp.push_back(text.data());
    }
    envp.push_back(nullptr);

    pid_t pid = 0;
    int spawnError =
        posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    ::close(inPipe[0]);
    ::close(outPipe[1]);
    ::close(errPipe[1]);
    if (spawnError != 0) {
        ::close(inPipe[1]);
        ::close(outPipe[0]);
        ::close(errPipe[0]);
        throw std::runtime_error("spawn " + program + ": " + std::strerror(spawnError));
    }

    ProcessResult result;
    int inFd = inPipe[1];
    int outFd = outPipe[0];
    int errFd = errPipe[0];
    ::fcntl(inFd, F_SETFL, O_NONBLOCK);
    size_t written = 0;
    if (input.empty()) {
        closeQuietly(inFd);
    }
    auto deadline = std::chrono::steady_clock::now() +
                    std::chrono::milliseconds(static_cast<int64_t>(timeoutSeconds * 1000));
    char buffer[65536];
    while (outFd >= 0 || errFd >= 0) {
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                        deadline - std::chrono::steady_clock::now())
                        .count();
        if (left <= 0) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        pollfd fds[3] = {{outFd, POLLIN, 0}, {errFd, POLLIN, 0}, {inFd, POLLOUT, 0}};
        if (::poll(fds, 3, static_cast<int>(left)) < 0 && errno != EINTR) {
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && (fds[i].revents & (POLLIN | POLLHUP | POLLERR))) {
                ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
                if (n > 0) {
                    (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
                } else if (n == 0 || errno != EAGAIN) {
                    closeQuietly(i == 0 ? outFd : errFd);
                }
            }
        }
        if (inFd >= 0 && (fds[2].revents & (POLLOUT | POLLERR | POLLHUP))) {
            ssize_t n = ::write(inFd, input.data() + written, input.size() - written);
            if (n > 0) {
                written += static_cast<size_t>(n);
            }
            if (n < 0 && errno != EAGAIN) {
                closeQuietly(inFd);  // the child closed its input early
            }
            if (written == input.size()) {
                closeQuietly(inFd);
            }
        }
    }
    closeQuietly(inFd);
    closeQuietly(outFd);
    closeQuietly(errFd);

    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.exitStatus = 128 + WTERMSIG(status);
    }
    return result;
}

}  // namespace velmora::testing
