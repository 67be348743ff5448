// Random sequences of public calls (records with extreme and inconsistent values, runs of
// every kind, init, queries, clears, result reads) from one to four threads sharing one
// Extractor and its caches. Under the asan preset any out-of-bounds read, leak or
// undefined behaviour fails the run; everywhere a wrong answer to the few invariants
// checked here does. The framework is a fake that reads every pixel byte it is handed,
// so an image that claims more bytes than it holds shows up as an overflow.
//
// VQFE_API_SEQUENCE_CALLS sets the number of calls per thread count (default 25000, so
// 10^5 in all), VQFE_API_SEQUENCE_SEED the seed (default: from the clock, printed).
#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <mutex>
#include <random>
#include <stdexcept>
#include <thread>
#include <vector>

#include "cache/memory_cache.h"
#include "extractor/algorithm_types.h"
#include "extractor/extractor.h"
#include "testing/fake_algorithm_system.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

// Reads every byte it is given before answering like the usual fake.
class PixelReadingSystem : public FakeAlgorithmSystem {
public:
    Vantor::VantorErrorCode execute(const Vantor::VantorAlgorithmInput& input, AlgorithmType type) override {
        const auto& image = static_cast<const Vantor::VantorImageBuffer&>(input);
        unsigned sum = 0;
        for (uint64_t i = 0; image.data != nullptr && i < image.dataLength; ++i) sum += image.data[i];
        checksum += sum;
        return FakeAlgorithmSystem::execute(input, type);
    }
    // Only the kind whose buffer it fills answers (the framework hands each kind its own
    // buffer type, and the encoders rely on it).
    void* getResult(const AlgorithmType& type) override {
        return type == AlgorithmType::PornCls ? FakeAlgorithmSystem::getResult(type) : nullptr;
    }
    unsigned checksum = 0;
};

// Hands out a new PixelReadingSystem per wrapper; safe from any thread.
class LockedFactory {
public:
    LockedFactory()
        : scope_(
              [this] {
                  std::lock_guard<std::mutex> lock(mutex_);
                  ++created_;
                  return new PixelReadingSystem;
              },
              [this](Vantor::VantorAlgorithmSystem* system) {
                  std::lock_guard<std::mutex> lock(mutex_);
                  delete system;
              }) {}
    int created() {
        std::lock_guard<std::mutex> lock(mutex_);
        return created_;
    }

private:
    std::mutex mutex_;
    int created_ = 0;
    ScopedAlgorithmSystemFactory scope_;
};

const AlgorithmType kKinds[] = {
    AlgorithmType::AllNodes, AlgorithmType::Face, AlgorithmType::Skeleton, AlgorithmType::FaceVerify,
    AlgorithmType::FaceExpression, AlgorithmType::FaceClusting, AlgorithmType::Matting, AlgorithmType::SceneRecog,
    AlgorithmType::Similarity, AlgorithmType::AfterEffect, AlgorithmType::PornCls, AlgorithmType::FaceAttribute,
    AlgorithmType::SceneRecogV3, AlgorithmType::SaliencySeg, AlgorithmType::PetMatting, AlgorithmType::FacePetDetect,
    AlgorithmType::NHClassification, AlgorithmType::RelationRecog, static_cast<AlgorithmType>(0),
    static_cast<AlgorithmType>(999), static_cast<AlgorithmType>(INT_MIN)};
const int kSizes[] = {INT_MIN, -1, 0, 1, 2, 3, 13, 64, 641, 1 << 15, INT_MAX};
const unsigned long kLengths[] = {0, 1, 7, 32, 4096, 1228800, ULONG_MAX};
const char* const kNames[] = {AlgorithmTypeClip128, AlgorithmTypeC300, AlgorithmTypeRelation, "", "custom_node"};

// One thread's walk: its own records (asset ids carry the thread's number, so the
// Results the shared caches hand out never cross threads), the shared Extractor.
class Walker {
public:
    Walker(Extractor& shared, int thread, uint64_t seed) : shared_(shared), thread_(thread), random_(seed) {}

    void step() {
        using Call = void (Walker::*)();
        static const Call calls[] = {&Walker::newBuffer, &Walker::setData,       &Walker::recycle,
                                     &Walker::setField,  &Walker::newResource,   &Walker::newInput,
                                     &Walker::newMulti,  &Walker::runSingle,     &Walker::runSingle,
                                     &Walker::runMulti,  &Walker::runRaw,        &Walker::query,
                                     &Walker::init,      &Walker::clear,         &Walker::readResult,
                                     &Walker::readMulti, &Walker::ownCache,      &Walker::ownExtractor};
        (this->*calls[pick(std::size(calls))])();
    }

private:
    size_t pick(size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(random_); }
    bool coin() { return pick(2) == 0; }
    template <typename T, size_t N>
    const T& any(const T (&values)[N]) {
        return values[pick(N)];
    }
    template <typename T>
    T& any(std::vector<T>& pool) {
        return pool[pick(pool.size())];
    }
    std::string bytes(size_t n) {
        std::string text(n, '\0');
        for (auto& c : text) c = static_cast<char>(pick(256));
        return text;
    }
    int size() { return coin() ? static_cast<int>(pick(70)) : any(kSizes); }
    std::shared_ptr<ImageBuffer>& buffer() { return any(buffers_); }
    std::string assetId() { return std::to_string(thread_) + "/" + std::to_string(pick(6)); }

