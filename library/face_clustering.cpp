#include "library/face_clustering.h"

#include <algorithm>
#include <map>
#include <queue>
#include <random>
#include <unordered_map>
#include <unordered_set>

namespace vqfe {
namespace {

using VQFeature::FaceKey;
using VQFeature::IndexedFace;
using VQFeature::PersonAssignment;

// Up to this many new faces every pair is compared; beyond, only the pairs that share a
// bucket of a random-hyperplane hash in one of several tables (a same-person pair at the
// threshold shares one with a probability of about 0.98).
constexpr size_t kAllPairsUpTo = 3000;
constexpr int kTables = 12;
constexpr int kBits = 14;

// Eight running sums, so the compiler can keep them in vector registers (a single sum
// is a chain of dependent adds it may not reorder).
float dot(const float* a, const float* b, size_t n) {
    float sums[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        for (size_t k = 0; k < 8; ++k) sums[k] += a[i + k] * b[i + k];
    }
    float sum = 0;
    for (; i < n; ++i) sum += a[i] * b[i];
    for (float part : sums) sum += part;
    return sum;
}

struct Cluster {
    long long person = 0;          // an existing person's id; 0 for a new group
    std::vector<float> sum;        // of its descriptors
    int count = 0;
    std::vector<size_t> newFaces;  // indexes into the new faces
    std::unordered_set<size_t> neighbours;
    bool alive = true;
    int version = 0;
};

struct Candidate {
    float average;
    size_t a, b;
    int versionA, versionB;
    bool operator<(const Candidate& other) const { return average < other.average; }
};

class Agglomeration {
public:
    Agglomeration(size_t dimension, float threshold) : dimension_(dimension), threshold_(threshold) {}

    size_t add(Cluster cluster) {
        clusters_.push_back(std::move(cluster));
        return clusters_.size() - 1;
    }
    Cluster& operator[](size_t i) { return clusters_[i]; }
    size_t size() const { return clusters_.size(); }

    float average(size_t a, size_t b) const {
        const Cluster& x = clusters_[a];
        const Cluster& y = clusters_[b];
        return dot(x.sum.data(), y.sum.data(), dimension_) / (static_cast<float>(x.count) * y.count);
    }

    // Records a and b as neighbours when their average reaches the threshold.
    void consider(size_t a, size_t b) {
        if (a == b || (clusters_[a].person != 0 && clusters_[b].person != 0)) return;
        if (clusters_[a].neighbours.count(b)) return;  // already a candidate (another hash table)
        const float mean = average(a, b);
        if (mean < threshold_) return;
        clusters_[a].neighbours.insert(b);
        clusters_[b].neighbours.insert(a);
        queue_.push({mean, a, b, clusters_[a].version, clusters_[b].version});
    }

    void run() {
        while (!queue_.empty()) {
            const Candidate best = queue_.top();
            queue_.pop();
            Cluster& a = clusters_[best.a];
            Cluster& b = clusters_[best.b];
            if (!a.alive || !b.alive || a.version != best.versionA || b.version != best.versionB) continue;
            merge(a.person != 0 ? best.a : best.b, a.person != 0 ? best.b : best.a);
        }
    }

private:
    // The mean over all pairs of a union is the count-weighted mean of the parts' means,
    // so only former neighbours of either part can reach the threshold with it.
    void merge(size_t into, size_t from) {
        Cluster& target = clusters_[into];
        Cluster& source = clusters_[from];
        for (size_t i = 0; i < dimension_; ++i) target.sum[i] += source.sum[i];
        target.count += source.count;
        target.newFaces.insert(target.newFaces.end(), source.newFaces.begin(), source.newFaces.end());
        source.alive = false;
        ++target.version;
        std::unordered_set<size_t> around = std::move(target.neighbours);
        around.insert(source.neighbours.begin(), source.neighbours.end());
        around.erase(into);
        around.erase(from);
        target.neighbours.clear();
        source.neighbours.clear();
        for (size_t other : around) {
            clusters_[other].neighbours.erase(from);
            clusters_[other].neighbours.erase(into);
            consider(into, other);
        }
    }

