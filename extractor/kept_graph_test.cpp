#include "extractor/kept_graph.h"

#include <gtest/gtest.h>

namespace VQFeature {
namespace {

// The text carried until a run proves the load, none after; another graph's request
// drops the held one, so coming back to the first carries its text again.
TEST(KeptGraphTest, CarriesTheTextUntilARunThenOnlyForAnotherGraph) {
    KeptGraph kept;
    EXPECT_EQ(kept.requestText("{a}"), "{a}");
    EXPECT_EQ(kept.requestText("{a}"), "{a}") << "a request that ran nothing proves no load";
    kept.ran("{a}");
    EXPECT_EQ(kept.requestText("{a}"), "");
    EXPECT_EQ(kept.requestText("{a}"), "") << "a kept graph stays until another is sent";
    EXPECT_EQ(kept.requestText("{b}"), "{b}");
    EXPECT_FALSE(kept.holds("{a}"));
    EXPECT_EQ(kept.requestText("{a}"), "{a}");
    kept.ran("{a}");
    EXPECT_TRUE(kept.holds("{a}"));
    EXPECT_EQ(KeptGraph::keyAliases({"k1", "k2"}, {"f1", "f2"}),
              (std::map<std::string, std::string>{{"k1", "f1"}, {"k2", "f2"}}));
}

}  // namespace
}  // namespace VQFeature
