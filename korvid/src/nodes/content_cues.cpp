#include "nodes/content_cues.h"

#include "nodes/cue_math.h"

namespace kv {

namespace {

// Colourfulness below 0.15 is a pencil or ink drawing; above 0.3 a coloured one. rise and
// clamp01 take a NaN to 0: an unmeasured colourfulness is neither, a NaN probability no drawing.
constexpr double kInk = 0.15, kColour = 0.3;

// The network's drawing class covers every drawn picture (digital art, paintings, comics);
// anime and sketches are kinds of it, so the labels stay below 0.8: abstract wallpapers reach
// 0.93 as drawings.
constexpr double kDrawingLabelScale = 0.75;

}  // namespace

float sensitiveConfidence(const ContentScores& s, double sexyWeight) {
    return static_cast<float>(clamp01(double(s[Porn]) + s[Hentai] + sexyWeight * s[Sexy]));
}

double animeCue(const ContentScores& s, double colourfulness) {
    return kDrawingLabelScale * clamp01(drawnShare(s)) * rise(colourfulness, kInk, kColour);
}

double sketchCue(const ContentScores& s, double colourfulness) {
    return kDrawingLabelScale * clamp01(drawnShare(s)) * rise(colourfulness, kColour, kInk);
}

bool standsOnPicture(const ContentScores& s, float detectionScore, float strongScore) {
    return detectionScore >= strongScore || drawnShare(s) < kDrawnPicture;
}

}  // namespace kv
