#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// A screenshot made small enough for a client: read from its PNG file, scaled
// down (never up) by one factor for both axes to fit a box, encoded as PNG.

namespace velmora::mcp {

struct ScaledPng {
    std::vector<uint8_t> png;
    int width = 0, height = 0;              // of the scaled image
    int sourceWidth = 0, sourceHeight = 0;  // of the screenshot
    double scale = 1;                       // scaled size / screenshot size, at most 1
};

// Throws std::runtime_error naming the file and what failed.
ScaledPng scalePngToFit(const std::string& path, int maxWidth, int maxHeight);

// Encodes RGB pixels (3 bytes each, rows top to bottom) as PNG.
std::vector<uint8_t> encodeRgbPng(const std::vector<uint8_t>& rgb, int width, int height);

// The size an image of width x height takes when scaled down to fit the box,
// and the factor used.
struct FitSize {
    int width = 0, height = 0;
    double scale = 1;
};
FitSize fitWithin(int width, int height, int maxWidth, int maxHeight);

// Shrinks RGB pixels by averaging each target pixel's box of source pixels.
std::vector<uint8_t> shrinkRgb(const std::vector<uint8_t>& rgb, int width, int height, int toWidth,
                               int toHeight);

}  // namespace velmora::mcp
