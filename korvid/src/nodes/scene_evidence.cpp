#include "nodes/scene_evidence.h"

#include <algorithm>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "nodes/cue_math.h"
#include "nodes/image_stats.h"

namespace kv {

namespace {

// 0 at from, kMaxCue at to, linear between.
double ramp(double v, double from, double to) { return kMaxCue * clamp01((v - from) / (to - from)); }

double share(const cv::Mat& mask) { return mask.empty() || mask.total() == 0 ? 0.0 : cv::countNonZero(mask) / double(mask.total()); }

// The mask of the components of labels marked in keep.
cv::Mat keptComponents(const cv::Mat& labels, const std::vector<uint8_t>& keep) {
    cv::Mat out(labels.size(), CV_8U);
    for (int y = 0; y < labels.rows; ++y) {
        const int* row = labels.ptr<int>(y);
        uint8_t* o = out.ptr<uint8_t>(y);
        for (int x = 0; x < labels.cols; ++x) o[x] = keep[static_cast<size_t>(row[x])] ? 255 : 0;
    }
    return out;
}

// The 8-connected components of mask that have a pixel in its first rows.
cv::Mat componentsTouchingTop(const cv::Mat& mask, int rows) {
    cv::Mat labels;
    const int n = cv::connectedComponents(mask, labels, 8, CV_32S);
    std::vector<uint8_t> keep(static_cast<size_t>(n), 0);
    for (int y = 0; y < std::min(rows, mask.rows); ++y) {
        const int* row = labels.ptr<int>(y);
        for (int x = 0; x < labels.cols; ++x) keep[static_cast<size_t>(row[x])] = row[x] != 0;
    }
    return keptComponents(labels, keep);
}

// The components of mask whose bounding box spans at least minWidth of the image's width:
// the ground of a scene (a lake, a snowfield) runs from side to side, an object does not.
cv::Mat wideComponents(const cv::Mat& mask, double minWidth) {
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(mask, labels, stats, centroids, 8, CV_32S);
    std::vector<uint8_t> keep(static_cast<size_t>(n), 0);
    for (int i = 1; i < n; ++i) keep[static_cast<size_t>(i)] = stats.at<int>(i, cv::CC_STAT_WIDTH) >= minWidth * mask.cols;
    return keptComponents(labels, keep);
}

// Small bright spots in dark surroundings: components brighter than 200, of at most 0.3 %
// of the image, whose neighbourhood (15 x 15) is dark on average. lower: those of them
// centred in the bottom half.
int countPointLights(const cv::Mat& value, int& lower) {
    cv::Mat bright = value > 200, labels, stats, centroids, surroundings;
    cv::blur(value, surroundings, cv::Size(15, 15));
    const int n = cv::connectedComponentsWithStats(bright, labels, stats, centroids, 8, CV_32S);
    int spots = 0;
    lower = 0;
    for (int i = 1; i < n; ++i) {
        const cv::Point c(int(centroids.at<double>(i, 0)), int(centroids.at<double>(i, 1)));
        if (stats.at<int>(i, cv::CC_STAT_AREA) > 0.003 * double(value.total()) || surroundings.at<uint8_t>(c) >= 90) continue;
        ++spots;
        lower += c.y >= value.rows / 2;
    }
    return spots;
}

// The mean and standard deviation of a float image.
struct Spread {
    explicit Spread(const cv::Mat& image) { cv::meanStdDev(image, mean, deviation); }
    cv::Scalar mean, deviation;
};

// The normalised correlation of two float images of one size; 0 when either has a spread
// of less than 4 (nothing to compare).
double correlation(const cv::Mat& a, const Spread& sa, const cv::Mat& b, const Spread& sb) {
    if (sa.deviation[0] < 4 || sb.deviation[0] < 4) return 0;
    return cv::mean((a - sa.mean[0]).mul(b - sb.mean[0]))[0] / (sa.deviation[0] * sb.deviation[0]);
}

// The best mirror symmetry of grey about a horizontal line between 30 % and 75 % of its
// height: the correlation of the band above the line with the band below it, flipped (calm
// water reflects what stands above it: a shore, trees, the sky's gradient). Bands without
// detail (a spread of less than 4 grey levels) reflect nothing. row: the line found.
double mirrorSymmetry(const cv::Mat& grey, int& row) {
    // The vertical edges (a reflection keeps them where they are; a ripple blurs it only
    // up and down), so that a smooth gradient or a vignette is no mirror.
    cv::Mat blurred, g;
    cv::GaussianBlur(grey, blurred, cv::Size(5, 5), 0);
    cv::Sobel(blurred, g, CV_32F, 1, 0);
    cv::resize(g, g, cv::Size((g.cols + 1) / 2, g.rows), 0, 0, cv::INTER_AREA);  // rows kept: the line's place
    g = cv::abs(g);
    double best = 0;
    row = 0;
    const int band = std::max(2, g.rows / 6);
    for (int h = std::max(band, g.rows * 3 / 10); h + band <= g.rows && h <= g.rows * 3 / 4; ++h) {
        const cv::Mat upper = g(cv::Rect(0, h - band, g.cols, band)), below = g(cv::Rect(0, h, g.cols, band));
        cv::Mat above;
        cv::flip(upper, above, 0);
        const Spread belowSpread(below);
        const double mirrored = correlation(above, Spread(above), below, belowSpread);
        if (mirrored <= best) continue;  // what is subtracted below is never negative
        // What a mirror adds over what the band shares with the one above it anyway
        // (straight vertical edges run through both: a wall's corner, a drawing's shapes).
        const double ncc = mirrored - std::max(0.0, correlation(upper, Spread(upper), below, belowSpread));
        if (ncc > best) {
            best = ncc;
            row = h;
        }
    }
    return best;
}

// A cue over the labels' threshold, given its place in the band below the ceiling: what its
// ramp measured takes it up to kFoundCue, the evidence past the ramp's end (strength, 0..1)
// the rest. Photos whose measure passed the point where the ramp stops rising would all score
// kMaxCue otherwise, and an order among them would be none; a cue under the threshold keeps
// its value, so no photo gains or loses a label.
double banded(double cue, double strength) {
    if (cue <= kFoundFloor) return cue;
    const double t = rise(cue, kFoundFloor, kMaxCue);
    return kFoundFloor + t * (kFoundCue - kFoundFloor) + t * (kMaxCue - kFoundCue) * clamp01(strength);
}

}  // namespace

SceneEvidence measureScene(const cv::Mat& input, ExecuteMemo* memo) {
    SceneEvidence e;
    const cv::Mat bgr = sharedShrink(input, 256, memo);
    if (bgr.empty()) return e;
    cv::Mat hsv, grey;
    cv::cvtColor(bgr, hsv, cv::COLOR_BGR2HSV);
    cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
    std::vector<cv::Mat> ch;
    cv::split(hsv, ch);
    const cv::Mat &hue = ch[0], &sat = ch[1], &val = ch[2];

    // Local texture: the gradient magnitude averaged over 5 x 5 pixels.
    cv::Mat gx, gy, texture;
    cv::Sobel(grey, gx, CV_32F, 1, 0);
    cv::Sobel(grey, gy, CV_32F, 0, 1);
    cv::magnitude(gx, gy, texture);
    cv::blur(texture, texture, cv::Size(5, 5));
    const cv::Mat smooth = texture < 40, featureless = texture < 8, textured = texture >= 60;

    const int rows = bgr.rows, cols = bgr.cols;
    const cv::Rect topHalf(0, 0, cols, std::max(1, rows / 2));
    const cv::Rect bottomQuarter(0, rows - std::max(1, rows / 4), cols, std::max(1, rows / 4));
    const cv::Rect bottomThird(0, rows - std::max(1, rows / 3), cols, std::max(1, rows / 3));
    const cv::Rect lowerTwoThirds(0, rows / 3, cols, rows - rows / 3);
    const int edgeRows = std::max(1, rows / 20);

    // Sky: blue, pale grey-white or the warm colours of dusk, smooth, reaching the top edge.
    // A bright blue as weak as a pale one (saturation under 35) is pale: a white or
    // pale-blue wall, or white in shade, is as blue as that.
    const cv::Mat pale = (sat < 35) & (val >= 170);
    const cv::Mat blue = (hue >= 90) & (hue <= 130) & (sat >= 25) & (val >= 90) & ~pale;
    const cv::Mat warm = ((hue <= 25) | (hue >= 150)) & (sat >= 60) & (val >= 110);
    // Closed over 5 x 5 pixels first: the edge of a cloud or of the glow around the sun
    // splits no sky in two.
    cv::Mat skyCandidates = (blue | pale | warm) & smooth;
    cv::morphologyEx(skyCandidates, skyCandidates, cv::MORPH_CLOSE, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(5, 5)));
    const cv::Mat sky = componentsTouchingTop(skyCandidates & (blue | pale | warm), edgeRows);
    // Pale parts count as far as there is blue beside them (clouds in a blue sky): pale
    // alone is as often a white wall or a studio backdrop as an overcast sky.
    const double blueSky = share((sky & blue)(topHalf));
    e.skyShare = blueSky + std::min(blueSky, share((sky & pale)(topHalf)));
    e.skyTopEdge = share(sky(cv::Rect(0, 0, cols, std::min(edgeRows, rows))));
    e.skyBottomShare = share(sky(bottomQuarter));
    e.coolSkyShare = share((sky & (blue | pale))(topHalf));
    e.blueSkyImage = share(sky & blue);
    // Lit clouds of a sunset are warm but textured, and no smooth region.
    e.glowShare = share((((hue <= 25) | (hue >= 140)) & (sat >= 50) & (val >= 100))(topHalf));
    e.warmSkyShare = share((sky & warm)(topHalf));
    // Below a sky lies land, water or a town, with detail; below a gradient of a drawing or
    // the blurred background of a close-up lies more of the same.
    const cv::Rect bottomHalf(0, rows / 2, cols, rows - rows / 2);
    e.groundTexture = share((textured & ~sky)(bottomHalf));
    if (cv::countNonZero(sky) > 0) {
        e.skyOverGround = (cv::mean(val, sky)[0] - cv::mean(val(bottomThird))[0]) / 255.0;
    }