    void newBuffer() {
        if (coin()) {
            buffers_.push_back(std::make_shared<ImageBuffer>());
            return;
        }
        const std::string text = bytes(pick(40));
        const char* data = coin() ? nullptr : text.c_str();
        buffers_.push_back(std::make_shared<ImageBuffer>(size(), size(), data, any(kLengths)));
    }
    void setData() {
        const std::string data = bytes(coin() ? pick(64) : pick(20000));
        buffer()->setData(coin() && data.empty() ? nullptr : data.data(), data.size());
        if (coin()) buffer()->length = data.size();
    }
    void recycle() { buffer()->recycle(); }
    void setField() {
        auto& b = *buffer();
        switch (pick(5)) {
            case 0: b.width = size(); break;
            case 1: b.height = size(); break;
            case 2: b.length = coin() ? any(kLengths) : pick(20000); break;
            case 3: b.format = static_cast<int>(pick(14)) - 3; break;
            default: b.rotateMode = coin() ? INT_MIN : static_cast<int>(pick(7)) - 1; break;
        }
    }
    void newResource() {
        std::shared_ptr<ImageBuffer> b = coin() || buffers_.empty() ? nullptr : buffer();
        resources_.push_back(pick(3) == 0 ? std::make_shared<Resource>(assetId())
                                          : std::make_shared<Resource>(assetId(), "p.jpg", b));
        resources_.back()->isInvalidResource();
    }
    ResourceList resList() {
        ResourceList list;
        for (size_t n = pick(4); n > 0; --n) list.push_back(pick(8) == 0 ? nullptr : any(resources_));
        return list;
    }
    void newInput() {
        IntParams ints;
        if (coin()) ints["face_max_num"] = coin() ? LLONG_MIN : 10;
        FloatParams floats{{"t", coin() ? 0.5f : -1e30f}};
        inputs_.push_back(std::make_shared<Input>(resList(), coin() ? "" : "{g" + std::to_string(pick(3)) + "}",
                                                  ints, floats, StringParams{{"s", bytes(3)}}, any(kKinds)));
        inputs_.back()->algorithmKey(any(kKinds));
    }
    void newMulti() {
        std::vector<AlgorithmType> types;
        std::vector<std::string> names;
        for (size_t n = pick(4); n > 0; --n) types.push_back(any(kKinds));
        for (size_t n = pick(3); n > 0; --n) names.push_back(any(kNames));
        multis_.push_back(std::make_shared<MultiAlgorithmInput>(resList(), coin() ? "" : "{whole}", types, names));
        multis_.back()->algorithmKey(any(kNames));
    }
    ErrorPair* errorOrNull() { return coin() ? &error_ : nullptr; }
    void runSingle() {
        std::shared_ptr<Input> input = pick(10) == 0 ? nullptr : any(inputs_);
        auto out = shared_.extractFeatures(input, coin(), errorOrNull());
        ASSERT_EQ(out.size(), input ? input->resList.size() : 0u);
        for (auto& r : out) {
            ASSERT_NE(r, nullptr);
            if (coin()) results_.push_back(r);
        }
    }
    void runMulti() {
        std::shared_ptr<MultiAlgorithmInput> input = pick(10) == 0 ? nullptr : any(multis_);
        auto out = shared_.extractFeatures(input, coin(), errorOrNull());
        ASSERT_EQ(out.size(), input ? input->resList.size() : 0u);
        for (auto& r : out) {
            ASSERT_NE(r, nullptr);
            if (coin()) multiResults_.push_back(r);
        }
    }
    void runRaw() {
        const std::string pixels = bytes(pick(64));
        Vantor::VantorImageBuffer image;
        image.width = static_cast<int>(pick(5));
        image.height = 1;
        image.data = reinterpret_cast<const uint8_t*>(pixels.data());
        image.dataLength = pixels.size();  // a raw framework input: the caller vouches for it
        shared_.extractFeatureByVantor(image, any(kKinds), coin() ? "" : "{raw}", {}, {}, {});
    }
    void query() {
        for (auto& r : shared_.queryFeatures(any(inputs_), coin())) ASSERT_NE(r, nullptr);
    }
    void init() {
        const int code = shared_.init();
        ASSERT_EQ(code, 0);
    }
    void clear() {
        switch (pick(4)) {
            case 0: shared_.clearAll(); break;
            case 1: shared_.clearAssets({assetId()}); break;
            case 2: shared_.clearTypes(std::vector<std::string>{any(kNames)}); break;
            default: shared_.clearTypes(std::vector<AlgorithmType>{any(kKinds)}); break;
        }
    }
    void readResult() {
        if (results_.empty()) return;
        Result& r = *any(results_);
        switch (pick(8)) {
            case 0: r.faceBuffer(); r.pornClsBuffer(); r.sceneRecogBuffer(); r.nHClassificationBuffer(); break;
            case 1: r.c300Buffer(); r.skeletonBuffer(); r.mattingResult(); r.faceClustingBuffer(); break;
            case 2: r.freeResult(); break;
            case 3: r.freeStructResult(); break;
            case 4: r.freeStringTypeResult(); break;
            case 5: {
                const std::string blob = bytes(pick(100));
                r.setResultNative(blob.data(), blob.size());
                if (coin()) r.resultLength = blob.size();
                break;
            }
            case 6: {
                std::vector<char> copy(pick(200));
                r.memcpyStructResult(copy.data(), copy.size());
                break;
            }
            default: {
                void* handedOn = r.result;  // resetData is for a blob handed elsewhere
                r.resetData();
                std::free(handedOn);
                break;
            }
        }
    }
    void readMulti() {
        if (multiResults_.empty()) return;
        MultiResult& m = *any(multiResults_);
        switch (pick(5)) {
            case 0: m.pornClsBuffer(); m.c300Buffer(); m.faceBuffer(); m.relationRecogBuffer(); break;
            case 1: m.clear(); break;
            case 2: {
                const std::string blob = bytes(pick(50));
                void* data = std::malloc(blob.size() + 1);
                std::memcpy(data, blob.data(), blob.size());
                if (coin()) {
                    m.emplace(any(kKinds), data, blob.size());
                } else {
                    m.emplace(any(kNames), data, blob.size());
                }
                break;
            }
            case 3: {
                auto item = coin() ? m.getResultItem(any(kKinds)) : m.getResultItem(any(kNames));
                std::vector<char> copy(pick(64));
                if (item) item->memcpyStructResult(copy.data(), copy.size());
                break;
            }
            default: EXPECT_GE(m.resultCount(), 0); break;
        }
    }
    // A cache of the thread's own, used directly (one thread per instance).
    void ownCache() {
        try {
            MemoryCache cache(coin() ? static_cast<int>(pick(3)) : -1);
            for (auto& r : results_) cache.save(r);
            cache.query(any(inputs_));
            cache.clearAll();
        } catch (const std::invalid_argument&) {
            // capacity 0 is refused at construction
        }
    }
    // An Extractor of the thread's own, never initialised or initialised once.
    void ownExtractor() {
        auto config = std::make_shared<Config>();
        config->graph = coin() ? "" : "{config}";
        auto cache = std::make_shared<MemoryCache>(4);
        Extractor own(config, coin() ? cache : nullptr, coin() ? cache : nullptr, "models", "vantor.json", coin());
        if (coin()) own.init();
        ErrorPair error;
        own.extractFeatures(any(inputs_), coin(), &error);
        own.extractFeatures(any(multis_), coin(), &error);
        own.clearAll();
        own.queryFeatures(any(inputs_), false);
    }

