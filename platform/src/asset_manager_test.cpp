// The desktop asset manager: reads assets under its root and nothing outside it.
#include "android/asset_manager.h"

#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "testing/temp_dir.h"

namespace {

// The asset root is a directory of a fresh temporary one, whose other entries lie outside
// the root. (A fixed path would be shared by test runs of other checkouts.)
class AssetManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_.write("assets/config.json", "{}");
        dir_.write("assets/models/a.model", std::string("ab\0cd", 5));
        dir_.write("assets/empty.bin", "");
        dir_.write("korvid_outside.txt", "secret");
        mgr_ = AAssetManager_fromDirectory(root_.c_str());
        ASSERT_NE(mgr_, nullptr);
    }
    void TearDown() override { AAssetManager_delete(mgr_); }

    VQFeature::TempDir dir_;
    std::filesystem::path root_ = std::filesystem::path(dir_.path()) / "assets";
    AAssetManager* mgr_ = nullptr;
};

TEST_F(AssetManagerTest, ReadsWholeAssetsInChunks) {
    AAsset* asset = AAssetManager_open(mgr_, "models/a.model", AASSET_MODE_BUFFER);
    ASSERT_NE(asset, nullptr);
    EXPECT_EQ(AAsset_getLength(asset), 5);
    EXPECT_EQ(AAsset_getLength64(asset), 5);
    char buf[8] = {};
    EXPECT_EQ(AAsset_read(asset, buf, 3), 3);
    EXPECT_EQ(AAsset_getRemainingLength(asset), 2);
    EXPECT_EQ(AAsset_read(asset, buf + 3, 8), 2);
    EXPECT_EQ(std::string(buf, 5), std::string("ab\0cd", 5));
    EXPECT_EQ(AAsset_read(asset, buf, 8), 0);
    EXPECT_EQ(AAsset_read(nullptr, buf, 8), -1);
    AAsset_close(asset);

    AAsset* empty = AAssetManager_open(mgr_, "empty.bin", 0);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(AAsset_getLength(empty), 0);
    AAsset_close(empty);
    AAsset_close(nullptr);
}

TEST_F(AssetManagerTest, RefusesMissingDirectoriesAndEscapes) {
    for (const char* name : {"missing.json", "models", "", "../korvid_outside.txt", "models/../../korvid_outside.txt",
                             "/etc/hostname", "models/..", ".."}) {
        EXPECT_EQ(AAssetManager_open(mgr_, name, 0), nullptr) << name;
    }
    EXPECT_EQ(AAssetManager_open(mgr_, nullptr, 0), nullptr);
    EXPECT_EQ(AAssetManager_open(nullptr, "config.json", 0), nullptr);
    EXPECT_EQ(AAssetManager_fromDirectory(nullptr), nullptr);
    EXPECT_EQ(AAssetManager_fromDirectory((root_ / "config.json").c_str()), nullptr);
    EXPECT_EQ(AAssetManager_fromDirectory("/nonexistent/korvid"), nullptr);
    AAssetManager_delete(nullptr);
}

}  // namespace
