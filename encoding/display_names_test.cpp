#include "encoding/display_names.h"

#include <set>
#include <string>

#include <gtest/gtest.h>

#include "dnn/shown_class.h"
#include "testing/builtin_templates.h"

namespace VQFeature {
namespace {

// The class labels of the classification template, as the blobs carry them.
std::vector<std::string> templateLabels() {
    const std::string text = kv::testing::builtinTemplate(121);
    const std::string key = "\"class_labels\":\"";
    const size_t start = text.find(key) + key.size();
    const std::string list = text.substr(start, text.find('"', start) - start);
    std::vector<std::string> labels;
    size_t from = 0;
    for (size_t comma; (comma = list.find(',', from)) != std::string::npos; from = comma + 1) labels.push_back(list.substr(from, comma - from));
    labels.push_back(list.substr(from));
    return labels;
}

TEST(DisplayNames, EveryClassAndSceneLabelHasAShortNameOfItsOwn) {
    const std::vector<std::string> labels = templateLabels();
    ASSERT_EQ(labels.size(), 208u);
    std::set<std::string> names;
    for (const std::string& label : labels) {
        const std::string name = displayName(label);
        EXPECT_NE(name, label) << label;
        EXPECT_FALSE(name.empty()) << label;
        EXPECT_EQ(name.find('_'), std::string::npos) << label << " -> " << name;
        EXPECT_LE(name.size(), 24u) << label;
        names.insert(name);
    }
    // Only "Swimming_c2", listed twice, shares its name.
    EXPECT_EQ(names.size(), 207u);
    EXPECT_EQ(displayName("2252_alone"), "one person");
    EXPECT_EQ(displayName("xuejing_c2"), "snow scene");
    for (const char* scene : {"sky", "greenery", "water", "night", "snow", "sunset", "document", "people", "colourful"}) {
        EXPECT_EQ(displayName(scene), scene);
    }
    EXPECT_EQ(displayName("solid_colour"), "plain colour");
    // And back: a display name stands for every label that shows it.
    EXPECT_EQ(labelsNamed("one person"), std::vector<std::string>{"2252_alone"});
    EXPECT_EQ(labelsNamed("swimming"), std::vector<std::string>{"Swimming_c2"});
    EXPECT_TRUE(labelsNamed("no such name").empty());
}

TEST(DisplayNames, UnknownLabelsComeBackUnchanged) {
    for (const char* label : {"", "class 12", "2252_Alone", "qrcode_c2 ", "\xff\xfe"}) EXPECT_EQ(displayName(label), label);
}

// The open framework scales a detector score so that its shown-from score lands on its
// floor: a class it calibrates to the floor must be one the summary shows.
TEST(DisplayNames, TheFrameworkScalesConfidencesToTheFloorThatIsShown) {
    EXPECT_EQ(static_cast<float>(kv::kShownClass), kShownConfidence);
}

}  // namespace
}  // namespace VQFeature
