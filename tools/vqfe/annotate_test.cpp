// The labels of a picture and of the summary line, from the same blobs.
#include "tools/vqfe/annotate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <sstream>

#include "testing/packed_message.h"
#include "tools/vqfe/summary.h"

namespace vqfe {
namespace {

using vqfe_testing::packed;

// The scene labels: sunset found, people found weakly (under the display floor), sky not found.
std::vector<uint8_t> sceneBlob() {
    char sunset[] = "sunset", people[] = "people", sky[] = "sky";
    CSceneRecogInfo infos[3] = {C__SCENE_RECOG_INFO__INIT, C__SCENE_RECOG_INFO__INIT, C__SCENE_RECOG_INFO__INIT};
    infos[0].name = sunset, infos[0].prob = 0.91f, infos[0].satisfied = 1;
    infos[1].name = people, infos[1].prob = 0.29f, infos[1].satisfied = 1;
    infos[2].name = sky, infos[2].prob = 0.6f, infos[2].satisfied = 0;
    CSceneRecogInfo* pointers[3] = {&infos[0], &infos[1], &infos[2]};
    CSceneRecogBuffer buffer = C__SCENE_RECOG_BUFFER__INIT;
    buffer.n_m_scenerecoginfo = 3;
    buffer.m_scenerecoginfo = pointers;
    return packed(buffer);
}

// Classes: a cat at 0.7, a mobile phone under the floor, a damaged (NaN) one, a dog at 0.3.
std::vector<uint8_t> classificationBlob() {
    char cat[] = "cat", phone[] = "mobile_phone", broken[] = "broken", dog[] = "dog";
    char* labels[] = {cat, phone, broken, dog};
    int32_t ids[] = {0, 1, 2, 3};
    float confidences[] = {0.7f, 0.29f, NAN, 0.3f};
    CNHClassificationInfo info = C__NHCLASSIFICATION_INFO__INIT;
    info.n_id = info.n_confidence = 4;
    info.id = ids;
    info.confidence = confidences;
    CNHClassificationInfo* infos[] = {&info};
    CNHClassificationBuffer buffer = C__NHCLASSIFICATION_BUFFER__INIT;
    buffer.n_m_classificationinfos = 1;
    buffer.m_classificationinfos = infos;
    buffer.n_m_labels = 4;
    buffer.m_labels = labels;
    return packed(buffer);
}

// The "name 0.00" entries after key in the summary line, up to the next field.
std::set<std::string> summaryEntries(const std::string& line, const std::string& key) {
    std::set<std::string> entries;
    size_t at = line.find("  " + key + ": ");
    if (at == std::string::npos) return entries;
    at += key.size() + 4;
    const std::string rest = line.substr(at, line.find("  ", at) - at);
    std::istringstream items(rest);
    for (std::string item; std::getline(items, item, ',');) entries.insert(item.substr(item.find_first_not_of(' ')));
    return entries;
}

TEST(Annotate, PictureAndSummaryShowTheSameLabels) {
    const std::vector<uint8_t> scene = sceneBlob(), classes = classificationBlob();
    for (const bool withScene : {true, false}) {
        BlobMap blobs = {{"classification", {classes.data(), classes.size()}}};
        if (withScene) blobs["scene"] = {scene.data(), scene.size()};
        Summary summary;
        summary.add("photo.jpg", blobs, false, 1.0, "");
        std::ostringstream printed;
        summary.print(printed, 1.0);
        const std::string line = printed.str().substr(0, printed.str().find('\n'));
        std::set<std::string> shown = summaryEntries(line, "labels");
        const std::set<std::string> summaryClasses = summaryEntries(line, "classes");
        shown.insert(summaryClasses.begin(), summaryClasses.end());

        const std::vector<std::string> lines = labelLines(DecodedBlobs(blobs));
        const std::set<std::string> drawn(lines.begin(), lines.end());
        EXPECT_EQ(drawn.size(), lines.size());
        EXPECT_EQ(drawn, shown) << line;
        // Under the floor, not satisfied or NaN: in neither.
        const std::set<std::string> expected = withScene ? std::set<std::string>{"sunset 0.91", "cat 0.70", "dog 0.30"}
                                                         : std::set<std::string>{"cat 0.70", "dog 0.30"};
        EXPECT_EQ(shown, expected) << line;
        EXPECT_EQ(line.find("nan"), std::string::npos) << line;
        // The summary's people cue is a field of its own: it keeps its value.
        if (withScene) {
            EXPECT_NE(line.find("people: 0.29"), std::string::npos) << line;
        }
    }
}

}  // namespace
}  // namespace vqfe
