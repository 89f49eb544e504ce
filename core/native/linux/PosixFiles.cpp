#include "core/native/linux/PosixFiles.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/model/DriverError.h"

namespace velmora::native::freedesktop {

namespace {

[[noreturn]] void fail(const char* verb, const std::string& path, int error) {
    throw PlatformError(std::string("cannot ") + verb + " " + path + ": " + std::strerror(error));
}

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return fd_; }
    // Closes now, reporting the error of close itself.
    int close() {
        int result = ::close(fd_);
        fd_ = -1;
        return result;
    }

  private:
    int fd_;
};

FileContents readStream(int fd, const std::string& path) {
    auto bytes = std::make_shared<std::vector<uint8_t>>();
    uint8_t buffer[65536];
    for (;;) {
        ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("read", path, errno);
        }
        if (count == 0) {
            break;
        }
        bytes->insert(bytes->end(), buffer, buffer + count);
    }
    return FileContents{.data = bytes->data(), .size = bytes->size(), .owner = bytes};
}

}  // namespace

FileContents readWholeFile(const std::string& path) {
    FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        fail("read", path, errno);
    }
    struct stat status {};
    if (::fstat(file.get(), &status) != 0) {
        fail("read", path, errno);
    }
    if (S_ISDIR(status.st_mode)) {
        fail("read", path, EISDIR);
    }
    if (!S_ISREG(status.st_mode) || status.st_size == 0) {
        return readStream(file.get(), path);
    }
    auto size = static_cast<size_t>(status.st_size);
    void* mapped = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (mapped == MAP_FAILED) {
        return readStream(file.get(), path);
    }
    std::shared_ptr<const void> owner(
        mapped, [size](const void* memory) { ::munmap(const_cast<void*>(memory), size); });
    return FileContents{.data = static_cast<const uint8_t*>(mapped), .size = size, .owner = owner};
}

void writeWholeFile(const std::string& path, const std::vector<uint8_t>& bytes) {
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (file.get() < 0) {
        fail("write", path, errno);
    }
    size_t written = 0;
    while (written < bytes.size()) {
        ssize_t count = ::write(file.get(), bytes.data() + written, bytes.size() - written);
        if (count < 0) {
            if (errno == EINTR) {
                continue;
            }
            fail("write", path, errno);
        }
        written += static_cast<size_t>(count);
    }
    if (file.close() != 0) {
        fail("write", path, errno);
    }
}

}  // namespace velmora::native::freedesktop
