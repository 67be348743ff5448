#include "nodes/content_cues.h"

#include <algorithm>

namespace kv {

namespace {

double clamp01(double v) { return std::clamp(v, 0.0, 1.0); }

// Colourfulness below 0.15 is a pencil or ink drawing; above 0.3 a coloured one.
double colourShare(double colourfulness) { return clamp01((colourfulness - 0.15) / 0.15); }

// The network's drawing class covers every drawn picture (digital art, paintings, comics);
// anime and sketches are kinds of it, so the labels stay below 0.8: abstract wallpapers reach
// 0.93 as drawings.
constexpr double kDrawingLabelScale = 0.75;

}  // namespace

float sensitiveConfidence(const ContentScores& s, double sexyWeight) {
    return static_cast<float>(clamp01(double(s[Porn]) + s[Hentai] + sexyWeight * s[Sexy]));
}

double animeCue(const ContentScores& s, double colourfulness) {
    return kDrawingLabelScale * drawnShare(s) * colourShare(colourfulness);
}

double sketchCue(const ContentScores& s, double colourfulness) {
    return kDrawingLabelScale * drawnShare(s) * (1 - colourShare(colourfulness));
}

bool standsOnPicture(const ContentScores& s, float detectionScore, float strongScore) {
    return detectionScore >= strongScore || drawnShare(s) < kDrawnPicture;
}

}  // namespace kv
