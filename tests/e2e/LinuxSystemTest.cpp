// The Linux platform layer's system services (files, child processes, time) and
// its behaviour without an X11 display. These use the real system but no
// desktop.

#include <dirent.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "core/model/DriverError.h"
#include "core/native/SystemPlatform.h"

namespace velmora::native {
namespace {

size_t openDescriptors() {
    size_t count = 0;
    if (DIR* directory = opendir("/proc/self/fd")) {
        while (readdir(directory) != nullptr) {
            ++count;
        }
        closedir(directory);
    }
    return count;
}

// Takes DISPLAY and the buses away for the length of a test.
class WithoutDesktop {
  public:
    WithoutDesktop() {
        for (const char* name : kNames) {
            const char* value = std::getenv(name);
            saved_.emplace_back(
                name, value != nullptr ? std::optional<std::string>(value) : std::nullopt);
            unsetenv(name);
        }
    }
    ~WithoutDesktop() {
        for (const auto& [name, value] : saved_) {
            if (value) {
                setenv(name.c_str(), value->c_str(), 1);
            }
        }
    }

  private:
    static constexpr const char* kNames[] = {"DISPLAY", "WAYLAND_DISPLAY",
                                             "DBUS_SESSION_BUS_ADDRESS", "AT_SPI_BUS_ADDRESS"};
    std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

class TemporaryDirectory {
  public:
    TemporaryDirectory() {
        std::string pattern = (std::filesystem::temp_directory_path() / "velmora-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

std::string platformErrorOf(const std::function<void()>& operation) {
    try {
        operation();
    } catch (const PlatformError& error) {
        return error.description();
    }
    return "(no error)";
}

TEST(LinuxProviderWithoutDisplay, ConstructionAndDesktopOperationsTouchNothing) {
    WithoutDesktop withoutDesktop;
    size_t before = openDescriptors();
    auto platform = makeSystemPlatform();
    EXPECT_EQ(openDescriptors(), before);

    EXPECT_FALSE(platform->isProcessTrusted());
    EXPECT_EQ(platform->frontmostApplicationBundleId(), std::nullopt);
    EXPECT_EQ(platform->createEventSource(kCGEventSourceStateCombinedSessionState), nullptr);
    EXPECT_EQ(platform->createMouseEvent(nullptr, kCGEventLeftMouseDown, Point{.x = 1, .y = 1},
                                         kCGMouseButtonLeft),
              nullptr);
    EXPECT_EQ(platform->createKeyboardEvent(nullptr, 0, true), nullptr);
    EXPECT_EQ(platform->createScrollWheelEvent(nullptr, kCGScrollEventUnitPixel, 2, -10, 3, 0),
              nullptr);
    platform->warpPointer(Point{.x = 5, .y = 5});
    platform->activateApplication(1, 0);
    EXPECT_FALSE(platform->preflightScreenCaptureAccess());
    EXPECT_FALSE(platform->requestScreenCaptureAccess());

    // Every read of an application element fails: accessibility is off.
    AXElement application = platform->applicationElement(getpid());
    ASSERT_NE(application, nullptr);
    for (const char* name : {"AXRole", "AXTitle", "AXValue", "AXChildren", "AXWindows"}) {
        auto read = platform->copyAttribute(application, name);
        EXPECT_EQ(read.code, kAXErrorAPIDisabled) << name;
        EXPECT_FALSE(read.value) << name;
    }

    // Capture and launching answer with an error that says why.
    std::optional<std::string> displaysError;
    bool displaysAnswered = false;
    platform->shareableDisplays(
        [&](std::optional<std::vector<Display>> displays, std::optional<std::string> e) {
            displaysAnswered = true;
            EXPECT_FALSE(displays);
            displaysError = std::move(e);
        });
    ASSERT_TRUE(displaysAnswered);
    ASSERT_TRUE(displaysError);
    EXPECT_NE(displaysError->find("DISPLAY"), std::string::npos) << *displaysError;

    std::optional<std::string> launchError;
    platform->openApplication("/usr/share/applications/galculator.desktop", true,
                              [&](std::optional<std::string> e) { launchError = std::move(e); });
    ASSERT_TRUE(launchError);
    EXPECT_NE(launchError->find("X11"), std::string::npos) << *launchError;

    // None of that opened a connection.
    EXPECT_EQ(openDescriptors(), before);
}

TEST(LinuxProviderWithoutDisplay, ForeignElementsAndEventsAreRefused) {
    WithoutDesktop withoutDesktop;
    auto platform = makeSystemPlatform();
    struct Foreign : AccessibleObject {};
    EXPECT_EQ(platform->copyAttribute(std::make_shared<Foreign>(), "AXRole").code, kAXErrorFailure);
    EXPECT_EQ(platform->copyAttribute(nullptr, "AXRole").code, kAXErrorFailure);
    struct ForeignImage : CapturedImage {};
    EXPECT_EQ(platform->encodePNG(ForeignImage{}), std::nullopt);
}

TEST(LinuxProviderFiles, ReadingAMissingFileNamesThePathAndTheReason) {
    auto platform = makeSystemPlatform();
    TemporaryDirectory directory;
    std::string path = directory.file("missing.bin");
    std::string error = platformErrorOf([&] { platform->readFile(path); });
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find(std::strerror(ENOENT)), std::string::npos) << error;
}

TEST(LinuxProviderFiles, ReadingADirectoryFails) {
    auto platform = makeSystemPlatform();
    TemporaryDirectory directory;
    std::string error = platformErrorOf([&] { platform->readFile(directory.file("")); });
    EXPECT_NE(error.find(std::strerror(EISDIR)), std::string::npos) << error;
}

TEST(LinuxProviderFiles, ReadsEmptyAndNonEmptyFilesWhole) {
    auto platform = makeSystemPlatform();
    TemporaryDirectory directory;
    std::string empty = directory.file("empty");
    std::ofstream(empty).close();
    FileContents none = platform->readFile(empty);
    EXPECT_EQ(none.size, 0u);

    std::string path = directory.file("bytes");
    std::string written(100000, '\0');
    for (size_t i = 0; i < written.size(); ++i) {
        written[i] = static_cast<char>(i * 7);
    }
    std::ofstream(path, std::ios::binary) << written;
    FileContents contents = platform->readFile(path);
    ASSERT_EQ(contents.size, written.size());
    EXPECT_EQ(std::memcmp(contents.data, written.data(), written.size()), 0);

    // The bytes outlive the provider as long as their owner is held.
    auto data = contents.data;
    auto owner = contents.owner;
    platform.reset();
    contents = {};
    EXPECT_EQ(std::memcmp(data, written.data(), written.size()), 0);
}

TEST(LinuxProviderFiles, ReadsFilesThatCannotBeMapped) {
    auto platform = makeSystemPlatform();
    // /proc files report no size and are read, not mapped.
    FileContents status = platform->readFile("/proc/self/status");
    std::string text(reinterpret_cast<const char*>(status.data), status.size);
    EXPECT_NE(text.find("Pid:"), std::string::npos);
}

TEST(LinuxProviderFiles, WritingReplacesTheFile) {
    auto platform = makeSystemPlatform();
    TemporaryDirectory directory;
    std::string path = directory.file("out.png");
    platform->writeFile(path, std::vector<uint8_t>(1000, 0xAB));
    platform->writeFile(path, {1, 2, 3});
    FileContents contents = platform->readFile(path);
    ASSERT_EQ(contents.size, 3u);
    EXPECT_EQ(contents.data[0], 1);
    EXPECT_EQ(contents.data[2], 3);
}

TEST(LinuxProviderFiles, WritingIntoAMissingDirectoryFailsAndCreatesNothing) {
    auto platform = makeSystemPlatform();
    TemporaryDirectory directory;
    std::string path = directory.file("absent/shot.png");
    std::string error = platformErrorOf([&] { platform->writeFile(path, {1}); });
    EXPECT_NE(error.find(path), std::string::npos) << error;
    EXPECT_NE(error.find(std::strerror(ENOENT)), std::string::npos) << error;
    EXPECT_FALSE(std::filesystem::exists(directory.file("absent")));
}

TEST(LinuxProviderWithoutDisplay, ForcedActivationDoesNothing) {
    // No osascript is started here (there is none): without an X display there
    // is no window to bring forward, and nothing is reported.
    WithoutDesktop noDesktop;
    auto platform = makeSystemPlatform();
    platform->forceActivateApplication("org.example.absent", 1);
    EXPECT_EQ(platform->frontmostApplicationBundleId(), std::nullopt);
}

TEST(LinuxProviderTime, SleepsAndMeasuresOnAMonotonicClock) {
    auto platform = makeSystemPlatform();
    double start = platform->monotonicSeconds();
    platform->sleep(0.05);
    double elapsed = platform->monotonicSeconds() - start;
    EXPECT_GE(elapsed, 0.05);
    EXPECT_LT(elapsed, 1.0);
    platform->sleep(-1);  // nothing to wait for
    platform->sleep(0);
}

TEST(LinuxProviderTime, SemaphoreTimesOutOrTakesASignalFromAnotherThread) {
    auto platform = makeSystemPlatform();
    auto semaphore = platform->makeSemaphore();
    double start = platform->monotonicSeconds();
    EXPECT_FALSE(semaphore->wait(0.05));
    EXPECT_GE(platform->monotonicSeconds() - start, 0.05);
    EXPECT_FALSE(semaphore->wait(0));

    std::thread signaller([semaphore] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        semaphore->signal();
    });
    EXPECT_TRUE(semaphore->wait(5.0));
    signaller.join();

    // Signals count.
    semaphore->signal();
    semaphore->signal();
    EXPECT_TRUE(semaphore->wait(0));
    EXPECT_TRUE(semaphore->wait(0));
    EXPECT_FALSE(semaphore->wait(0));
}

}  // namespace
}  // namespace velmora::native
