#include "library/duplicates.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace vqfe {
namespace {

float cosine(const std::vector<float>& a, const std::vector<float>& b) {
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < a.size(); ++i) {
        ab += a[i] * b[i];
        aa += a[i] * a[i];
        bb += b[i] * b[i];
    }
    if (aa == 0 || bb == 0) return aa == bb ? 1.0f : 0.0f;
    return static_cast<float>(ab / std::sqrt(aa * bb));
}

size_t root(std::vector<size_t>& parent, size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
}

}  // namespace

std::string displayPath(const VQFeature::ImageRecord& image) {
    return image.path.empty() ? image.assetId : image.path;
}

bool alike(const VQFeature::IndexedImage& a, const VQFeature::IndexedImage& b, const DuplicateLimits& limits) {
    if (!a.hash || !b.hash) return false;
    if (__builtin_popcountll(*a.hash ^ *b.hash) > limits.hashBits) return false;
    if (!a.signature.empty() && a.signature.size() == b.signature.size() &&
        cosine(a.signature, b.signature) < limits.signature) {
        return false;
    }
    const auto& x = a.record;
    const auto& y = b.record;
    if (limits.aspect >= 0 && x.width > 0 && x.height > 0 && y.width > 0 && y.height > 0) {
        const double ratioA = static_cast<double>(x.width) / x.height;
        const double ratioB = static_cast<double>(y.width) / y.height;
        if (std::fabs(ratioA - ratioB) > limits.aspect * std::max(ratioA, ratioB)) return false;
    }
    return true;
}

std::vector<std::vector<std::string>> findDuplicates(const std::vector<VQFeature::IndexedImage>& images,
                                                     const DuplicateLimits& limits) {
    std::vector<size_t> parent(images.size());
    std::iota(parent.begin(), parent.end(), 0);
    for (size_t i = 0; i < images.size(); ++i) {
        for (size_t j = i + 1; j < images.size(); ++j) {
            if (alike(images[i], images[j], limits)) parent[root(parent, i)] = root(parent, j);
        }
    }
    // A group holds every path of its images: identical files share one image.
    std::map<size_t, std::vector<std::string>> groups;
    for (size_t i = 0; i < images.size(); ++i) {
        auto& members = groups[root(parent, i)];
        if (images[i].paths.empty()) members.push_back(displayPath(images[i].record));
        else members.insert(members.end(), images[i].paths.begin(), images[i].paths.end());
    }
    std::vector<std::vector<std::string>> found;
    for (auto& [_, members] : groups) {
        if (members.size() < 2) continue;
        std::sort(members.begin(), members.end());
        found.push_back(std::move(members));
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace vqfe
