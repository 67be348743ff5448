// AssetManagerHolder: the process-wide Android asset manager registered from Java
// (null until then). When set, the framework configuration and models are read from
// the assets instead of the file system. The pointer is a plain store, written by the
// host normally once before init.
#pragma once

#include <cstddef>
#include <string>

struct AAssetManager;

namespace VQFeature {

class AssetManagerHolder {
public:
    static AssetManagerHolder& getInstance();

    AAssetManager* get() const { return manager_; }
    void set(AAssetManager* manager) { manager_ = manager; }

private:
    AssetManagerHolder() = default;
    AAssetManager* manager_ = nullptr;
};

// Reads the asset name whole into a zero-filled malloc block of length + 1 bytes and
// stores the length in *length. Null when the asset is missing or the read falls short.
// The caller frees the block with free().
char* readWholeAsset(AAssetManager* manager, const std::string& name, size_t* length);

}  // namespace VQFeature
