#include "vantor/asset_manager_holder.h"

#include <android/asset_manager.h>

#include <cstdlib>
#include <cstring>

namespace VQFeature {

AssetManagerHolder& AssetManagerHolder::getInstance() {
    static AssetManagerHolder holder;
    return holder;
}

char* readWholeAsset(AAssetManager* manager, const std::string& name, size_t* length) {
    AAsset* asset = AAssetManager_open(manager, name.c_str(), AASSET_MODE_UNKNOWN);
    if (asset == nullptr) {
        return nullptr;
    }
    off_t size = AAsset_getLength(asset);
    *length = static_cast<size_t>(size);
    // One spare zero byte, so text assets can be used in place.
    char* block = static_cast<char*>(std::calloc(static_cast<size_t>(size) + 1, 1));
    if (block != nullptr && AAsset_read(asset, block, static_cast<size_t>(size)) != size) {
        std::free(block);
        block = nullptr;
    }
    AAsset_close(asset);
    return block;
}

}  // namespace VQFeature
