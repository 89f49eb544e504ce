#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/native/linux/RgbImage.h"

namespace velmora::native::freedesktop {

// The image as a PNG file (8-bit RGB, no interlacing) made with libpng; none
// when the image is empty or inconsistent, or libpng fails.
std::optional<std::vector<uint8_t>> encodePng(const RgbImage& image);

}  // namespace velmora::native::freedesktop
