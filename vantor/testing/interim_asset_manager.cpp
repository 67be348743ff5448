// INTERIM, test-only: a directory-backed asset manager standing in for platform/'s
// until it is available.
#include <android/asset_manager.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

struct AAssetManager {
    std::string root;
};

struct AAsset {
    std::vector<char> bytes;
    size_t offset = 0;
};

extern "C" {

AAssetManager* AAssetManager_fromDirectory(const char* root) { return new AAssetManager{root}; }

void AAssetManager_delete(AAssetManager* mgr) { delete mgr; }

AAsset* AAssetManager_open(AAssetManager* mgr, const char* filename, int) {
    std::ifstream in(mgr->root + "/" + filename, std::ios::binary);
    if (!in) {
        return nullptr;
    }
    auto* asset = new AAsset;
    asset->bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return asset;
}

off_t AAsset_getLength(AAsset* asset) { return static_cast<off_t>(asset->bytes.size()); }

int AAsset_read(AAsset* asset, void* buf, size_t count) {
    size_t left = asset->bytes.size() - asset->offset;
    size_t n = count < left ? count : left;
    std::copy_n(asset->bytes.data() + asset->offset, n, static_cast<char*>(buf));
    asset->offset += n;
    return static_cast<int>(n);
}

void AAsset_close(AAsset* asset) { delete asset; }
}
