#include "tests/support/KeptRun.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace velmora::testing {

namespace {

void writeFile(const std::string& path, std::string_view contents) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    out.close();
    if (!out) {
        ADD_FAILURE() << "cannot keep " << path;
    }
}

}  // namespace

KeptRun::KeptRun(std::string_view origin, std::string_view mode, std::string_view input) {
    const char* root = std::getenv("VELMORA_KEEP_RUNS");
    if (root == nullptr || *root == '\0') {
        return;
    }
    // Test programs run side by side: the process id keeps their folders apart.
    static std::atomic<unsigned> counter{0};
    folder_ = std::string(root) + "/" + std::string(origin) + "-" + std::to_string(::getpid()) +
              "-" + std::to_string(++counter);
    std::error_code error;
    std::filesystem::create_directories(folder_, error);
    if (error) {
        ADD_FAILURE() << "cannot create " << folder_ << ": " << error.message();
        folder_.clear();
        return;
    }
    writeFile(folder_ + "/mode", mode);
    writeFile(folder_ + "/input", input);
}

void KeptRun::finish(std::string_view output, int exitStatus) {
    if (folder_.empty()) {
        return;
    }
    writeFile(folder_ + "/output", output);
    writeFile(folder_ + "/status", std::to_string(exitStatus));
}

std::string KeptRun::modeOf(const std::string* firstArgument) {
    if (firstArgument == nullptr) {
        return "run";
    }
    const std::string& argument = *firstArgument;
    std::string mode;
    for (size_t at = 0; at < argument.size();) {
        if (argument.compare(at, 2, "--") == 0) {
            at += 2;
        } else {
            mode += argument[at++];
        }
    }
    return mode;
}

}  // namespace velmora::testing