    size_t dimension_;
    float threshold_;
    std::vector<Cluster> clusters_;
    std::priority_queue<Candidate> queue_;
};

size_t commonDimension(const std::vector<IndexedFace>& faces) {
    std::map<size_t, size_t> lengths;
    for (const IndexedFace& face : faces) {
        if (!face.descriptor.empty()) ++lengths[face.descriptor.size()];
    }
    size_t best = 0, seen = 0;
    for (const auto& [length, count] : lengths) {
        if (count > seen) best = length, seen = count;
    }
    return best;
}

// Pairs of new faces that may reach the threshold, as cluster indexes.
void considerNewPairs(Agglomeration& groups, const std::vector<const IndexedFace*>& faces,
                      const std::vector<size_t>& clusterOf, size_t dimension) {
    if (faces.size() <= kAllPairsUpTo) {
        for (size_t i = 0; i < faces.size(); ++i) {
            for (size_t j = i + 1; j < faces.size(); ++j) groups.consider(clusterOf[i], clusterOf[j]);
        }
        return;
    }
    std::mt19937 random(20240601);  // fixed: the same store clusters the same way every time
    std::normal_distribution<float> normal;
    std::vector<float> planes(static_cast<size_t>(kTables) * kBits * dimension);
    for (float& value : planes) value = normal(random);
    std::vector<std::pair<uint32_t, uint32_t>> keyed(faces.size());  // (bucket, face)
    for (int table = 0; table < kTables; ++table) {
        for (size_t f = 0; f < faces.size(); ++f) {
            uint32_t key = 0;
            for (int bit = 0; bit < kBits; ++bit) {
                const float* plane = &planes[(static_cast<size_t>(table) * kBits + bit) * dimension];
                key = key << 1 | (dot(plane, faces[f]->descriptor.data(), dimension) >= 0 ? 1u : 0u);
            }
            keyed[f] = {key, static_cast<uint32_t>(f)};
        }
        std::sort(keyed.begin(), keyed.end());
        for (size_t start = 0; start < keyed.size();) {
            size_t end = start;
            while (end < keyed.size() && keyed[end].first == keyed[start].first) ++end;
            for (size_t i = start; i < end; ++i) {
                for (size_t j = i + 1; j < end; ++j) {
                    groups.consider(clusterOf[keyed[i].second], clusterOf[keyed[j].second]);
                }
            }
            start = end;
        }
    }
}

}  // namespace

PersonAssignment clusterFaces(const std::vector<IndexedFace>& faces, float threshold) {
    const size_t dimension = commonDimension(faces);
    PersonAssignment assignment;
    if (dimension == 0) return assignment;
    Agglomeration groups(dimension, threshold);
    std::unordered_map<long long, size_t> personCluster;
    std::vector<const IndexedFace*> fresh;
    for (const IndexedFace& face : faces) {
        if (face.descriptor.size() != dimension) continue;
        if (face.person == 0) {
            fresh.push_back(&face);
            continue;
        }
        auto [it, added] = personCluster.emplace(face.person, 0);
        if (added) {
            Cluster cluster;
            cluster.person = face.person;
            cluster.sum.assign(dimension, 0.0f);
            it->second = groups.add(std::move(cluster));
        }
        Cluster& cluster = groups[it->second];
        for (size_t i = 0; i < dimension; ++i) cluster.sum[i] += face.descriptor[i];
        ++cluster.count;
    }
    const size_t persons = groups.size();
    std::vector<size_t> clusterOf;
    for (size_t f = 0; f < fresh.size(); ++f) {
        Cluster cluster;
        cluster.sum = fresh[f]->descriptor;
        cluster.count = 1;
        cluster.newFaces = {f};
        clusterOf.push_back(groups.add(std::move(cluster)));
    }
    // A new face against a whole person: the mean over the person's faces, exactly.
    for (size_t f = 0; f < fresh.size(); ++f) {
        for (size_t p = 0; p < persons; ++p) groups.consider(p, clusterOf[f]);
    }
    considerNewPairs(groups, fresh, clusterOf, dimension);
    groups.run();

    std::vector<std::vector<FaceKey>> created;
    for (size_t c = 0; c < groups.size(); ++c) {
        const Cluster& cluster = groups[c];
        if (!cluster.alive || cluster.newFaces.empty()) continue;
        std::vector<FaceKey> keys;
        for (size_t f : cluster.newFaces) keys.push_back({fresh[f]->assetId, fresh[f]->index});
        if (cluster.person != 0) {
            for (auto& key : keys) assignment.joins.emplace_back(std::move(key), cluster.person);
        } else {
            created.push_back(std::move(keys));
        }
    }
    // Larger persons first, so they get the smaller ids.
    std::stable_sort(created.begin(), created.end(),
                     [](const auto& a, const auto& b) { return a.size() > b.size(); });
    assignment.newPersons = std::move(created);
    return assignment;
}

}  // namespace vqfe
