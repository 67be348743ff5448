#include "jni/string_utils.h"

#include <gtest/gtest.h>

#include <string>

namespace VQFeature {
namespace {

TEST(StrContainsTest, ShortTexts) {
    EXPECT_EQ(strContains("abc", "bc"), 1);
    EXPECT_EQ(strContains("abc", "cd"), 0);
    EXPECT_EQ(strContains("ab", "abc"), -1);
    EXPECT_EQ(strContains("abc", ""), 0);  // an empty text is never contained
    EXPECT_EQ(strContains("", ""), 0);
    EXPECT_EQ(strContains(nullptr, nullptr), 0);
    EXPECT_EQ(strContains(nullptr, "a"), -1);
    EXPECT_EQ(strContains("a", nullptr), 0);
    // A partial match steps back to the byte after its start.
    EXPECT_EQ(strContains("aab", "ab"), 1);
    EXPECT_EQ(strContains("abababc", "ababc"), 1);
    EXPECT_EQ(strContains("abcab", "abd"), 0);
    EXPECT_EQ(strContains("xyz", "xyz"), 1);
}

TEST(StrContainsTest, LongTextsKeepReachedMatchesAndNeverHang) {
    // A match within the first 256 bytes is reached by the 8-bit scan.
    std::string text(300, 'a');
    text.replace(10, 3, "xyz");
    EXPECT_EQ(strContains(text.c_str(), "xyz"), 1);
    // No match: the wrapped scan would cycle forever; it answers 0.
    EXPECT_EQ(strContains(std::string(256, 'a').c_str(), "b"), 0);
    EXPECT_EQ(strContains(std::string(1000, 'a').c_str(), "aab"), 0);
    // A match beyond byte 255 is never reached by the wrapping scan.
    std::string late(400, 'a');
    late.replace(300, 1, "q");
    EXPECT_EQ(strContains(late.c_str(), "q"), 0);
    EXPECT_EQ(strContains(std::string(256, 'a').c_str(), ""), 0);
    // 255 bytes still ends normally.
    std::string edge(255, 'a');
    EXPECT_EQ(strContains(edge.c_str(), "b"), 0);
    edge.back() = 'b';
    EXPECT_EQ(strContains(edge.c_str(), "ab"), 1);
}

TEST(SplitJoinTest, SplitCutsAtAnySeparatorAndDropsEmptyPieces) {
    using V = std::vector<std::string>;
    EXPECT_EQ(split("a b"), (V{"a", "b"}));
    EXPECT_EQ(split("a,b;c", ",;"), (V{"a", "b", "c"}));
    EXPECT_EQ(split("  a  b "), (V{"", "a", "b"}));
    EXPECT_EQ(split(",a", ","), (V{"", "a"}));
    EXPECT_EQ(split(" a"), (V{"", "a"}));
    EXPECT_EQ(split("a,,b,", ","), (V{"a", "b"}));
    EXPECT_EQ(split(""), V{});
    EXPECT_EQ(split("   "), V{""});
    EXPECT_EQ(split("abc", ""), (V{"abc"}));
    EXPECT_EQ(split("abc", "x"), (V{"abc"}));
}

TEST(SplitJoinTest, JoinSkipsTheSeparatorWhileTheResultIsEmpty) {
    EXPECT_EQ(join({"a", "b"}), "a,b");
    EXPECT_EQ(join({"a", "b", "c"}, " - "), "a - b - c");
    EXPECT_EQ(join({"", "a"}, ","), "a");
    EXPECT_EQ(join({"", "", "a", "", "b"}, ","), "a,,b");
    EXPECT_EQ(join({}), "");
    EXPECT_EQ(join({"x"}), "x");
}

}  // namespace
}  // namespace VQFeature
