#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "vantor/cover_util.h"
#include "vantor/graph_texts.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

// The texts as published for the framework, one per line: <name> TAB <text>.
std::map<std::string, std::string> loadFixture() {
    std::ifstream in(std::string(VQFE_SOURCE_DIR) + "/vantor/testdata/graph_templates.txt");
    std::map<std::string, std::string> texts;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') {
            continue;
        }
        auto tab = line.find('\t');
        texts[line.substr(0, tab)] = line.substr(tab + 1);
    }
    return texts;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream in(text);
    std::string part;
    while (std::getline(in, part, separator)) {
        parts.push_back(part);
    }
    return parts;
}

std::string conf(int kind) { return CoverUtil::getAlgorithmConf(static_cast<AlgorithmType>(kind)); }

TEST(GraphTemplatesTest, EveryTextMatchesTheFixture) {
    auto fixture = loadFixture();
    ASSERT_EQ(fixture.size(), 19u);
    int kinds = 0;
    for (const auto& [name, text] : fixture) {
        if (name == "grading") {
            EXPECT_EQ(VantorGraph::gradingGraph(), text);
        } else if (name == "recognition") {
            EXPECT_EQ(VantorGraph::recognitionGraph(), text);
        } else if (name == "models") {
            EXPECT_EQ(CoverUtil::getDefaultModels(), text);
        } else {
            EXPECT_EQ(conf(std::stoi(name)), text) << "kind " << name;
            ++kinds;
        }
    }
    EXPECT_EQ(kinds, 16);
    // Nothing else in the dense range, and nothing outside it.
    for (int kind = -2; kind <= 140; ++kind) {
        if (fixture.count(std::to_string(kind)) == 0) {
            EXPECT_EQ(conf(kind), "") << "kind " << kind;
        }
    }
}

TEST(GraphTemplatesTest, PetFaceKindsDifferInTheImageModeOnly) {
    const std::string cat = conf(71);
    const std::string dog = conf(95);
    ASSERT_EQ(cat.size(), dog.size());
    std::vector<size_t> differences;
    for (size_t i = 0; i < cat.size(); ++i) {
        if (cat[i] != dog[i]) {
            differences.push_back(i);
        }
    }
    ASSERT_EQ(differences.size(), 1u);
    EXPECT_EQ(cat.substr(differences[0] - 32, 33), "\"face_pet_detect_use_imagemode\":0");
}

TEST(GraphTemplatesTest, ClassificationGraphCarries208LabelsAndThresholds) {
    auto labels = split(GraphTexts::kClassLabels208, ',');
    auto thresholds = split(GraphTexts::kClassThresholds208, ',');
    ASSERT_EQ(labels.size(), 208u);
    EXPECT_EQ(thresholds.size(), 208u);
    EXPECT_EQ(labels[17], "Swimming_c2");
    EXPECT_EQ(labels[142], "Swimming_c2");
    const std::string text = conf(121);
    EXPECT_NE(text.find(std::string("\"class_labels\":\"") + GraphTexts::kClassLabels208 + "\""), std::string::npos);
    EXPECT_NE(text.find(std::string("\"class_thresholds\":\"") + GraphTexts::kClassThresholds208 + "\""),
              std::string::npos);
    EXPECT_EQ(text.find("LABELS"), std::string::npos);
    EXPECT_NE(text.find("\"num_classes\":208"), std::string::npos);
}

TEST(GraphTemplatesTest, DefaultModelListHas24NamesWithQmSimTwice) {
    auto names = split(CoverUtil::getDefaultModels(), ',');
    ASSERT_EQ(names.size(), 24u);
    EXPECT_EQ(names[14], "qm_sim");
    EXPECT_EQ(names[23], "qm_sim");
    EXPECT_EQ(names[0], "nodehub_c3_300_upgrade");
}

}  // namespace
}  // namespace VQFeature
