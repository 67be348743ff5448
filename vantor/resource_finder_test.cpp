#include "vantor/resource_finder.h"

#include <android/asset_manager.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "vantor/asset_manager_holder.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

TEST(ResourceFinderTest, NormalisesModelNames) {
    auto normalise = &VantorResourceFinderImpl::getNormalizedNameOfModel;
    EXPECT_EQ(normalise("dir/qm_face_v2.0.model"), "qm_face");
    EXPECT_EQ(normalise("qm_face_extra_v10.model"), "qm_face_extra");
    EXPECT_EQ(normalise("qm_sim.model"), "qm_sim");
    EXPECT_EQ(normalise("qm_sim_v0.model"), "qm_sim");
    EXPECT_EQ(normalise("qm_sim.dat"), "qm_sim");
    EXPECT_EQ(normalise("qm_matting_model"), "qm_matting");
    EXPECT_EQ(normalise("x-y_v1.model"), "y");  // the stem never spans a non-word character
    EXPECT_EQ(normalise("a.b"), "a.b");
    EXPECT_EQ(normalise("a/b/c/qm_face.model.model"), "qm_face");
    EXPECT_EQ(normalise("a/models_v2/qm_face.model"), "qm_face");  // a folder that looks like a model name
    EXPECT_EQ(normalise(""), "");
    // The leftmost word run that can take a version wins, and its capture is greedy.
    EXPECT_EQ(normalise("_v1.a_v2_v3x.model"), "a_v2");
    EXPECT_EQ(normalise("qm.dat.model"), "qm");
    EXPECT_EQ(normalise("qm_face\n_v1"), "qm_face\n_v1");  // a version needs a stem before it
    // Names far longer than a file name neither exhaust the stack nor lose the stem.
    EXPECT_EQ(normalise(std::string(1 << 20, 'a') + "_v1.model"), std::string(1 << 20, 'a'));
    EXPECT_EQ(normalise("qm_face_v2." + std::string(1 << 20, '.')), "qm_face");
}

class FinderFileTest : public ::testing::Test {
protected:
    // Loads the model by name; returns the bytes read or "<none>" on failure.
    std::string load(const std::string& name) {
        Vantor::VantorAlgorithmModel model;
        model.name = name;
        if (!finder.findResource(model)) {
            EXPECT_EQ(model.data, nullptr);
            return "<none>";
        }
        if (model.data == nullptr) return "<null block>";
        std::string bytes(static_cast<char*>(model.data), model.size);
        EXPECT_EQ(static_cast<char*>(model.data)[model.size], '\0');  // the spare terminator
        EXPECT_TRUE(finder.releaseResource(model));
        EXPECT_EQ(model.data, nullptr);
        EXPECT_EQ(model.size, 0u);
        return bytes;
    }

    TempDir dir;
    VantorResourceFinderImpl finder{dir.path() + "/models"};
};

TEST_F(FinderFileTest, BuildsPathsFromNames) {
    dir.write("models/qm_face.model", "face-bytes");
    dir.write("models/a.b.model", "ab");
    dir.write("models/.model", "nameless");
    dir.write("models/qm_matting_model.model", "matting");
    dir.write("models/qm_empty.model", "");
    EXPECT_EQ(load("qm_face"), "face-bytes");
    EXPECT_EQ(load("qm_face_v3.model"), "face-bytes");
    EXPECT_EQ(load("elsewhere/qm_face_v3.0.model"), "face-bytes");
    EXPECT_EQ(load("a.b"), "ab");
    EXPECT_EQ(load(""), "nameless");
    EXPECT_EQ(load("qm_matting_model"), "matting");  // no dot: not normalised
    EXPECT_EQ(load("qm_empty"), "");  // an empty file is a success, with a terminated block
    EXPECT_EQ(load("qm_missing"), "<none>");
    // A NUL would cut the path short and open another file; a directory is no model.
    dir.write("models/plain", "not a model");
    EXPECT_EQ(load(std::string("plain\0", 6)), "<none>");
    EXPECT_EQ(load(std::string("\0", 1)), "<none>");
    dir.write("models/folder.model/inside", "x");
    EXPECT_EQ(load("folder"), "<none>");

    VantorResourceFinderImpl slashed(dir.path() + "/models/");
    Vantor::VantorAlgorithmModel model;
    model.name = "qm_face";
    ASSERT_TRUE(slashed.findResource(model));  // "models//qm_face.model" still opens
    slashed.releaseResource(model);
}

TEST(ResourceFinderTest, BaseBehaviours) {
    VantorResourceFinderImpl finder("unused");
    EXPECT_EQ(finder.getCacheDir(), "");
    Vantor::VantorAlgorithmModelEvent event;
    event.type = Vantor::MODEL_EVENT_LOAD_FAILED;
    EXPECT_FALSE(finder.reportEvent(event));
    Vantor::VantorAlgorithmModel empty;
    EXPECT_TRUE(finder.releaseResource(empty));
}

TEST(ResourceFinderTest, ReadsFromAssetsWhenAManagerIsRegistered) {
    TempDir assets;
    assets.write("models/qm_face.model", "from-assets");
    TempDir files;
    files.write("models/qm_other.model", "from-files");
    AAssetManager* manager = AAssetManager_fromDirectory(assets.path().c_str());
    AssetManagerHolder::getInstance().set(manager);

    VantorResourceFinderImpl finder("models");
    Vantor::VantorAlgorithmModel model;
    model.name = "qm_face_v1.model";
    ASSERT_TRUE(finder.findResource(model));
    EXPECT_EQ(std::string(static_cast<char*>(model.data), model.size), "from-assets");
    finder.releaseResource(model);

    // With a manager, the file system is not consulted.
    VantorResourceFinderImpl fileFinder(files.path() + "/models");
    Vantor::VantorAlgorithmModel other;
    other.name = "qm_other";
    EXPECT_FALSE(fileFinder.findResource(other));
    EXPECT_EQ(other.data, nullptr);

    AssetManagerHolder::getInstance().set(nullptr);
    AAssetManager_delete(manager);
}

}  // namespace
}  // namespace VQFeature