    // Water and snow: wide regions of the lower two thirds that do not run up to the top
    // edge (a wall or a backdrop does).
    const cv::Mat waterColour = (hue >= 80) & (hue <= 130) & (sat >= 35) & (val >= 40) & (texture < 80);
    const cv::Mat water = wideComponents(waterColour & ~componentsTouchingTop(waterColour, edgeRows), 0.7);
    // Water has ripples and reflections; a flat fill of blue is a drawing or a wall.
    e.waterShare = share(water(lowerTwoThirds)) * (1 - share((water & featureless)(lowerTwoThirds)) / std::max(1e-6, share(water(lowerTwoThirds))));
    // White that belongs to the sky region (joined to the top through smooth sky colours)
    // is cloud: clouds under a balloon fill the bottom of the frame as a snowfield would.
    const cv::Mat white = (sat < 40) & (val >= 175) & smooth & ~sky;
    const cv::Mat snow = wideComponents(white & ~componentsTouchingTop(white, edgeRows), 0.6);
    e.snowShare = share(snow(lowerTwoThirds));

    // Vegetation: green and textured (leaves and grass at a distance); a defocused
    // background marks a close-up.
    e.greenShare = share((hue >= 30) & (hue <= 90) & (sat >= 50) & (val >= 35) & textured);
    e.blurShare = share(featureless);
    // Petals: strongly saturated and bright, of any flower colour but green and blue.
    e.bloomShare = share(((hue <= 34) | (hue >= 135)) & (sat >= 110) & (val >= 120));

