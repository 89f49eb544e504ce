#include "tests/e2e/PngFile.h"

#include <png.h>

#include <algorithm>
#include <array>
#include <fstream>

namespace velmora::e2e {

std::optional<PngSize> pngSize(const std::string& path) {
    // Signature (8 bytes), IHDR length (4) and type (4), then width and height,
    // big-endian.
    std::ifstream file(path, std::ios::binary);
    std::array<unsigned char, 24> head{};
    if (!file.read(reinterpret_cast<char*>(head.data()), head.size())) {
        return std::nullopt;
    }
    static constexpr std::array<unsigned char, 8> kSignature = {0x89, 'P',  'N',  'G',
                                                                '\r', '\n', 0x1A, '\n'};
    if (!std::equal(kSignature.begin(), kSignature.end(), head.begin()) ||
        !std::equal(head.begin() + 12, head.begin() + 16, "IHDR")) {
        return std::nullopt;
    }
    auto bigEndian = [&](size_t at) {
        return (uint32_t{head[at]} << 24) | (uint32_t{head[at + 1]} << 16) |
               (uint32_t{head[at + 2]} << 8) | uint32_t{head[at + 3]};
    };
    return PngSize{.width = bigEndian(16), .height = bigEndian(20)};
}

std::optional<RgbPicture> readPng(const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&image, path.c_str()) == 0) {
        return std::nullopt;
    }
    image.format = PNG_FORMAT_RGB;
    RgbPicture picture{.width = image.width, .height = image.height, .pixels = {}};
    picture.pixels.resize(PNG_IMAGE_SIZE(image));
    if (png_image_finish_read(&image, nullptr, picture.pixels.data(), 0, nullptr) == 0) {
        png_image_free(&image);
        return std::nullopt;
    }
    return picture;
}

size_t differingPixels(const RgbPicture& first, const RgbPicture& second, int x, int y, int width,
                       int height) {
    if (first.width != second.width || first.height != second.height) {
        return 0;
    }
    int left = std::max(x, 0);
    int top = std::max(y, 0);
    int right = std::min(x + width, static_cast<int>(first.width));
    int bottom = std::min(y + height, static_cast<int>(first.height));
    size_t count = 0;
    for (int row = top; row < bottom; ++row) {
        for (int column = left; column < right; ++column) {
            size_t at = (static_cast<size_t>(row) * first.width + column) * 3;
            if (!std::equal(first.pixels.begin() + at, first.pixels.begin() + at + 3,
                            second.pixels.begin() + at)) {
                ++count;
            }
        }
    }
    return count;
}

}  // namespace velmora::e2e
