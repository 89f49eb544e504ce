#include "core/native/linux/PngEncoder.h"

#include <limits>

#include <png.h>

#include "core/native/linux/SharedLibrary.h"

namespace velmora::native::freedesktop {

namespace {

struct Libpng {
    decltype(&::png_image_write_to_memory) png_image_write_to_memory = nullptr;
    decltype(&::png_image_free) png_image_free = nullptr;
};

// Only screenshots need libpng; none when it cannot be loaded.
const Libpng* libpng() {
    static SharedLibrary library("libpng16.so.16");
    static Libpng table;
    static const bool found = VELMORA_LIBRARY_FUNCTION(library, table, png_image_write_to_memory) &&
                              VELMORA_LIBRARY_FUNCTION(library, table, png_image_free);
    return found ? &table : nullptr;
}

}  // namespace

std::optional<std::vector<uint8_t>> encodePng(const RgbImage& image) {
    constexpr int64_t kLargest = std::numeric_limits<png_uint_32>::max() / 3;
    if (image.width <= 0 || image.height <= 0 || image.width > kLargest ||
        image.height > kLargest ||
        image.pixels.size() != static_cast<size_t>(image.width * image.height * 3)) {
        return std::nullopt;
    }
    const Libpng* png = libpng();
    if (png == nullptr) {
        return std::nullopt;
    }
    // libpng's simplified interface: no setjmp, errors come back as results.
    png_image description{};
    description.version = PNG_IMAGE_VERSION;
    description.width = static_cast<png_uint_32>(image.width);
    description.height = static_cast<png_uint_32>(image.height);
    description.format = PNG_FORMAT_RGB;
    const auto rowStride = static_cast<png_int_32>(image.width * 3);

    png_alloc_size_t size = 0;
    if (png->png_image_write_to_memory(&description, nullptr, &size, 0, image.pixels.data(),
                                       rowStride, nullptr) == 0) {
        png->png_image_free(&description);
        return std::nullopt;
    }
    std::vector<uint8_t> bytes(size);
    if (png->png_image_write_to_memory(&description, bytes.data(), &size, 0, image.pixels.data(),
                                       rowStride, nullptr) == 0) {
        png->png_image_free(&description);
        return std::nullopt;
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace velmora::native::freedesktop
