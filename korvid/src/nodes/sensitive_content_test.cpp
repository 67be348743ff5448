#include "nodes/sensitive_content.h"

#include <gtest/gtest.h>

#include "nodes/content_cues.h"

namespace kv {
namespace {

ContentScores scores(float drawing, float hentai, float neutral, float porn, float sexy) { return {drawing, hentai, neutral, porn, sexy}; }

TEST(SensitiveContent, PornAndSexyNeedAPersonOrASureNetwork) {
    // A skin-toned close-up of a flower: porn 0.77, and no person anywhere.
    const ContentScores flower = scores(0.006f, 0.034f, 0.105f, 0.774f, 0.081f);
    EXPECT_LT(sensitiveConfidence(flower, 0.3, false), 0.1f);
    // With a person in the picture the network's values stand, unchanged.
    EXPECT_FLOAT_EQ(sensitiveConfidence(flower, 0.3, true), sensitiveConfidence(flower, 0.3));
    EXPECT_GE(sensitiveConfidence(flower, 0.3, true), 0.5f);
    // A network sure beyond what textures reach keeps its value without a person (a close-up
    // the detector cannot call a person); halfway between the margins counts half.
    const ContentScores sure = scores(0.01f, 0.01f, 0.02f, 0.96f, 0);
    EXPECT_NEAR(sensitiveMargin(sure), 0.94, 1e-6);
    EXPECT_FLOAT_EQ(sensitiveConfidence(sure, 0.3, false), sensitiveConfidence(sure, 0.3));
    const ContentScores halfway = scores(0, 0, 0.1f, 0.925f, 0);
    EXPECT_NEAR(sensitiveConfidence(halfway, 0.3, false), 0.5 * 0.925, 1e-5);
    // Sexy's margin counts like porn's.
    EXPECT_NEAR(sensitiveMargin(scores(0.02f, 0, 0.03f, 0, 0.95f)), 0.92, 1e-6);
    // Drawn explicit content (hentai) needs no detected person.
    const ContentScores drawn = scores(0.2f, 0.7f, 0.05f, 0.05f, 0);
    EXPECT_NEAR(sensitiveConfidence(drawn, 0.3, false), 0.7, 1e-6);
    // Nothing sensitive stays nothing; the result stays in 0..1.
    EXPECT_FLOAT_EQ(sensitiveConfidence(scores(0, 0, 1, 0, 0), 0.3, false), 0.f);
    EXPECT_LE(sensitiveConfidence(scores(0, 0.5f, 0, 0.5f, 1), 1.0, true), 1.f);
}

}  // namespace
}  // namespace kv
