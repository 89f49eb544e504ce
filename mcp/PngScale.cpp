#include "mcp/PngScale.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velmora::mcp {

FitSize fitWithin(int width, int height, int maxWidth, int maxHeight) {
    FitSize fit{width, height, 1};
    if (width <= 0 || height <= 0 || (width <= maxWidth && height <= maxHeight)) {
        return fit;
    }
    fit.scale =
        std::min(static_cast<double>(maxWidth) / width, static_cast<double>(maxHeight) / height);
    fit.width = std::clamp(static_cast<int>(std::floor(width * fit.scale)), 1, maxWidth);
    fit.height = std::clamp(static_cast<int>(std::floor(height * fit.scale)), 1, maxHeight);
    return fit;
}

std::vector<uint8_t> shrinkRgb(const std::vector<uint8_t>& rgb, int width, int height, int toWidth,
                               int toHeight) {
    std::vector<uint8_t> out(static_cast<size_t>(toWidth) * toHeight * 3);
    for (int y = 0; y < toHeight; ++y) {
        int y0 = static_cast<int>(static_cast<int64_t>(y) * height / toHeight);
        int y1 =
            std::max(y0 + 1, static_cast<int>(static_cast<int64_t>(y + 1) * height / toHeight));
        for (int x = 0; x < toWidth; ++x) {
            int x0 = static_cast<int>(static_cast<int64_t>(x) * width / toWidth);
            int x1 =
                std::max(x0 + 1, static_cast<int>(static_cast<int64_t>(x + 1) * width / toWidth));
            uint64_t sum[3] = {0, 0, 0};
            for (int sy = y0; sy < y1; ++sy) {
                const uint8_t* row = rgb.data() + (static_cast<size_t>(sy) * width + x0) * 3;
                for (int sx = x0; sx < x1; ++sx, row += 3) {
                    sum[0] += row[0];
                    sum[1] += row[1];
                    sum[2] += row[2];
                }
            }
            uint64_t count = static_cast<uint64_t>(y1 - y0) * (x1 - x0);
            uint8_t* target = out.data() + (static_cast<size_t>(y) * toWidth + x) * 3;
            for (int c = 0; c < 3; ++c) {
                target[c] = static_cast<uint8_t>((sum[c] + count / 2) / count);
            }
        }
    }
    return out;
}

std::vector<uint8_t> encodeRgbPng(const std::vector<uint8_t>& rgb, int width, int height) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = 0;
    if (!png_image_write_to_memory(&image, nullptr, &size, 0, rgb.data(), 0, nullptr)) {
        std::string message = image.message;
        png_image_free(&image);
        throw std::runtime_error("PNG encoding: " + message);
    }
    std::vector<uint8_t> png(size);
    if (!png_image_write_to_memory(&image, png.data(), &size, 0, rgb.data(), 0, nullptr)) {
        std::string message = image.message;
        png_image_free(&image);
        throw std::runtime_error("PNG encoding: " + message);
    }
    png.resize(size);
    return png;
}

ScaledPng scalePngToFit(const std::string& path, int maxWidth, int maxHeight) {
    png_image image;
    std::memset(&image, 0, sizeof image);
    image.version = PNG_IMAGE_VERSION;
    if (!png_image_begin_read_from_file(&image, path.c_str())) {
        std::string message = image.message;
        png_image_free(&image);
        throw std::runtime_error(path + ": " + message);
    }
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> rgb(PNG_IMAGE_SIZE(image));
    // Transparent pixels are laid on black, as a screen shows them.
    png_color background{0, 0, 0};
    if (!png_image_finish_read(&image, &background, rgb.data(), 0, nullptr)) {
        std::string message = image.message;
        png_image_free(&image);
        throw std::runtime_error(path + ": " + message);
    }
    ScaledPng scaled;
    scaled.sourceWidth = static_cast<int>(image.width);
    scaled.sourceHeight = static_cast<int>(image.height);
    FitSize fit = fitWithin(scaled.sourceWidth, scaled.sourceHeight, maxWidth, maxHeight);
    scaled.width = fit.width;
    scaled.height = fit.height;
    scaled.scale = fit.scale;
    if (fit.width != scaled.sourceWidth || fit.height != scaled.sourceHeight) {
        rgb = shrinkRgb(rgb, scaled.sourceWidth, scaled.sourceHeight, fit.width, fit.height);
    }
    scaled.png = encodeRgbPng(rgb, fit.width, fit.height);
    return scaled;
}

}  // namespace velmora::mcp
