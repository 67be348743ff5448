// The arithmetic of the cues: values held to 0..1, and the linear rise between two
// calibration points that most cues are made of.
#pragma once

#include <algorithm>

namespace kv {

// NaN comes out as 0 (a cue of nothing measured), unlike std::clamp.
inline double clamp01(double v) { return std::min(1.0, std::max(0.0, v)); }

// 0 below from, 1 from to on, linear between.
inline double rise(double v, double from, double to) { return clamp01((v - from) / (to - from)); }

}  // namespace kv
