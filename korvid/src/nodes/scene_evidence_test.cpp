// The scene evidence on drawn scenes whose answer is known: a label needs its region in
// its place, and no cue claims certainty.
#include "nodes/qr_code_cue.h"
#include "nodes/scene_evidence.h"

#include <map>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>
#include <opencv2/objdetect.hpp>

namespace kv {
namespace {

std::map<std::string, double> cues(const cv::Mat& bgr) {
    const SceneEvidence e = measureScene(bgr);
    std::map<std::string, double> out;
    for (const std::string& label : sceneLabelNames()) {
        double v = -1;
        EXPECT_TRUE(sceneCue(label, e, v)) << label;
        EXPECT_GE(v, 0.0) << label;
        EXPECT_LE(v, kMaxCue) << label;
        out[label] = v;
    }
    return out;
}

// Random detail in blocks of 4 pixels (it survives the analysis' down-scaling), each
// channel between low and high.
cv::Mat blocks(cv::Size size, int seed, const cv::Scalar& low, const cv::Scalar& high) {
    cv::Mat noise(size.height / 4, size.width / 4, CV_8UC3), out;
    cv::RNG rng(seed);
    rng.fill(noise, cv::RNG::UNIFORM, low, high);
    cv::resize(noise, out, size, 0, 0, cv::INTER_NEAREST);
    return out;
}

// Grass-like texture: green with strong detail.
cv::Mat grass(cv::Size size, int seed) { return blocks(size, seed, cv::Scalar(20, 90, 10), cv::Scalar(70, 200, 60)); }

// A sky from deep to pale blue over the top half (brightening towards the horizon), a
// ground below: a meadow photographed on a clear day.
cv::Mat landscape(const cv::Scalar& top, const cv::Scalar& horizon, const cv::Mat& ground) {
    cv::Mat image(400, 600, CV_8UC3);
    for (int y = 0; y < 200; ++y) image.row(y).setTo(top + (horizon - top) * (y / 200.0));
    ground.copyTo(image(cv::Rect(0, 200, 600, 200)));
    return image;
}

TEST(SceneEvidence, LandscapesHaveTheirSkyGroundAndSunsetWhereTheyBelong) {
    const cv::Mat meadow = landscape(cv::Scalar(200, 120, 40), cv::Scalar(235, 190, 140), grass({600, 200}, 1));
    auto c = cues(meadow);
    EXPECT_GE(c["sky"], 0.5);
    EXPECT_GE(c["greenery"], 0.5);
    for (const char* absent : {"sunset", "night", "snow", "water", "document", "people"}) EXPECT_LT(c[absent], 0.2) << absent;

    // The same ground under an orange glow beside a strip of blue: a sunset, its ground darker.
    cv::Mat dusk = landscape(cv::Scalar(40, 110, 235), cv::Scalar(60, 170, 250), grass({600, 200}, 2));
    dusk(cv::Rect(0, 0, 600, 30)).setTo(cv::Scalar(190, 120, 60));
    EXPECT_GE(cues(dusk)["sunset"], 0.5);

    // Water: a wide band of rippled blue below the horizon, sky above.
    cv::Mat lake = landscape(cv::Scalar(200, 120, 40), cv::Scalar(235, 190, 140), grass({600, 200}, 3));
    blocks({600, 120}, 4, cv::Scalar(150, 90, 30), cv::Scalar(190, 120, 50)).copyTo(lake(cv::Rect(0, 200, 600, 120)));
    EXPECT_GE(cues(lake)["water"], 0.4);
}

// The same clear sky down to a horizon at the given row of 400, a meadow below it.
cv::Mat meadowUnder(int horizon) {
    cv::Mat image = grass({600, 400}, 21);
    const cv::Scalar top(200, 120, 40), low(235, 190, 140);
    for (int y = 0; y < horizon; ++y) image.row(y).setTo(top + (low - top) * (y / double(horizon)));
    return image;
}

TEST(SceneEvidence, MoreSkyRanksHigherAndNoSkyStaysUnderTheThreshold) {
    // Skies past the point where the sky's measure stops rising (over 55 % of the top half)
    // used to score the ceiling alike; more sky now ranks higher, below the ceiling.
    double previous = 0;
    for (int horizon : {130, 160, 200}) {
        const double sky = cues(meadowUnder(horizon))["sky"];
        EXPECT_GT(sky, previous) << horizon;
        EXPECT_GE(sky, kFoundCue) << horizon;
        previous = sky;
    }
    // A sky spanning only part of the top edge (a tree in its corner) ranks under one
    // spanning all of it, though both are found.
    cv::Mat tree = meadowUnder(200);
    grass({240, 120}, 22).copyTo(tree(cv::Rect(0, 0, 240, 120)));
    const double cornered = cues(tree)["sky"];
    EXPECT_GE(cornered, 0.5);
    EXPECT_LT(cornered, cues(meadowUnder(160))["sky"]);
    // A strip of sky keeps the value it had under the threshold, and a meadow without sky
    // gains none: more greenery ranks higher instead.
    auto strip = cues(meadowUnder(40));
    EXPECT_LT(strip["sky"], 0.5);
    auto meadow = cues(grass({600, 400}, 23));
    EXPECT_LT(meadow["sky"], 0.1);
    EXPECT_GT(meadow["greenery"], strip["greenery"]);
    EXPECT_GE(strip["greenery"], 0.5);
}

TEST(SceneEvidence, AStillLakeMirrorsItsShoreUnderAGreySky) {
    // Fog: a pale grey sky, a line of dark trees on the far shore, and below it their
    // reflection, darker and rippled. No blue anywhere: only the mirror tells water.
    cv::Mat lake(400, 600, CV_8UC3);
    for (int y = 0; y < 200; ++y) lake.row(y).setTo(cv::Scalar::all(235 - y / 8));
    cv::RNG rng(7);
    for (int x = 0; x < 600; x += 6) {
        const int height = rng.uniform(8, 30);
        lake(cv::Rect(x, 200 - height, 4, height)).setTo(cv::Scalar(60, 70, 60));
    }
    cv::Mat reflection;
    cv::flip(lake(cv::Rect(0, 0, 600, 200)), reflection, 0);
    reflection.convertTo(reflection, -1, 0.8);
    for (int y = 0; y < 200; y += 9) cv::line(reflection, {0, y}, {599, y}, cv::Scalar::all(150), 1);
    reflection.copyTo(lake(cv::Rect(0, 200, 600, 200)));
    auto c = cues(lake);
    EXPECT_GE(c["water"], 0.5);
    EXPECT_GE(c["sky"], 0.5);
    EXPECT_LT(c["sunset"], 0.2);

    // The same picture without its reflection (the trees stand on a meadow) has no water.
    grass({600, 200}, 8).copyTo(lake(cv::Rect(0, 200, 600, 200)));
    EXPECT_LT(cues(lake)["water"], 0.2);
}

TEST(SceneEvidence, CloseUpsAndBackdropsAreNoScene) {
    // Bright warm things filling the frame (pencils, fruit) around a white patch at the top:
    // warm above a detailed bottom, but nothing darker below a sky: no sunset.
    cv::Mat warm = blocks({600, 400}, 9, cv::Scalar(0, 60, 220), cv::Scalar(60, 200, 255));
    cv::circle(warm, {300, 20}, 70, cv::Scalar(245, 245, 245), cv::FILLED);
    EXPECT_LT(cues(warm)["sunset"], 0.3);
    EXPECT_LT(cues(warm)["sky"], 0.3);


    // An orange flower filling a blurred frame: warm, smooth and at the top, but no sky over
    // a ground; no sunset, no sky.
    cv::Mat flower(400, 600, CV_8UC3, cv::Scalar(30, 120, 230));
    cv::circle(flower, {300, 200}, 150, cv::Scalar(0, 90, 250), cv::FILLED);
    cv::GaussianBlur(flower, flower, cv::Size(31, 31), 0);
    auto c = cues(flower);
    EXPECT_LT(c["sunset"], 0.2);
    EXPECT_LT(c["sky"], 0.2);

    // The flower's blooms fill much of the frame: a flower, below certainty; the meadow's sky
    // over sand-coloured ground is none.
    double bloom = -1;
    ASSERT_TRUE(sceneCue("flowers", measureScene(flower), bloom));
    EXPECT_GE(bloom, 0.3);
    EXPECT_LE(bloom, kFlowerCue);
    cv::Mat beach = landscape(cv::Scalar(200, 120, 40), cv::Scalar(235, 190, 140), blocks({600, 200}, 5, cv::Scalar(0, 80, 160), cv::Scalar(90, 200, 255)));
    ASSERT_TRUE(sceneCue("flowers", measureScene(beach), bloom));
    EXPECT_LT(bloom, 0.1);

    // A plain blue wall or studio backdrop: blue from top to bottom is no sky and no water.
    const cv::Mat wall(400, 600, CV_8UC3, cv::Scalar(200, 140, 60));
    c = cues(wall);
    EXPECT_LT(c["sky"], 0.2);
    EXPECT_LT(c["water"], 0.2);
    EXPECT_GE(c["solid_colour"], 0.5);

    // A pale blue wall (saturation 28) behind a cat on grey pavement: as blue as white in
    // shade, so no sky; a hazy sky of the same brightness (saturation 72 to 37 at the
    // horizon) over the same pavement is one.
    const cv::Mat pavement = blocks({600, 200}, 6, cv::Scalar(90, 90, 90), cv::Scalar(200, 200, 200));
    c = cues(landscape(cv::Scalar(225, 215, 200), cv::Scalar(225, 215, 200), pavement));
    EXPECT_LT(c["sky"], 0.2);
    c = cues(landscape(cv::Scalar(230, 200, 165), cv::Scalar(240, 225, 205), pavement));
    EXPECT_GE(c["sky"], 0.5);

    // White from top to bottom is a backdrop, not snow.
    EXPECT_LT(cues(cv::Mat(400, 600, CV_8UC3, cv::Scalar(245, 245, 245)))["snow"], 0.3);
}

TEST(SceneEvidence, NightNeedsPointLightsInADarkPhoto) {
    // A dark street: noise in the dark, a dozen small lamps.
    cv::Mat night(400, 600, CV_8UC3);
    cv::RNG rng(5);
    rng.fill(night, cv::RNG::UNIFORM, cv::Scalar(5, 5, 5), cv::Scalar(35, 30, 30));
    for (int i = 0; i < 12; ++i) cv::circle(night, {40 + 45 * i, 150 + (i % 3) * 60}, 2, cv::Scalar(230, 240, 255), cv::FILLED);
    EXPECT_GE(cues(night)["night"], 0.5);

    // The same lamps on a flat black drawing, and a dark photo without lights.
    cv::Mat drawing(400, 600, CV_8UC3, cv::Scalar(0, 0, 0));
    for (int i = 0; i < 12; ++i) cv::circle(drawing, {40 + 45 * i, 150 + (i % 3) * 60}, 2, cv::Scalar(230, 240, 255), cv::FILLED);
    EXPECT_LT(cues(drawing)["night"], 0.3);
    rng.fill(night, cv::RNG::UNIFORM, cv::Scalar(5, 5, 5), cv::Scalar(35, 30, 30));
    EXPECT_LT(cues(night)["night"], 0.2);
}

TEST(SceneEvidence, SnowLiesBelowAHorizonCloudsJoinTheSky) {
    // A snowfield: white ground under a dark line of trees, a blue sky above.
    cv::Mat field = landscape(cv::Scalar(200, 120, 40), cv::Scalar(235, 190, 140), cv::Mat(200, 600, CV_8UC3, cv::Scalar(245, 245, 245)));
    blocks({600, 24}, 11, cv::Scalar(20, 40, 20), cv::Scalar(70, 110, 70)).copyTo(field(cv::Rect(0, 188, 600, 24)));
    EXPECT_GE(cues(field)["snow"], 0.5);

    // Seen from a balloon: the same white below the same blue, joined to it without a
    // horizon, is a bank of clouds; and the sky it belongs to does not turn it into snow.
    cv::Mat clouds(400, 600, CV_8UC3, cv::Scalar(245, 245, 245));
    for (int y = 0; y < 240; ++y) clouds.row(y).setTo(cv::Scalar(200, 120, 40) + (cv::Scalar(245, 245, 245) - cv::Scalar(200, 120, 40)) * (y / 240.0));
    EXPECT_LT(cues(clouds)["snow"], 0.1);
}

TEST(SceneEvidence, AGalaxyIsStarsFromTopToBottom) {
    // A deep field: dark noise with stars all over the frame.
    cv::Mat field(400, 600, CV_8UC3);
    cv::RNG rng(12);
    rng.fill(field, cv::RNG::UNIFORM, cv::Scalar(0, 0, 0), cv::Scalar(30, 30, 30));
    for (int i = 0; i < 60; ++i) cv::circle(field, {rng.uniform(10, 590), rng.uniform(10, 390)}, 2, cv::Scalar(240, 235, 250), cv::FILLED);
    double galaxy = -1;
    ASSERT_TRUE(sceneCue("galaxy", measureScene(field), galaxy));
    EXPECT_GE(galaxy, 0.4);
    EXPECT_LE(galaxy, kGalaxyCue);
    double night = 0;
    sceneCue("night", measureScene(field), night);
    EXPECT_GE(night, 0.5);

    // The same stars above a dark, lightless ground (a night landscape) or a town's few
    // lamps below: a night, no galaxy.
    cv::Mat landscape = field.clone();
    rng.fill(landscape(cv::Rect(0, 200, 600, 200)), cv::RNG::UNIFORM, cv::Scalar(0, 0, 0), cv::Scalar(30, 30, 30));
    ASSERT_TRUE(sceneCue("galaxy", measureScene(landscape), galaxy));
    EXPECT_LT(galaxy, 0.1);
    cv::Mat town(400, 600, CV_8UC3);
    rng.fill(town, cv::RNG::UNIFORM, cv::Scalar(0, 0, 0), cv::Scalar(30, 30, 30));
    for (int i = 0; i < 12; ++i) cv::circle(town, {40 + 45 * i, 250 + (i % 3) * 40}, 2, cv::Scalar(230, 240, 255), cv::FILLED);
    ASSERT_TRUE(sceneCue("galaxy", measureScene(town), galaxy));
    EXPECT_LT(galaxy, 0.1);
    // Stars on a flat black drawing are no photo of the sky.
    cv::Mat drawing(400, 600, CV_8UC3, cv::Scalar(0, 0, 0));
    for (int i = 0; i < 60; ++i) cv::circle(drawing, {rng.uniform(10, 590), rng.uniform(10, 390)}, 2, cv::Scalar(240, 235, 250), cv::FILLED);
    ASSERT_TRUE(sceneCue("galaxy", measureScene(drawing), galaxy));
    EXPECT_LT(galaxy, 0.1);
}

TEST(SceneEvidence, FlowersGiveWayToFoundTablewareAndDrawings) {
    const cv::Rect2f box(10, 10, 100, 100);
    constexpr int kCup = 41, kBowl = 45, kDiningTable = 60, kBanana = 46;
    // A red cup or a laid table found beside the blooms: a dish, not a flower.
    EXPECT_EQ(flowerClassCue(0.5, 0, {{box, kDiningTable, 0.52f}}), 0.0);
    EXPECT_EQ(flowerClassCue(0.5, 0, {{box, kCup, 0.3f}}), 0.0);
    EXPECT_EQ(flowerClassCue(0.5, 0, {{box, kBowl, 0.9f}}), 0.0);
    // A weak table behind a close-up, or fruit, leaves the flower as measured.
    EXPECT_DOUBLE_EQ(flowerClassCue(0.5, 0, {{box, kDiningTable, 0.21f}, {box, kBanana, 0.6f}, {box, kCocoPerson, 0.9f}}), 0.5);
    EXPECT_DOUBLE_EQ(flowerClassCue(0.5, 0, {}), 0.5);
    // Blooms on a picture the classifier calls drawn count only by the photographic share.
    EXPECT_DOUBLE_EQ(flowerClassCue(0.5, 0.75, {}), 0.125);
    EXPECT_EQ(flowerClassCue(0.5, 1.5, {}), 0.0);
}

TEST(SceneEvidence, ExtremeShapesAndTinyImagesAreSafe) {
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(16384, 1), cv::Size(1, 16384), cv::Size(3, 2)}) {
        const auto c = cues(cv::Mat(size, CV_8UC3, cv::Scalar(200, 150, 90)));
        EXPECT_LT(c.at("sunset"), 0.1) << size;
    }
}

