#include <memory>
#include <utility>

#include "core/model/DriverError.h"
#include "core/native/AXCGDriver.h"
#include "core/native/Fatal.h"
#include "core/native/Sha256.h"
#include "core/native/SharedCell.h"

namespace velmora::native {

void AXCGDriver::screenshot(const std::string& /*bundleId*/, const std::string& path) {
    // The capture's completions may run on other threads, and may run after the
    // deadline below: they touch only the cells and the semaphore, which they own
    // together with this call. The platform outlives the driver that refers to it.
    auto semaphore = platform_.makeSemaphore();
    auto imageCell = SharedCell<ImageRef>::make();
    auto errorCell = SharedCell<std::string>::make();

    Platform* platform = &platform_;
    platform_.shareableDisplays([platform, semaphore, imageCell, errorCell](
                                    std::optional<std::vector<Display>> displays,
                                    std::optional<std::string> error) {
        if (error) {
            errorCell->set(std::move(*error));
            semaphore->signal();
            return;
        }
        if (!displays) {
            // Only a broken platform answers with neither content nor error; going
            // on would turn it into a "no display" that is not true.
            fatalError("shareable content completed with neither content nor an error");
        }
        if (displays->empty()) {
            // Stored as the full text, so the caller's wrapping repeats the prefix.
            errorCell->set(DriverError::screenshotFailed("no display").description());
            semaphore->signal();
            return;
        }
        // The whole first display, at its reported size, whatever app is in front.
        const Display& display = displays->front();
        platform->captureImage(
            display, display.width, display.height,
            [semaphore, imageCell, errorCell](ImageRef image, std::optional<std::string> error) {
                if (error) {
                    errorCell->set(std::move(*error));
                } else if (image) {
                    imageCell->set(std::move(image));
                } else {
                    fatalError("screen capture completed with neither an image nor an error");
                }
                semaphore->signal();
            });
    });

    // Whether the wait ended by a signal or by the deadline is not examined:
    // the cells tell.
    semaphore->wait(kCaptureWait);

    if (auto error = errorCell->get()) {
        throw DriverError::screenshotFailed(*error);
    }
    const std::optional<ImageRef> image = imageCell->get();
    if (!image) {
        throw DriverError::screenshotFailed("nil image");
    }
    std::optional<std::vector<uint8_t>> png = platform_.encodePNG(**image);
    if (!png) {
        throw DriverError::screenshotFailed("png encode");
    }
    // A write error is the platform's own, unwrapped.
    platform_.writeFile(path, *png);
}

std::string AXCGDriver::binarySha256(const std::string& bundleId) {
    std::optional<std::string> executable;
    auto running = platform_.runningApplications(bundleId);
    if (!running.empty() && running.front().bundleLocation) {
        executable = platform_.bundleExecutableLocation(*running.front().bundleLocation);
    }
    if (!executable) {
        if (auto installed = platform_.applicationLocation(bundleId)) {
            executable = platform_.bundleExecutableLocation(*installed);
        }
    }
    if (!executable) {
        throw DriverError::appNotRunning(bundleId);
    }
    // A read error is the platform's own, unwrapped.
    const FileContents contents = platform_.readFile(*executable);
    return sha256Hex(contents.data, contents.size);
}

}  // namespace velmora::native
