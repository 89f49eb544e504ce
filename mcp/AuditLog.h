#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "core/model/Json.h"
#include "core/routing/Clock.h"

// The audit log: one JSON object per line, appended and synced to disk before
// the call goes on. Every line carries `seq` (its line number, from 1) and
// `prev`, the SHA-256 of the previous line's bytes (64 zeros for the first), so
// that an edited, removed or reordered line breaks the chain at the line after
// it. Appends lock the file, so several servers may share one log.

namespace velmora::mcp {

class AuditError : public std::runtime_error {
  public:
    explicit AuditError(const std::string& message) : std::runtime_error(message) {}
};

class AuditLog {
  public:
    AuditLog(std::string path, Clock clock);

    // Appends `record` (an object) with `seq`, `prev` and `ts` added, and syncs
    // it. Throws AuditError saying what failed; then nothing was added (a line
    // half written is cut off again where possible).
    void append(Json record);

    const std::string& path() const { return path_; }

  private:
    std::string path_;
    Clock clock_;
};

// 64 zeros: the `prev` of the first line.
extern const std::string kFirstPrev;

struct LogCheck {
    bool intact = false;
    uint64_t lines = 0;       // lines read (all of them when intact)
    uint64_t brokenLine = 0;  // the first line that does not fit, from 1
    std::string reason;       // why it does not fit
    std::string lastLineSha;  // SHA-256 of the last line, when intact and not empty
};

// Checks a log's text line by line.
LogCheck checkLog(const std::string& text);

// `velmora-mcp verify-log FILE`: the report line and the exit status (0 intact,
// 1 broken, 66 unreadable).
int verifyLogCommand(const std::string& path, std::string& report);

}  // namespace velmora::mcp