    Extractor& shared_;
    const int thread_;
    std::mt19937_64 random_;
    ErrorPair error_;
    std::vector<std::shared_ptr<ImageBuffer>> buffers_{std::make_shared<ImageBuffer>()};
    std::vector<std::shared_ptr<Resource>> resources_{std::make_shared<Resource>()};
    std::vector<std::shared_ptr<Input>> inputs_{std::make_shared<Input>()};
    std::vector<std::shared_ptr<MultiAlgorithmInput>> multis_{
        std::make_shared<MultiAlgorithmInput>(ResourceList{}, "", std::vector<AlgorithmType>{},
                                              std::vector<std::string>{})};
    std::vector<std::shared_ptr<Result>> results_;
    std::vector<std::shared_ptr<MultiResult>> multiResults_;
};

uint64_t envNumber(const char* name, uint64_t fallback) {
    const char* text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtoull(text, nullptr, 10) : fallback;
}

TEST(ApiSequenceTest, RandomCallsFromOneToFourThreadsStayDefined) {
    const uint64_t calls = envNumber("VQFE_API_SEQUENCE_CALLS", 25000);
    const uint64_t seed = envNumber(
        "VQFE_API_SEQUENCE_SEED", static_cast<uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count()));
    std::printf("seed %llu, %llu calls per thread count\n", static_cast<unsigned long long>(seed),
                static_cast<unsigned long long>(calls));
    LockedFactory factory;
    for (int threads = 1; threads <= 4; ++threads) {
        auto config = std::make_shared<Config>();
        auto cache = std::make_shared<MemoryCache>(8);
        auto store = std::make_shared<MemoryCache>(-1);
        Extractor shared(config, cache, store, "models", "vantor.json", false);
        std::vector<std::thread> workers;
        for (int t = 0; t < threads; ++t) {
            workers.emplace_back([&, t] {
                Walker walker(shared, t, seed + static_cast<uint64_t>(threads * 16 + t));
                for (uint64_t i = 0; i < calls / static_cast<uint64_t>(threads); ++i) {
                    walker.step();
                    if (::testing::Test::HasFatalFailure()) return;
                }
            });
        }
        for (auto& worker : workers) worker.join();
        ASSERT_FALSE(::testing::Test::HasFailure()) << "seed " << seed << ", " << threads << " threads";
    }
    EXPECT_GT(factory.created(), 4);
}

}  // namespace
}  // namespace VQFeature
