#include "library/duplicates.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>
#include <tuple>
#include <utility>

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

}  // namespace

std::string displayPath(const VQFeature::ImageRecord& image) {
    return image.path.empty() ? image.assetId : image.path;
}

bool alike(const VQFeature::IndexedImage& a, const VQFeature::IndexedImage& b, const DuplicateLimits& limits) {
    if (!a.hash || !b.hash) return false;
    if (__builtin_popcountll(*a.hash ^ *b.hash) > limits.hashBits) return false;
    // Limits that need the signatures hold for no pair without them: the looser hash limit
    // was measured with the veto.
    if (limits.signature > 0 && (a.signature.empty() || a.signature.size() != b.signature.size() ||
                                 cosine(a.signature, b.signature) < limits.signature)) {
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
                                                     const std::vector<DuplicateLimits>& limits) {
    struct Pair {
        int bits;
        size_t i, j;
        bool operator<(const Pair& o) const { return std::tie(bits, i, j) < std::tie(o.bits, o.i, o.j); }
    };
    std::vector<Pair> pairs;
    for (size_t i = 0; i < images.size(); ++i) {
        for (size_t j = i + 1; j < images.size(); ++j) {
            if (std::any_of(limits.begin(), limits.end(),
                            [&](const DuplicateLimits& each) { return alike(images[i], images[j], each); })) {
                pairs.push_back({__builtin_popcountll(*images[i].hash ^ *images[j].hash), i, j});
            }
        }
    }
    // Groups form inside the components of the alike pairs. Each photo gets a row of bits
    // over its component, set for the photos it is alike with; a group keeps the AND of its
    // members' rows: the photos alike with all of them.
    std::vector<size_t> root(images.size());
    std::iota(root.begin(), root.end(), 0);
    auto find = [&](size_t i) {
        while (root[i] != i) i = root[i] = root[root[i]];
        return i;
    };
    for (const Pair& pair : pairs) root[find(pair.i)] = find(pair.j);
    std::vector<size_t> slot(images.size()), componentSize(images.size(), 0);
    for (size_t i = 0; i < images.size(); ++i) slot[i] = componentSize[find(i)]++;
    std::vector<std::vector<uint64_t>> common(images.size());
    auto has = [&](size_t group, size_t image) { return (common[group][slot[image] / 64] >> (slot[image] % 64)) & 1; };
    for (const Pair& pair : pairs) {
        for (auto [from, to] : {std::pair{pair.i, pair.j}, std::pair{pair.j, pair.i}}) {
            if (common[from].empty()) common[from].resize((componentSize[find(from)] + 63) / 64);
            common[from][slot[to] / 64] |= uint64_t{1} << (slot[to] % 64);
        }
    }
    // Closest pairs first; two groups join only when every photo of one is alike with
    // every photo of the other.
    std::sort(pairs.begin(), pairs.end());
    std::vector<size_t> groupOf(images.size());
    std::iota(groupOf.begin(), groupOf.end(), 0);
    std::vector<std::vector<size_t>> members(images.size());
    for (size_t i = 0; i < images.size(); ++i) members[i] = {i};
    for (const Pair& pair : pairs) {
        size_t into = groupOf[pair.i], from = groupOf[pair.j];
        if (into == from) continue;
        // The smaller group's photos against the larger one's common row.
        if (members[into].size() < members[from].size()) std::swap(into, from);
        if (!std::all_of(members[from].begin(), members[from].end(), [&](size_t b) { return has(into, b); })) continue;
        for (size_t k : members[from]) groupOf[k] = into;
        members[into].insert(members[into].end(), members[from].begin(), members[from].end());
        members[from].clear();
        for (size_t w = 0; w < common[into].size(); ++w) common[into][w] &= common[from][w];
        common[from] = {};
    }
    // A group holds every path of its images: identical files share one image.
    std::vector<std::vector<std::string>> found;
    for (const auto& group : members) {
        std::vector<std::string> paths;
        for (size_t i : group) {
            if (images[i].paths.empty()) paths.push_back(displayPath(images[i].record));
            else paths.insert(paths.end(), images[i].paths.begin(), images[i].paths.end());
        }
        if (paths.size() < 2) continue;
        std::sort(paths.begin(), paths.end());
        found.push_back(std::move(paths));
    }
    std::sort(found.begin(), found.end());
    return found;
}

}  // namespace vqfe
