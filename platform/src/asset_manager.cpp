// Desktop AAssetManager: a root directory; assets are read whole when opened.
#include "android/asset_manager.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <vector>

struct AAssetManager {
    std::string root;
};

struct AAsset {
    std::vector<char> bytes;
    size_t position = 0;
};

namespace {

// Relative names only, no empty, "." or ".." components.
bool staysInside(const std::string& name) {
    if (name.empty() || name[0] == '/') return false;
    size_t start = 0;
    while (start <= name.size()) {
        size_t end = name.find('/', start);
        if (end == std::string::npos) end = name.size();
        const std::string part = name.substr(start, end - start);
        if (part == "..") return false;
        start = end + 1;
    }
    return true;
}

}  // namespace

extern "C" {

AAssetManager* AAssetManager_fromDirectory(const char* root) {
    struct stat st;
    if (root == nullptr || ::stat(root, &st) != 0 || !S_ISDIR(st.st_mode)) return nullptr;
    return new (std::nothrow) AAssetManager{root};
}

void AAssetManager_delete(AAssetManager* mgr) { delete mgr; }

AAsset* AAssetManager_open(AAssetManager* mgr, const char* filename, int) {
    if (mgr == nullptr || filename == nullptr || !staysInside(filename)) return nullptr;
    const std::string path = mgr->root + "/" + filename;
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return nullptr;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return nullptr;
    auto* asset = new (std::nothrow) AAsset();
    bool ok = asset != nullptr;
    if (ok) {
        char chunk[65536];
        size_t n;
        while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) asset->bytes.insert(asset->bytes.end(), chunk, chunk + n);
        ok = std::ferror(f) == 0;
    }
    std::fclose(f);
    if (!ok) {
        delete asset;
        return nullptr;
    }
    return asset;
}

int AAsset_read(AAsset* asset, void* buf, size_t count) {
    if (asset == nullptr || (buf == nullptr && count > 0)) return -1;
    const size_t n = std::min({count, asset->bytes.size() - asset->position, size_t(0x7fffffff)});
    if (n > 0) std::memcpy(buf, asset->bytes.data() + asset->position, n);
    asset->position += n;
    return static_cast<int>(n);
}

off_t AAsset_getLength(AAsset* asset) { return asset == nullptr ? 0 : static_cast<off_t>(asset->bytes.size()); }

off64_t AAsset_getLength64(AAsset* asset) { return asset == nullptr ? 0 : static_cast<off64_t>(asset->bytes.size()); }

off_t AAsset_getRemainingLength(AAsset* asset) {
    return asset == nullptr ? 0 : static_cast<off_t>(asset->bytes.size() - asset->position);
}

void AAsset_close(AAsset* asset) { delete asset; }

}  // extern "C"
