// Scene evidence with a sense of place: the regions of an upright photo that make it a sky,
// a sunset, water, snow, greenery or a night, measured on a copy of at most 256 pixels, and
// the persons of the object detector that something confirms (nodes/person_evidence.h).
// Every cue lies in 0..kMaxCue: a statistic never claims certainty, and a label without its
// evidence stays near 0. korvid/README.md gives each measure and its calibration.
// Pure functions, thread-safe.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "dnn/object_detector.h"
#include "graph/execute_memo.h"

namespace kv {

constexpr double kMaxCue = 0.85;
// A label's cue from kFoundFloor (the scene labels' default threshold) up: its measure's ramp
// reaches kFoundCue, evidence past the ramp's end fills the band to kMaxCue (ranks the photos).
constexpr double kFoundFloor = 0.5;
constexpr double kFoundCue = 0.75;
constexpr double kFlowerCue = 0.6;
constexpr double kGalaxyCue = 0.6;

// The raw measures behind the cues (shares are fractions of the part of the image named).
struct SceneEvidence {
    double skyShare = 0;       // top half covered by a smooth sky-coloured region reaching the top edge
    double skyTopEdge = 0;     // top rows (a twentieth of the height) covered by that region
    double skyBottomShare = 0; // bottom quarter covered by that same region (a backdrop, not a sky)
    double coolSkyShare = 0;   // top half covered by the blue or pale part of that region
    double blueSkyImage = 0;   // the whole image covered by the blue part of that region (a sky seen from below)
    double glowShare = 0;      // top half in warm glow colours, textured or not (lit clouds)
    double warmSkyShare = 0;   // top half covered by the warm (orange, red, pink) part of that region
    double skyOverGround = 0;  // mean brightness of the sky region minus that of the bottom third
    double groundTexture = 0;  // bottom half outside the sky region that is textured (detail of land)
    double waterShare = 0;     // lower two thirds covered by wide blue regions below the top
    double snowShare = 0;      // lower two thirds covered by wide white regions below the top
    double greenShare = 0;     // the image covered by textured vegetation green
    double bloomShare = 0;     // the image covered by strong petal colours (red, orange, yellow, pink, purple)
    double blurShare = 0;      // the image that is featureless (the defocused background of a close-up)
    double mirror = 0;         // how much a band of vertical edges mirrors the one above a horizontal line
    int mirrorRow = 0;         // that line, in rows of the 256-pixel copy
    double darkShare = 0;      // the image darker than 50/255
    double flatDarkShare = 0;  // the image dark and without any texture (a drawing's black)
    int pointLights = 0;       // small bright spots (lamps, windows, stars)
    int lowerPointLights = 0;  // those of them in the bottom half
    double entropy = 0;        // grey histogram entropy, bits / 8
    double colourfulness = 0;  // Hasler-Suesstrunk / 100, clamped to 1
};

// memo: where the image statistics of bgr may already be (image_stats.h); null computes them.
SceneEvidence measureScene(const cv::Mat& bgr, ExecuteMemo* memo = nullptr);
// The same, measured once per execute for all the nodes that ask (memo null: measured).
SceneEvidence sceneEvidence(const cv::Mat& bgr, ExecuteMemo* memo);

// The scene labels, in their default order: "sky", "greenery", "water", "night", "snow",
// "sunset", "document", "people", "solid_colour", "colourful".
const std::vector<std::string>& sceneLabelNames();

// The cue of a label from the evidence (people: nodes/person_evidence.h); false when
// the name is no scene label. "flowers" is no scene label but a cue of the classification:
// blooms filling much of a photo without a sky, at most kFlowerCue (colour alone tells a
// flower from fruit or fur only so far). "galaxy", also a classification cue: a frame dark
// almost everywhere, full of point lights from top to bottom (stars without a horizon), at
// most kGalaxyCue (a night sky seen straight up, or a field of stars, is no more).
bool sceneCue(const std::string& label, const SceneEvidence& evidence, double& value);

// The flower class from the "flowers" cue: blooms on a drawing are drawn colours as often
// (wallpapers of warm shapes), so the cue is scaled by 1 - drawnShare; beside found tableware
// (a bottle, glass, cup, cutlery or bowl, or a dining table, of 0.3 or more) they are a red
// cup or a dish, and the class is 0. objects: the detector's, as the classification keeps them.
double flowerClassCue(double flowers, double drawnShare, const std::vector<ObjectDetection>& objects);

}  // namespace kv
