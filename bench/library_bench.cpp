// The photo library at scale: clustering 100,000 synthetic faces of 10,000 persons
// (against single linkage over the same candidate pairs), 1,000 new faces joining those
// persons, and a label search over a SQLite store of 1,000,000 indexed images (against a
// full scan of its label table). VQFE_BENCH_SMOKE=1 shrinks every size for the ctest run.
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <numeric>
#include <random>
#include <sqlite3.h>

#include "cache/sqlite_cache.h"
#include "library/face_clustering.h"
#include "testing/temp_dir.h"

namespace {

using VQFeature::IndexedFace;

bool smoke() { return std::getenv("VQFE_BENCH_SMOKE") != nullptr; }

// Persons as random unit vectors; each face is its person's vector plus noise, so faces
// of one person lie at 0.97 to 0.99 from each other, as the descriptor's same-person pairs.
std::vector<IndexedFace> syntheticFaces(int persons, int facesEach, unsigned seed, int firstPerson = 0) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    std::vector<IndexedFace> faces;
    for (int p = 0; p < persons; ++p) {
        std::vector<float> centre(128);
        for (float& x : centre) x = normal(random);
        for (int f = 0; f < facesEach; ++f) {
            IndexedFace face;
            face.assetId = std::to_string(firstPerson + p);  // the true person, for scoring
            face.index = f;
            face.descriptor = centre;
            float norm = 0;
            for (float& x : face.descriptor) {
                x = x / std::sqrt(128.0f) + normal(random) * 0.011f;
                norm += x * x;
            }
            for (float& x : face.descriptor) x /= std::sqrt(norm);
            faces.push_back(std::move(face));
        }
    }
    return faces;
}

// Pairwise precision and recall of found persons against the true ones.
void score(benchmark::State& state, const std::vector<std::vector<VQFeature::FaceKey>>& persons,
           const std::vector<IndexedFace>& faces) {
    std::map<std::string, double> perTruth;
    for (const auto& face : faces) perTruth[face.assetId] += 1;
    double truePairs = 0, foundPairs = 0, correct = 0;
    for (const auto& [_, n] : perTruth) truePairs += n * (n - 1) / 2;
    for (const auto& person : persons) {
        std::map<std::string, double> counts;
        for (const auto& face : person) counts[face.assetId] += 1;
        const double n = static_cast<double>(person.size());
        foundPairs += n * (n - 1) / 2;
        for (const auto& [_, c] : counts) correct += c * (c - 1) / 2;
    }
    state.counters["precision"] = foundPairs > 0 ? correct / foundPairs : 1;
    state.counters["recall"] = truePairs > 0 ? correct / truePairs : 1;
    state.counters["persons"] = static_cast<double>(persons.size());
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    state.counters["peak_MB"] = usage.ru_maxrss / 1024.0;
}

int personsAtScale() { return smoke() ? 100 : 10000; }

void BM_ClusterFaces(benchmark::State& state) {
    const auto faces = syntheticFaces(personsAtScale(), 10, 1);
    VQFeature::PersonAssignment assignment;
    for (auto _ : state) assignment = vqfe::clusterFaces(faces);
    score(state, assignment.newPersons, faces);
}
BENCHMARK(BM_ClusterFaces)->Unit(benchmark::kMillisecond)->Iterations(1);

// Baseline: single linkage, every pair at the threshold joined, over all pairs of faces
// that share a bucket of the same hash tables (without averaging), by union-find.
void BM_SingleLinkageBaseline(benchmark::State& state) {
    const auto faces = syntheticFaces(personsAtScale(), 10, 1);
    std::vector<std::vector<VQFeature::FaceKey>> persons;
    for (auto _ : state) {
        // Every face alone, then joined to each earlier face of its bucket at the threshold.
        std::vector<size_t> parent(faces.size());
        std::iota(parent.begin(), parent.end(), 0);
        auto root = [&](size_t i) {
            while (parent[i] != i) i = parent[i] = parent[parent[i]];
            return i;
        };
        std::mt19937 random(20240601);
        std::normal_distribution<float> normal;
        for (int table = 0; table < 12; ++table) {
            std::vector<std::vector<float>> planes(14, std::vector<float>(128));
            for (auto& plane : planes) {
                for (float& x : plane) x = normal(random);
            }
            std::map<uint32_t, std::vector<size_t>> buckets;
            for (size_t f = 0; f < faces.size(); ++f) {
                uint32_t key = 0;
                for (const auto& plane : planes) {
                    float d = 0;
                    for (size_t i = 0; i < 128; ++i) d += plane[i] * faces[f].descriptor[i];
                    key = key << 1 | (d >= 0);
                }
                buckets[key].push_back(f);
            }
            for (const auto& [_, members] : buckets) {
                for (size_t i = 0; i < members.size(); ++i) {
                    for (size_t j = i + 1; j < members.size(); ++j) {
                        float d = 0;
                        for (size_t k = 0; k < 128; ++k) d += faces[members[i]].descriptor[k] * faces[members[j]].descriptor[k];
                        if (d >= vqfe::kSamePersonSimilarity) parent[root(members[i])] = root(members[j]);
                    }
                }
            }
        }
        std::map<size_t, std::vector<VQFeature::FaceKey>> groups;
        for (size_t f = 0; f < faces.size(); ++f) groups[root(f)].push_back({faces[f].assetId, faces[f].index});
        persons.clear();
        for (auto& [_, group] : groups) persons.push_back(std::move(group));
    }
    score(state, persons, faces);
}
BENCHMARK(BM_SingleLinkageBaseline)->Unit(benchmark::kMillisecond)->Iterations(1);