    e.mirror = mirrorSymmetry(grey, e.mirrorRow);
    if (e.mirror > 0) {
        // A reflection has the colours of what it mirrors, somewhat darker; trees standing on
        // a meadow are symmetric about a line too, but the meadow is green under a grey sky.
        const int band = std::max(2, rows / 6);
        const cv::Scalar above = cv::mean(bgr(cv::Rect(0, e.mirrorRow - band, cols, band)));
        const cv::Scalar below = cv::mean(bgr(cv::Rect(0, e.mirrorRow, cols, band)));
        const double sumAbove = above[0] + above[1] + above[2] + 1, sumBelow = below[0] + below[1] + below[2] + 1;
        double chroma = 0;
        for (int c = 0; c < 3; ++c) chroma += std::abs(above[c] / sumAbove - below[c] / sumBelow);
        const double ratio = sumBelow / sumAbove;
        if (chroma > 0.15 || ratio < 0.4 || ratio > 1.2) e.mirror = 0;
    }
    e.darkShare = share(val < 50);
    e.flatDarkShare = share((val < 50) & (texture < 1.5f));
    e.pointLights = countPointLights(val, e.lowerPointLights);

    // The statistics shrink the input to the same 256 pixels: the input's are bgr's.
    const ImageStats stats = sharedImageStats(input, memo);
    e.entropy = stats.entropy;
    e.colourfulness = stats.colourfulness;
    return e;
}