TEST(QrCodeCue, ReadableCodesScoreHighEverythingElseNothing) {
    cv::Mat code, page;
    cv::QRCodeEncoder::create()->encode("https://example.org/vqfe", code);
    cv::resize(code, code, code.size() * 8, 0, 0, cv::INTER_NEAREST);
    cv::copyMakeBorder(code, page, 64, 64, 64, 64, cv::BORDER_CONSTANT, cv::Scalar(255));
    cv::cvtColor(page, page, cv::COLOR_GRAY2BGR);
    EXPECT_EQ(qrCodeCue(page), kFoundCode);
    cv::Mat turned;
    cv::warpAffine(page, turned, cv::getRotationMatrix2D({page.cols / 2.f, page.rows / 2.f}, 20, 0.8), page.size(), cv::INTER_LINEAR,
                   cv::BORDER_CONSTANT, cv::Scalar::all(255));
    EXPECT_EQ(qrCodeCue(turned), kFoundCode);
    EXPECT_EQ(qrCodeCue(blocks({600, 400}, 7, cv::Scalar(0, 0, 0), cv::Scalar(255, 255, 255))), 0.0);
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(16384, 1), cv::Size(1, 16384), cv::Size(20, 20), cv::Size(16384, 30)}) {
        EXPECT_EQ(qrCodeCue(cv::Mat(size, CV_8UC3, cv::Scalar(255, 255, 255))), 0.0) << size;
    }
}

}  // namespace
}  // namespace kv