// 1,000 new photos' faces (one each) against 10,000 known persons of 10 faces: half are
// known people, half strangers.
void BM_IncrementalPeople1000(benchmark::State& state) {
    auto faces = syntheticFaces(personsAtScale(), 10, 1);
    for (auto& face : faces) face.person = std::stoll(face.assetId) + 1;
    const int fresh = smoke() ? 50 : 1000;
    auto known = syntheticFaces(personsAtScale(), 10, 1);  // the same persons, new faces below
    std::mt19937 random(5);
    for (int i = 0; i < fresh / 2; ++i) {
        IndexedFace face = known[random() % known.size()];
        for (float& x : face.descriptor) x += 0.0005f * static_cast<float>(static_cast<int>(random() % 3) - 1);
        face.person = 0;
        faces.push_back(face);
    }
    for (auto& stranger : syntheticFaces(fresh / 2, 1, 9, 1000000)) faces.push_back(stranger);
    VQFeature::PersonAssignment assignment;
    for (auto _ : state) assignment = vqfe::clusterFaces(faces);
    state.counters["joined"] = static_cast<double>(assignment.joins.size());
    state.counters["new_persons"] = static_cast<double>(assignment.newPersons.size());
}
BENCHMARK(BM_IncrementalPeople1000)->Unit(benchmark::kMillisecond)->Iterations(3);

// A SQLite store whose index holds n images with three labels each ("people" on 30 %,
// "cat_c1_c2" on 1 %, the rest spread over 200 names) and 0 to 4 faces.
class LabelledStore {
public:
    explicit LabelledStore(int n) : path_(dir_.path() + "/library.db") {
        { VQFeature::SqliteCache create(path_); }
        sqlite3_open(path_.c_str(), &db_);
        sqlite3_exec(db_, "PRAGMA journal_mode=WAL; BEGIN", nullptr, nullptr, nullptr);
        sqlite3_stmt* image = nullptr;
        sqlite3_stmt* label = nullptr;
        sqlite3_prepare_v2(db_, "INSERT INTO vqfe_images (asset_id, path, face_count) VALUES (?1, ?2, ?3)", -1, &image,
                           nullptr);
        sqlite3_prepare_v2(db_, "INSERT OR IGNORE INTO vqfe_labels (asset_id, source, name, score) VALUES (?1, '25', ?2, ?3)",
                           -1, &label, nullptr);
        std::mt19937 random(3);
        for (int i = 0; i < n; ++i) {
            const std::string asset = "asset" + std::to_string(i);
            sqlite3_bind_text(image, 1, asset.c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_text(image, 2, ("/photos/" + asset + ".jpg").c_str(), -1, SQLITE_TRANSIENT);
            sqlite3_bind_int(image, 3, static_cast<int>(random() % 5));
            sqlite3_step(image);
            sqlite3_reset(image);
            std::vector<std::string> names{"label" + std::to_string(random() % 200)};
            if (random() % 100 < 30) names.push_back("people");
            if (random() % 100 < 1) names.push_back("cat_c1_c2");
            names.push_back("label" + std::to_string(random() % 200));
            for (const auto& name : names) {
                sqlite3_bind_text(label, 1, asset.c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_bind_text(label, 2, name.c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_bind_double(label, 3, (random() % 1000) / 1000.0);
                sqlite3_step(label);
                sqlite3_reset(label);
            }
        }
        sqlite3_finalize(image);
        sqlite3_finalize(label);
        sqlite3_exec(db_, "COMMIT; ANALYZE", nullptr, nullptr, nullptr);
    }
    ~LabelledStore() { sqlite3_close(db_); }
    const std::string& path() const { return path_; }
    sqlite3* db() const { return db_; }

private:
    VQFeature::TempDir dir_;
    std::string path_;
    sqlite3* db_ = nullptr;
};

LabelledStore& store() {
    static LabelledStore instance(smoke() ? 10000 : 1000000);
    return instance;
}

void BM_SearchLabels1M(benchmark::State& state) {
    VQFeature::SqliteCache cache(store().path());
    VQFeature::SearchQuery query;
    query.labels = {{"cat_c1_c2"}, {"people"}};
    query.minFaces = 1;
    size_t found = 0;
    for (auto _ : state) found = cache.search(query).size();
    state.counters["found"] = static_cast<double>(found);
}
BENCHMARK(BM_SearchLabels1M)->Unit(benchmark::kMillisecond);

void BM_SearchOneCommonLabel1M(benchmark::State& state) {
    VQFeature::SqliteCache cache(store().path());
    VQFeature::SearchQuery query;
    query.labels = {{"label7"}};
    size_t found = 0;
    for (auto _ : state) found = cache.search(query).size();
    state.counters["found"] = static_cast<double>(found);
}
BENCHMARK(BM_SearchOneCommonLabel1M)->Unit(benchmark::kMillisecond);

// Baseline: one pass over the label table, what any search without its index must do.
void BM_LabelTableScanBaseline(benchmark::State& state) {
    sqlite3_stmt* scan = nullptr;
    sqlite3_prepare_v2(store().db(), "SELECT count(*) FROM vqfe_labels NOT INDEXED WHERE name = 'cat_c1_c2'", -1,
                       &scan, nullptr);
    for (auto _ : state) {
        sqlite3_step(scan);
        benchmark::DoNotOptimize(sqlite3_column_int64(scan, 0));
        sqlite3_reset(scan);
    }
    sqlite3_finalize(scan);
}
BENCHMARK(BM_LabelTableScanBaseline)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