SceneEvidence sceneEvidence(const cv::Mat& bgr, ExecuteMemo* memo) {
    if (memo == nullptr) return measureScene(bgr);
    return memo->get<SceneEvidence>("scene-evidence:" + imageIdentity(bgr), [&] { return measureScene(bgr, memo); });
}

const std::vector<std::string>& sceneLabelNames() {
    static const std::vector<std::string> names = {"sky",    "greenery", "water",  "night",        "snow",
                                                   "sunset", "document", "people", "solid_colour", "colourful"};
    return names;
}

bool sceneCue(const std::string& label, const SceneEvidence& e, double& value) {
    // A region reaching deep into the bottom quarter is a backdrop (a blue wall, a white
    // studio), not a sky.
    const double backdrop = clamp01((e.skyBottomShare - 0.3) / 0.4);
    const double ground = clamp01((e.groundTexture - 0.03) / 0.12);
    // Calm water mirrors what stands above it, under a sky of cool colours (a lake at dusk, in
    // fog); a drawing's straight shapes are no mirror, their bands are alike anyway.
    const double mirrorWater = ramp(e.mirror, 0.45, 0.65) * clamp01((e.coolSkyShare - 0.5) / 0.3);
    // Lit clouds over a detailed ground in shadow (the sky brighter by 0.1 at least): a sunset
    // with its clouds; a warm close-up has no blue or pale sky beside it, no ground below or
    // no sky brighter than its bottom.
    const double glow = e.coolSkyShare >= 0.05
                            ? ramp(e.glowShare, 0.1, 0.35) * clamp01((e.skyOverGround - 0.1) / 0.1) * clamp01((e.groundTexture - 0.3) / 0.2)
                            : 0.0;
    if (label == "sky") {
        // Above a mirror lies a sky, and a sunset is one; a sky seen from below fills the frame
        // with blue and has no ground, but clouds or something flying in it (a frame of
        // featureless blue is a wall).
        const double fromBelow = ramp(e.blueSkyImage, 0.65, 0.8) * (1 - clamp01((e.blurShare - 0.5) / 0.3));
        value = std::max({ramp(e.skyShare, 0.15, 0.55) * (1 - backdrop) * ground, fromBelow, mirrorWater, glow});
        // More sky than the ramp needs, and a sky spanning the top edge from side to side.
        value = banded(value, 0.5 * rise(e.skyShare, 0.55, 1.0) + 0.5 * e.skyTopEdge);
    } else if (label == "sunset") {
        // A warm region is a sunset's sky beside some blue or pale sky, or above a dark and
        // detailed ground; alone it is a flower, fur or food as often.
        const bool skyLike = e.coolSkyShare >= 0.02 || e.groundTexture >= 0.4;
        value = skyLike ? ramp(e.warmSkyShare, 0.05, 0.3) * clamp01(e.skyOverGround / 0.2) * (1 - backdrop) * ground : 0.0;
        value = banded(std::max(value, glow), std::max(rise(e.warmSkyShare, 0.3, 0.6), rise(e.glowShare, 0.35, 0.7)));
    }
    else if (label == "water") {
        value = banded(std::max(ramp(e.waterShare, 0.1, 0.45) * ground, mirrorWater),
                       std::max(rise(e.waterShare, 0.45, 1.0), rise(e.mirror, 0.65, 1.0)));
    }
    else if (label == "snow") value = banded(ramp(e.snowShare, 0.2, 0.55) * (e.skyShare >= 0.1 ? 1.0 : 0.5), rise(e.snowShare, 0.55, 1.0));
    else if (label == "greenery") {
        value = banded(ramp(e.greenShare, 0.1, 0.4) * (1 - clamp01((e.blurShare - 0.3) / 0.4)), rise(e.greenShare, 0.4, 1.0));
    }
    else if (label == "night") {
        // Flat black is a drawing's background, dark green a forest in shade.
        const double dark = e.darkShare - e.flatDarkShare;
        value = ramp(dark, 0.35, 0.7) * clamp01((e.pointLights - 2) / 6.0) * (e.greenShare < 0.1 ? 1.0 : 0.3);
        value = banded(value, 0.5 * rise(dark, 0.7, 1.0) + 0.5 * rise(e.pointLights, 8, 40));
    }
    else if (label == "document") value = 0;  // the words the text reader finds (text_cues.h), not a region
    else if (label == "solid_colour") value = kMaxCue * clamp01(1 - 2 * e.entropy);
    else if (label == "colourful") value = std::min(kMaxCue, e.colourfulness);
    else if (label == "people") value = 0;
    else if (label == "galaxy") {
        // Stars fill a frame that is dark almost everywhere, as many in its bottom half as in
        // its top: there is no horizon (a night landscape has its lamps below, its stars above).
        const double spread = e.pointLights > 0 ? double(e.lowerPointLights) / e.pointLights : 0.0;
        value = kGalaxyCue * rise(e.darkShare - e.flatDarkShare, 0.6, 0.85) * rise(e.pointLights, 10, 40) * rise(spread, 0.2, 0.35);
    }
    else if (label == "flowers") {
        // A close-up of blooms (0.4 to 0.9 of the image on the calibration flowers); a sky
        // above it makes it sand, a sunset or a landscape instead.
        double sky = 0;
        sceneCue("sky", e, sky);
        value = kFlowerCue * clamp01((e.bloomShare - 0.2) / 0.4) * (1 - sky / kMaxCue);
    }
    else return false;
    return true;
}

double flowerClassCue(double flowers, double drawnShare, const std::vector<ObjectDetection>& objects) {
    // COCO's bottle (39) to bowl (45), and dining table (60), found: weaker boxes are mostly
    // wrong, as the "dining table" of 0.21 behind a flower close-up; the coffee sample's table
    // scores 0.52.
    constexpr float kFound = 0.3f;
    const bool tableware = std::any_of(objects.begin(), objects.end(), [](const ObjectDetection& o) {
        return o.score >= kFound && ((o.cocoClass >= 39 && o.cocoClass <= 45) || o.cocoClass == 60);
    });
    return tableware ? 0.0 : flowers * (1 - clamp01(drawnShare));
}

}  // namespace kv
