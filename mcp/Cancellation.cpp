#include "mcp/Cancellation.h"

#include <fcntl.h>
#include <unistd.h>

namespace velmora::mcp {

Cancellation::Cancellation() {
    if (::pipe(pipe_) != 0) {
        pipe_[0] = pipe_[1] = -1;
        return;
    }
    for (int fd : pipe_) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    }
}

Cancellation::~Cancellation() {
    for (int fd : pipe_) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

void Cancellation::cancel() {
    if (!requested_.exchange(true) && pipe_[1] >= 0) {
        char byte = 1;
        [[maybe_unused]] auto written = ::write(pipe_[1], &byte, 1);
    }
}

}  // namespace velmora::mcp
