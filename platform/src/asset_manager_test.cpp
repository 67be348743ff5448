// The desktop asset manager: reads assets under its root and nothing outside it.
#include "android/asset_manager.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace {

class AssetManagerTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = std::filesystem::path(::testing::TempDir()) / "korvid_assets";
        std::filesystem::remove_all(root_);
        std::filesystem::create_directories(root_ / "models");
        std::ofstream(root_ / "config.json") << "{}";
        std::ofstream(root_ / "models" / "a.model", std::ios::binary) << std::string("ab\0cd", 5);
        std::ofstream(root_ / "empty.bin");
        std::ofstream(root_.parent_path() / "korvid_outside.txt") << "secret";
        mgr_ = AAssetManager_fromDirectory(root_.c_str());
        ASSERT_NE(mgr_, nullptr);
    }
    void TearDown() override {
        AAssetManager_delete(mgr_);
        std::filesystem::remove_all(root_);
    }
    std::filesystem::path root_;
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
