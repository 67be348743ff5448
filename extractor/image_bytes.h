// How many bytes a tightly packed image of a pixel format needs, so the engine can refuse
// a buffer that holds fewer before any framework code reads it.
#pragma once

#include <cstdint>

namespace VQFeature {

/// Bytes of a width x height image in the framework's pixel format (values outside
/// -1..8 count as RGBA8888, as the engine hands them on). Non-positive sizes need 0;
/// a size whose byte count does not fit 64 bits needs UINT64_MAX.
uint64_t imageBytesNeeded(int width, int height, int format);

}  // namespace VQFeature
