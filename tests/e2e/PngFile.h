#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Reading back the PNG files the agent writes.

namespace velmora::e2e {

struct PngSize {
    uint32_t width = 0;
    uint32_t height = 0;
};

// The width and height in a PNG file's header (its signature and first chunk,
// IHDR); none when the file is missing or is not a PNG.
std::optional<PngSize> pngSize(const std::string& path);

// A decoded picture: 8-bit RGB, rows top to bottom.
struct RgbPicture {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> pixels;
};

// Decodes a PNG file; none when it cannot.
std::optional<RgbPicture> readPng(const std::string& path);

// How many pixels differ between two pictures of the same size inside the
// rectangle from (x, y), `width` by `height` pixels, clipped to the pictures.
size_t differingPixels(const RgbPicture& first, const RgbPicture& second, int x, int y, int width,
                       int height);

}  // namespace velmora::e2e
