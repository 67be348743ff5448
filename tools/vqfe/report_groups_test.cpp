#include "tools/vqfe/report_groups.h"

#include <gtest/gtest.h>

namespace vqfe {
namespace {

TEST(ReportGroups, NamesTellApartFilesOfOneNameOnly) {
    const auto names = shortNames({"/p/2023/x.jpg", "/p/phone/x.jpg", "/p/2023/y.jpg", "/q/a/2023/z.jpg",
                                   "/q/b/2023/z.jpg", "0123abcd", "/p/2023/y.jpg"});
    EXPECT_EQ(names.size(), 6u);
    EXPECT_EQ(names.at("/p/2023/x.jpg"), "2023/x.jpg");
    EXPECT_EQ(names.at("/p/phone/x.jpg"), "phone/x.jpg");
    EXPECT_EQ(names.at("/p/2023/y.jpg"), "y.jpg");
    // One folder part is not enough when both folders share their name.
    EXPECT_EQ(names.at("/q/a/2023/z.jpg"), "a/2023/z.jpg");
    EXPECT_EQ(names.at("/q/b/2023/z.jpg"), "b/2023/z.jpg");
    EXPECT_EQ(names.at("0123abcd"), "0123abcd");
}

TEST(ReportGroups, NamesOfPathsEndingInOneAnother) {
    // A relative path that is the ending of an absolute one: both kept whole, never the same.
    const auto names = shortNames({"x.jpg", "/home/me/x.jpg", "/srv/x.jpg"});
    EXPECT_EQ(names.at("x.jpg"), "x.jpg");
    EXPECT_EQ(names.at("/home/me/x.jpg"), "me/x.jpg");
    EXPECT_EQ(names.at("/srv/x.jpg"), "srv/x.jpg");
}

TEST(ReportGroups, SimilarGroupsThatAreOnlyCopiesAreLeftOut) {
    const std::vector<std::vector<std::string>> copies = {{"a", "b"}, {"d", "e"}};
    const std::vector<std::vector<std::string>> similar = {{"a", "b"}, {"c", "d", "e"}, {"f", "g"}};
    const std::vector<std::vector<std::string>> expected = {{"c", "d", "e"}, {"f", "g"}};
    EXPECT_EQ(beyondCopies(similar, copies), expected);
    EXPECT_TRUE(beyondCopies(copies, copies).empty());
}

}  // namespace
}  // namespace vqfe
