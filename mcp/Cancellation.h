#pragma once

#include <atomic>

// A flag the reader thread raises when the client cancels a call, with a pipe
// whose read end becomes readable at that moment, so that a wait on a child's
// output wakes at once instead of polling the flag.

namespace velmora::mcp {

class Cancellation {
  public:
    Cancellation();
    ~Cancellation();
    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    void cancel();
    bool requested() const { return requested_.load(); }
    // Readable once cancelled; -1 when no pipe could be made (the flag still works).
    int wakeFd() const { return pipe_[0]; }

  private:
    std::atomic<bool> requested_{false};
    int pipe_[2] = {-1, -1};
};

}  // namespace velmora::mcp
