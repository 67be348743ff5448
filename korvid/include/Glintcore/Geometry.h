// Glintcore geometry values. Coordinates of results are normalised to the image:
// 0..1 from the left and from the top edge.
#pragma once

namespace Glintcore {

struct Vector2f {
    float x = 0.f;
    float y = 0.f;
};

struct Rect {
    float x = 0.f;       // left edge
    float y = 0.f;       // top edge (top-left origin)
    float width = 0.f;
    float height = 0.f;
};

}  // namespace Glintcore
