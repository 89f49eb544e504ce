#pragma once

// Screen coordinates in points, in the space that the accessibility layer
// reports and that synthesised events use.

namespace velmora {

struct Point {
    double x = 0;
    double y = 0;

    friend bool operator==(const Point&, const Point&) = default;
};

struct Rect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace velmora
