#pragma once

#include <cstdint>
#include <vector>

#include "core/native/Platform.h"

namespace velmora::native::freedesktop {

// A captured image: rows of 8-bit red, green and blue samples, top row first.
struct RgbImage final : CapturedImage {
    int64_t width = 0;
    int64_t height = 0;
    std::vector<uint8_t> pixels;  // width * height * 3 bytes
};

}  // namespace velmora::native::freedesktop
