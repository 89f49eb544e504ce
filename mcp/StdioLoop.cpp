#include "mcp/StdioLoop.h"

#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "mcp/JsonRpc.h"

namespace velmora::mcp {

namespace {

std::mutex outputLock;
bool clientGone = false;

}  // namespace

bool writeMessage(const Json& message) {
    std::string text = frame(message);
    std::lock_guard<std::mutex> guard(outputLock);
    size_t done = 0;
    while (!clientGone && done < text.size()) {
        ssize_t n = ::write(STDOUT_FILENO, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            clientGone = true;
            break;
        }
        done += static_cast<size_t>(n);
    }
    return !clientGone;
}

int serveStdio(Server& server, int inputFd) {
    std::mutex lock;
    std::condition_variable wake;
    bool inputEnded = false;
    size_t received = 0;  // lines handed to the server, so the worker wakes for each

    std::thread worker([&] {
        size_t seen = 0;
        while (true) {
            {
                std::unique_lock<std::mutex> guard(lock);
                wake.wait(guard, [&] { return received != seen || inputEnded; });
                seen = received;
            }
            while (server.runNextCall()) {
            }
            std::lock_guard<std::mutex> guard(lock);
            if (inputEnded && received == seen && !server.hasQueuedCalls()) {
                return;
            }
        }
    });

    auto deliver = [&](std::string_view line) {
        if (!line.empty() && line.back() == '\r') {
            line.remove_suffix(1);
        }
        if (line.find_first_not_of(" \t") == std::string_view::npos) {
            return;  // blank lines carry nothing
        }
        server.receive(line);
        std::lock_guard<std::mutex> guard(lock);
        ++received;
        wake.notify_one();
    };

    std::string pending;
    bool skipping = false;  // inside a line that was too long
    char buffer[65536];
    while (true) {
        ssize_t n = ::read(inputFd, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        size_t start = 0;
        for (size_t i = 0; i < static_cast<size_t>(n); ++i) {
            if (buffer[i] != '\n') {
                continue;
            }
            if (!skipping) {
                pending.append(buffer + start, i - start);
                deliver(pending);
            }
            pending.clear();
            skipping = false;
            start = i + 1;
        }
        if (!skipping) {
            pending.append(buffer + start, static_cast<size_t>(n) - start);
            if (pending.size() > kMaxLineBytes) {
                writeMessage(errorMessage(nullptr, rpc::kParseError,
                                          "Parse error: message longer than " +
                                              std::to_string(kMaxLineBytes) + " bytes"));
                pending.clear();
                pending.shrink_to_fit();
                skipping = true;
            }
        }
    }
    if (!skipping && !pending.empty()) {
        deliver(pending);  // a last message without its newline still counts
    }
    {
        std::lock_guard<std::mutex> guard(lock);
        inputEnded = true;
        wake.notify_one();
    }
    worker.join();
    return 0;
}

}  // namespace velmora::mcp
