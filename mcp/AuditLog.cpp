#include "mcp/AuditLog.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/native/Sha256.h"
#include "core/routing/Iso8601.h"

namespace velmora::mcp {

const std::string kFirstPrev(64, '0');

namespace {

std::string sha256Of(const std::string& text) {
    return native::sha256Hex(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

// Closes the file (and so drops its lock) however the append ends.
struct OpenFile {
    int fd = -1;
    ~OpenFile() {
        if (fd >= 0) {
            ::close(fd);
        }
    }
};

std::string systemError(const std::string& path, const char* step) {
    return "audit log " + path + ": " + step + ": " + std::strerror(errno);
}

// The last line of a file of `size` bytes that ends in a newline, without it.
std::string lastLine(int fd, off_t size, const std::string& path) {
    std::string tail;
    off_t end = size - 1;  // the final newline
    constexpr off_t kChunk = 1 << 16;
    off_t start = end;
    while (start > 0) {
        off_t from = std::max<off_t>(0, start - kChunk);
        std::string chunk(static_cast<size_t>(start - from), '\0');
        if (::pread(fd, chunk.data(), chunk.size(), from) != static_cast<ssize_t>(chunk.size())) {
            throw AuditError(systemError(path, "read"));
        }
        auto newline = chunk.rfind('\n');
        if (newline != std::string::npos) {
            tail.insert(0, chunk.substr(newline + 1));
            return tail;
        }
        tail.insert(0, chunk);
        start = from;
    }
    return tail;
}

}  // namespace

AuditLog::AuditLog(std::string path, Clock clock)
    : path_(std::move(path)), clock_(std::move(clock)) {}

void AuditLog::append(Json record) {
    std::error_code made;
    auto parent = std::filesystem::path(path_).parent_path();
    if (!parent.empty()) {
        std::filesystem::create_directories(parent, made);
        if (made) {
            throw AuditError("audit log " + path_ + ": cannot make its folder: " + made.message());
        }
    }
    OpenFile file;
    file.fd = ::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (file.fd < 0) {
        throw AuditError(systemError(path_, "open"));
    }
    if (::flock(file.fd, LOCK_EX) != 0) {
        throw AuditError(systemError(path_, "lock"));
    }
    struct stat info {};
    if (::fstat(file.fd, &info) != 0) {
        throw AuditError(systemError(path_, "stat"));
    }
    std::string prev = kFirstPrev;
    uint64_t seq = 1;
    off_t size = S_ISREG(info.st_mode) ? info.st_size : 0;
    if (size > 0) {
        char last = 0;
        if (::pread(file.fd, &last, 1, size - 1) != 1) {
            throw AuditError(systemError(path_, "read"));
        }
        if (last != '\n') {
            throw AuditError("audit log " + path_ +
                             ": its last line is unfinished (no newline); check it with "
                             "velmora-mcp verify-log");
        }
        std::string line = lastLine(file.fd, size, path_);
        prev = sha256Of(line);
        Json lastRecord;
        try {
            lastRecord = parseJson(line);
        } catch (const DecodeError&) {
        }
        if (!lastRecord.is_object() || !lastRecord["seq"].is_number_unsigned()) {
            throw AuditError("audit log " + path_ +
                             ": its last line is not an audit record; check it with "
                             "velmora-mcp verify-log");
        }
        seq = lastRecord["seq"].get<uint64_t>() + 1;
    }
    record["seq"] = seq;
    record["prev"] = prev;
    record["ts"] = iso8601(clock_.now());
    std::string line = record.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
    size_t done = 0;
    while (done < line.size()) {
        ssize_t n = ::write(file.fd, line.data() + done, line.size() - done);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            std::string message = systemError(path_, "write");
            if (done > 0) {
                [[maybe_unused]] int cut = ::ftruncate(file.fd, size);
            }
            throw AuditError(message);
        }
        done += static_cast<size_t>(n);
    }
    if (::fsync(file.fd) != 0) {
        throw AuditError(systemError(path_, "fsync"));
    }
}

LogCheck checkLog(const std::string& text) {
    LogCheck check;
    std::string prev = kFirstPrev;
    size_t start = 0;
    while (start < text.size()) {
        uint64_t number = check.lines + 1;
        size_t newline = text.find('\n', start);
        auto broken = [&](std::string reason) {
            check.brokenLine = number;
            check.reason = std::move(reason);
            return check;
        };
        if (newline == std::string::npos) {
            return broken("unfinished: no newline at its end (a write was cut short)");
        }
        std::string line = text.substr(start, newline - start);
        Json record;
        try {
            record = parseJson(line);
        } catch (const DecodeError& error) {
            return broken(std::string("not a JSON record: ") + error.what());
        }
        if (!record.is_object()) {
            return broken("not a JSON object");
        }
        if (!record.contains("prev") || !record["prev"].is_string()) {
            return broken("it has no \"prev\"");
        }
        if (record["prev"] != prev) {
            return broken(number == 1
                              ? std::string("its \"prev\" is not that of a first line: lines "
                                            "were removed from the start")
                              : "its \"prev\" is not the SHA-256 of line " +
                                    std::to_string(number - 1) + ": line " +
                                    std::to_string(number - 1) +
                                    " was edited, or lines before this one were removed or "
                                    "reordered");
        }
        if (!record.contains("seq") || !record["seq"].is_number_unsigned() ||
            record["seq"].get<uint64_t>() != number) {
            return broken("its \"seq\" is not " + std::to_string(number));
        }
        prev = sha256Of(line);
        check.lines = number;
        start = newline + 1;
    }
    check.intact = true;
    if (check.lines > 0) {
        check.lastLineSha = prev;
    }
    return check;
}

int verifyLogCommand(const std::string& path, std::string& report) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        report = "verify-log: " + path + ": " + std::strerror(errno);
        return 66;
    }
    std::ostringstream text;
    text << in.rdbuf();
    if (in.bad()) {
        report = "verify-log: " + path + ": cannot be read";
        return 66;
    }
    LogCheck check = checkLog(text.str());
    if (!check.intact) {
        report = "verify-log: " + path + ": line " + std::to_string(check.brokenLine) +
                 " is broken: " + check.reason;
        return 1;
    }
    report = "verify-log: " + path + ": intact, " + std::to_string(check.lines) + " lines";
    if (!check.lastLineSha.empty()) {
        report += "; SHA-256 of the last line " + check.lastLineSha;
    }
    return 0;
}

}  // namespace velmora::mcp
