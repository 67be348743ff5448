// The nodes' use of the content classifier's probabilities, on made-up probabilities.
#include "nodes/content_cues.h"

#include <gtest/gtest.h>

#include <limits>

namespace kv {
namespace {

ContentScores scores(float drawing, float hentai, float neutral, float porn, float sexy) {
    return {drawing, hentai, neutral, porn, sexy};
}

TEST(ContentCues, SensitiveConfidence) {
    // Explicit classes count whole, drawn (hentai) as much as photographed.
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0, 0, 0.1f, 0.9f, 0), 0.3), 0.9f);
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0.1f, 0.8f, 0.1f, 0, 0), 0.3), 0.8f);
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0, 0.3f, 0, 0.4f, 0.3f), 0.3), 0.79f);
    // A bathing suit (sexy alone) stays below the default threshold 0.5.
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0, 0, 0.05f, 0, 0.95f), 0.3), 0.285f);
    EXPECT_LT(sensitiveConfidence(scores(0, 0, 0.05f, 0, 0.95f), 0.3), 0.5f);
    // Drawings and neutral photos are not sensitive; the sum stays a probability.
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0.7f, 0, 0.3f, 0, 0), 0.3), 0.f);
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0, 0.5f, 0, 0.5f, 1), 1.0), 1.f);
}

TEST(ContentCues, DrawingLabels) {
    const ContentScores drawn = scores(0.9f, 0.05f, 0.05f, 0, 0), photo = scores(0.02f, 0, 0.95f, 0, 0.03f);
    // Coloured drawings are anime, grey ones sketches; a photo is neither.
    // Kinds of drawing, not the network's own class: at most 0.75 of the drawn share.
    EXPECT_NEAR(animeCue(drawn, 0.5), 0.75 * 0.95, 1e-6);
    EXPECT_NEAR(sketchCue(drawn, 0.5), 0.0, 1e-6);
    EXPECT_NEAR(sketchCue(drawn, 0.05), 0.75 * 0.95, 1e-6);
    EXPECT_NEAR(animeCue(drawn, 0.05), 0.0, 1e-6);
    EXPECT_NEAR(animeCue(drawn, 0.225), 0.75 * 0.95 / 2, 1e-6);
    EXPECT_NEAR(animeCue(drawn, 0.225) + sketchCue(drawn, 0.225), 0.75 * 0.95, 1e-6);
    EXPECT_LT(animeCue(scores(1, 0, 0, 0, 0), 1.0), 0.8);
    EXPECT_LT(animeCue(photo, 0.5), 0.05);
    EXPECT_LT(sketchCue(photo, 0.0), 0.05);
}

TEST(ContentCues, DetectionsOnDrawings) {
    const ContentScores painting = scores(0.6f, 0, 0.4f, 0, 0), photo = scores(0.3f, 0.1f, 0.6f, 0, 0);
    EXPECT_FALSE(standsOnPicture(painting, 0.59f, 0.6f));  // a weak pet on a painting
    EXPECT_TRUE(standsOnPicture(painting, 0.6f, 0.6f));    // a strong one stands
    EXPECT_TRUE(standsOnPicture(photo, 0.36f, 0.6f));      // on a photo every detection stands
    EXPECT_FALSE(standsOnPicture(scores(0.3f, 0.2f, 0.5f, 0, 0), 0.4f, 0.6f));  // hentai is drawn too
}

// A NaN from the network or the colour measure is no measurement: never a confident label.
TEST(ContentCues, NaNIsNothing) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const ContentScores broken = scores(nan, nan, nan, nan, nan), drawn = scores(0.9f, 0.05f, 0.05f, 0, 0);
    EXPECT_EQ(sensitiveConfidence(broken, 0.3), 0.f);
    EXPECT_EQ(sensitiveConfidence(scores(0, 0, 0, nan, 0.9f), 0.3), 0.f);
    for (const double colourfulness : {0.05, 0.5, double(nan)}) {
        EXPECT_EQ(animeCue(broken, colourfulness), 0.0) << colourfulness;
        EXPECT_EQ(sketchCue(broken, colourfulness), 0.0) << colourfulness;
    }
    EXPECT_EQ(animeCue(drawn, nan), 0.0);
    EXPECT_EQ(sketchCue(drawn, nan), 0.0);
    EXPECT_FALSE(standsOnPicture(broken, 0.5f, 0.6f));  // only a strong detection stands
}

}  // namespace
}  // namespace kv
