#include "extractor/extractor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "cache/memory_cache.h"
#include "encoding/decode_helpers.h"
#include "extractor/algorithm_types.h"
#include "extractor/extractor_impl.h"
#include "testing/fake_algorithm_system.h"

namespace VQFeature {
namespace {

using ::testing::_;
using ::testing::NiceMock;
using ::testing::Return;
using Vantor::AlgorithmType;

class MockCache : public CacheAdapter {
public:
    MOCK_METHOD(std::vector<std::shared_ptr<Result>>, query, (const std::shared_ptr<Input>&), (override));
    MOCK_METHOD(std::shared_ptr<Result>, query, (const std::string&, const std::string&), (override));
    MOCK_METHOD(void, save, (const std::vector<std::shared_ptr<Result>>&), (override));
    MOCK_METHOD(void, save, (const std::shared_ptr<Result>&), (override));
    MOCK_METHOD(void, clear, (const std::vector<std::string>&), (override));
    MOCK_METHOD(void, clearTypes, (const std::vector<Vantor::AlgorithmType>&), (override));
    MOCK_METHOD(void, clearTypes, (const std::vector<std::string>&), (override));
    MOCK_METHOD(void, clearAll, (), (override));
};

// An asset whose image is width x 2 pixels of RGBA.
std::shared_ptr<Resource> asset(const std::string& id, int width, int height = 2) {
    auto buffer = std::make_shared<ImageBuffer>();
    buffer->width = width;
    buffer->height = height;
    std::string pixels(static_cast<size_t>(width) * 2 * 4, '\x7f');
    buffer->setData(pixels.data(), pixels.size());
    buffer->length = pixels.size();
    return std::make_shared<Resource>(id, id + ".jpg", buffer);
}

float decodedConfidence(Result& result) {
    CPornClsBuffer* decoded = result.pornClsBuffer();
    return decoded == nullptr ? -1.f : decoded->confidence;
}

class ExtractorTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(extractor.init(), 0); }

    std::shared_ptr<Input> pornInput(const ResourceList& resources) {
        return std::make_shared<Input>(resources, "{graph}", IntParams{{"n", 1}}, AlgorithmType::PornCls);
    }

    FakeSystemFactory factory;
    std::shared_ptr<Config> config = std::make_shared<Config>();
    std::shared_ptr<MemoryCache> cache = std::make_shared<MemoryCache>(16);
    std::shared_ptr<MemoryCache> store = std::make_shared<MemoryCache>(16);
    Extractor extractor{config, cache, store, "models", "vantor.json", false};
    FakeAlgorithmSystem& fake() { return factory.latest(); }
    ErrorPair error{0, "untouched"};
};

TEST_F(ExtractorTest, CacheFirstWalkRunsOnlyTheMisses) {
    auto input = pornInput({asset("a", 100), asset("b", 200), asset("c", 300)});
    const std::string key = input->algorithmKey(AlgorithmType::AllNodes);
    auto cached = std::make_shared<Result>("b", key, AlgorithmType::PornCls);
    cache->save(cached);

    auto out = extractor.extractFeatures(input, true, &error);
    ASSERT_EQ(out.size(), 3u);
    EXPECT_EQ(fake().executes, 2);
    EXPECT_EQ(out[1], cached);
    EXPECT_EQ(out[0]->assetId, "a");
    EXPECT_EQ(out[2]->assetId, "c");
    EXPECT_EQ(out[0]->algorithmKey, key);
    EXPECT_EQ(cache->query("a", key), out[0]);
    EXPECT_EQ(store->query("c", key), out[2]);
    EXPECT_FLOAT_EQ(decodedConfidence(*out[0]), 0.1f);
    EXPECT_FLOAT_EQ(decodedConfidence(*out[2]), 0.3f);
    EXPECT_EQ(error.second, "untouched");
    // The request's graph and parameters reached the framework first.
    EXPECT_EQ(fake().graphs.back(), "{graph}");
    EXPECT_EQ(fake().intParams.at("n"), 1);
}

TEST_F(ExtractorTest, WithoutCacheUseOnlyTheStoreCacheSeesResults) {
    auto strict = std::make_shared<::testing::StrictMock<MockCache>>();  // any call fails the test
    auto recording = std::make_shared<NiceMock<MockCache>>();
    Extractor own(config, strict, recording, "models", "vantor.json", false);
    ASSERT_EQ(own.init(), 0);
    EXPECT_CALL(*recording, save(::testing::A<const std::shared_ptr<Result>&>())).Times(2);
    auto out = own.extractFeatures(pornInput({asset("a", 100), asset("b", 200)}), false, &error);
    EXPECT_EQ(out.size(), 2u);
}

TEST_F(ExtractorTest, UnusableImagesAreSkippedSilently) {
    auto noBuffer = std::make_shared<Resource>("none");
    auto out = extractor.extractFeatures(pornInput({asset("flat", 100, 0), noBuffer}), true, &error);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0]->result, nullptr);
    EXPECT_EQ(out[0]->assetId, "flat");
    EXPECT_EQ(fake().executes, 0);
    EXPECT_EQ(error.second, "untouched");
    EXPECT_EQ(cache->query("flat", out[0]->algorithmKey), nullptr);

    EXPECT_TRUE(extractor.extractFeatures(pornInput({}), true, &error).empty());
    EXPECT_EQ(error.second, "untouched");
}

TEST_F(ExtractorTest, FailuresReachTheErrorPairAndTheWalkGoesOn) {
    auto input = pornInput({asset("bad", FakeAlgorithmSystem::kFailingWidth), asset("good", 100)});
    auto out = extractor.extractFeatures(input, true, &error);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(error, ErrorPair(8, "Vantor Execute error:INVALID_FORMAT, algorithmType:33"));
    EXPECT_EQ(out[0]->result, nullptr);
    EXPECT_EQ(cache->query("bad", out[0]->algorithmKey), nullptr);
    EXPECT_NE(out[1]->result, nullptr);

    // The last failure of a call wins; nothing resets the pair on success.
    fake().absentTypes.insert(AlgorithmType::PornCls);
    extractor.extractFeatures(pornInput({asset("bad2", FakeAlgorithmSystem::kFailingWidth), asset("x", 5)}), true,
                              &error);
    EXPECT_EQ(error, ErrorPair(204, "Vantor Result is NULL"));
    fake().absentTypes.clear();
    extractor.extractFeatures(pornInput({asset("y", 7)}), true, &error);
    EXPECT_EQ(error.first, 204);
    // A null pair drops failures.
    extractor.extractFeatures(pornInput({asset("z", FakeAlgorithmSystem::kFailingWidth)}), true, nullptr);
}

TEST_F(ExtractorTest, KindWithoutEncoderIsCachedWithoutBlob) {
    auto input = std::make_shared<Input>(ResourceList{asset("a", 10)}, "", IntParams{},
                                         AlgorithmType::FaceExpression);
    auto out = extractor.extractFeatures(input, true, &error);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(out[0]->result, nullptr);
    EXPECT_EQ(cache->query("a", out[0]->algorithmKey), out[0]);
}

TEST_F(ExtractorTest, FrameworkImageInputIsBuiltFromTheBuffer) {
    auto resource = asset("a", 4);
    resource->buffer->format = 9;       // out of range -> 0
    resource->buffer->rotateMode = 3;
    extractor.extractFeatures(pornInput({resource}), false, &error);
    EXPECT_EQ(fake().lastImage.width, 4);
    EXPECT_EQ(fake().lastImage.height, 2);
    EXPECT_EQ(fake().lastImage.format, 0);
    EXPECT_EQ(fake().lastImage.rotation, 3);
    EXPECT_EQ(fake().lastImage.dataLength, 32u);
    EXPECT_EQ(fake().lastImage.data, resource->buffer->data);
    EXPECT_EQ(fake().lastImage.stride, 0);

    resource->buffer->format = -1;
    resource->buffer->rotateMode = 4;  // out of range -> 0
    extractor.extractFeatures(pornInput({resource}), false, &error);
    EXPECT_EQ(fake().lastImage.format, -1);
    EXPECT_EQ(fake().lastImage.rotation, 0);
}

TEST_F(ExtractorTest, ImagesNeedingMoreBytesThanTheyHoldFailBeforeTheFramework) {
    // length claims more than setData gave: the block's size decides.
    auto claimed = asset("claimed", 2000, 2000);
    claimed->buffer->setData("0123456789", 10);
    claimed->buffer->length = 16000000;
    // length itself too short for 640x480 RGBA.
    auto shortLength = asset("short", 640, 480);
    shortLength->buffer->setData(std::string(640 * 480 * 4, '\1').data(), 640 * 480 * 4);
    shortLength->buffer->length = 100;
    // recycle forgets the block; the text constructor's block is the text's length.
    auto recycled = asset("recycled", 4);
    recycled->buffer->recycle();
    auto fromText = std::make_shared<Resource>(
        "text", "", std::make_shared<ImageBuffer>(640, 480, "abc", static_cast<unsigned long>(640 * 480 * 4)));
    auto negative = asset("negative", 4);
    negative->buffer->height = -2;

    const std::string prefix = "Vantor Execute error:INVALID_FORMAT, algorithmType:33: ";
    const std::vector<std::pair<std::shared_ptr<Resource>, std::string>> cases = {
        {claimed, prefix + "image data holds 10 bytes, 16000000 needed for 2000x2000 in format 0"},
        {shortLength, prefix + "image data holds 100 bytes, 1228800 needed for 640x480 in format 0"},
        {recycled, prefix + "image data holds 0 bytes, 32 needed for 4x2 in format 0"},
        {fromText, prefix + "image data holds 3 bytes, 1228800 needed for 640x480 in format 0"},
        {negative, prefix + "image size 4x-2 is negative"},
    };
    for (const auto& [resource, message] : cases) {
        error = {0, ""};
        auto out = extractor.extractFeatures(pornInput({resource}), true, &error);
        ASSERT_EQ(out.size(), 1u);
        EXPECT_EQ(out[0]->result, nullptr) << resource->assetId;
        EXPECT_EQ(error, ErrorPair(8, message)) << resource->assetId;
    }
    EXPECT_EQ(fake().executes, 0);

    // Formats count their own bytes: 4x2 gray needs 8, NV21 12; a longer block is
    // handed on with the claimed length only.
    auto gray = asset("gray", 4);
    gray->buffer->format = Vantor::PIXEL_FORMAT_GRAY8;
    gray->buffer->length = 8;
    extractor.extractFeatures(pornInput({gray}), false, &error);
    EXPECT_EQ(fake().executes, 1);
    EXPECT_EQ(fake().lastImage.dataLength, 8u);
    gray->buffer->format = Vantor::PIXEL_FORMAT_NV21;
    gray->buffer->length = 11;
    error = {0, ""};
    extractor.extractFeatures(pornInput({gray}), false, &error);
    EXPECT_EQ(error.second, prefix + "image data holds 11 bytes, 12 needed for 4x2 in format 5");
}

TEST_F(ExtractorTest, NullRequestsAndCallsFromInsideARunAreReported) {
    auto out = extractor.extractFeatures(std::shared_ptr<Input>(), true, &error);
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(error, ErrorPair(3, "extractFeatures: the request is null"));
    error = {0, ""};
    EXPECT_TRUE(extractor.extractFeatures(std::shared_ptr<MultiAlgorithmInput>(), true, &error).empty());
    EXPECT_EQ(error.first, 3);

    // A host cache that calls back into its own Extractor while a run saves: the cache
    // calls go ahead, init and runs are refused instead of waiting for themselves.
    auto reentrant = std::make_shared<NiceMock<MockCache>>();
    Extractor own(config, reentrant, nullptr, "models", "vantor.json", false);
    ASSERT_EQ(own.init(), 0);
    int initCode = 0;
    ErrorPair nested{0, ""};
    EXPECT_CALL(*reentrant, save(::testing::A<const std::shared_ptr<Result>&>())).WillOnce([&](auto&) {
        own.clearAll();
        own.queryFeatures(pornInput({asset("q", 1)}), false);
        initCode = own.init();
        own.extractFeatures(pornInput({asset("inner", 3)}), false, &nested);
    });
    EXPECT_CALL(*reentrant, clearAll());
    own.extractFeatures(pornInput({asset("outer", 100)}), true, &error);
    EXPECT_EQ(initCode, 9);
    EXPECT_EQ(nested, ErrorPair(9, "Vantor Execute error:INTERNAL_ERROR, algorithmType:33: called from inside a "
                                   "run of the same Extractor"));
    EXPECT_EQ(own.init(), 0);  // the gate is free again afterwards
}

class MultiExtractorTest : public ExtractorTest {
protected:
    std::shared_ptr<MultiAlgorithmInput> multiInput(const ResourceList& resources) {
        return std::make_shared<MultiAlgorithmInput>(
            resources, "{whole}", std::vector<AlgorithmType>{AlgorithmType::PornCls},
            std::vector<std::string>{AlgorithmTypeC300, "custom_node"});
    }
    // Caches, for asset "a", a porn blob of the given confidence; returns its Result.
    std::shared_ptr<Result> cachePorn(MultiAlgorithmInput& input, float confidence) {
        Vantor::PornClsBuffer porn;
        porn.confidence = confidence;
        unsigned long length = 0;
        void* blob = Extractor::ExtractorImpl::resultConvert(AlgorithmType::PornCls, &porn, &length);
        auto result = std::make_shared<Result>("a", input.algorithmKey(AlgorithmType::PornCls), AlgorithmType::PornCls,
                                               blob, static_cast<int>(length));
        cache->save(result);
        return result;
    }
    void cacheNamed(MultiAlgorithmInput& input, const std::string& name) {
        cache->save(std::make_shared<Result>("a", input.algorithmKey(name), name, nullptr, 0));
    }
};

TEST_F(MultiExtractorTest, OneRunFillsEveryKindAndHandsBlobsToItems) {
    auto input = multiInput({asset("a", 250)});
    auto out = extractor.extractFeatures(input, true, &error);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_EQ(fake().executes, 1);
    EXPECT_EQ(fake().executedTypes.back(), AlgorithmType::AllNodes);
    MultiResult& mr = *out[0];
    EXPECT_EQ(mr.assetId, "a");
    ASSERT_EQ(mr.resultCount(), 3);
    ASSERT_NE(mr.pornClsBuffer(), nullptr);
    EXPECT_FLOAT_EQ(mr.pornClsBuffer()->confidence, 0.25f);
    ASSERT_NE(mr.c300Buffer(), nullptr);
    EXPECT_EQ(mr.c300Buffer()->n_m_labels, 2u);
    auto custom = mr.getResultItem(std::string("custom_node"));
    ASSERT_NE(custom, nullptr);
    EXPECT_EQ(custom->data, nullptr);  // a named output without encoder
    // The caches were offered Results whose blobs went to the items.
    auto cached = cache->query("a", input->algorithmKey(AlgorithmType::PornCls));
    ASSERT_NE(cached, nullptr);
    EXPECT_EQ(cached->result, nullptr);
    EXPECT_EQ(cached->resultLength, 0u);
    auto storedC300 = store->query("a", input->algorithmKey(std::string(AlgorithmTypeC300)));
    ASSERT_NE(storedC300, nullptr);
    EXPECT_EQ(storedC300->algorithmStringType, AlgorithmTypeC300);
    EXPECT_EQ(storedC300->algorithmType, AlgorithmType::AllNodes);

    // An output the run did not produce gives no item.
    fake().absentNames.insert(AlgorithmTypeC300);
    out = extractor.extractFeatures(multiInput({asset("b", 250)}), false, &error);
    EXPECT_EQ(out[0]->resultCount(), 2);
    EXPECT_EQ(out[0]->getResultItem(std::string(AlgorithmTypeC300)), nullptr);
}

TEST_F(MultiExtractorTest, FullHitTakesTheCachedBlobsWithoutRunning) {
    auto input = multiInput({asset("a", 250)});
    cacheNamed(*input, AlgorithmTypeC300);
    cacheNamed(*input, "custom_node");
    auto cachedPorn = cachePorn(*input, 0.5f);
    void* blob = cachedPorn->result;

    auto out = extractor.extractFeatures(input, true, &error);
    EXPECT_EQ(fake().executes, 0);
    ASSERT_EQ(out[0]->resultCount(), 3);
    EXPECT_EQ(out[0]->getResultItem(AlgorithmType::PornCls)->data, blob);
    EXPECT_FLOAT_EQ(out[0]->pornClsBuffer()->confidence, 0.5f);
    EXPECT_EQ(cachedPorn->result, nullptr);  // moved, not copied
    EXPECT_EQ(cachedPorn->resultLength, 0u);
}

TEST_F(MultiExtractorTest, OneMissingKindDropsTheHitsAndRunsAgain) {
    auto input = multiInput({asset("a", 250)});
    auto cachedPorn = cachePorn(*input, 0.5f);
    cacheNamed(*input, AlgorithmTypeC300);  // "custom_node" is not cached

    auto out = extractor.extractFeatures(input, true, &error);
    EXPECT_EQ(fake().executes, 1);
    EXPECT_EQ(out[0]->resultCount(), 3);  // only the fresh items
    EXPECT_FLOAT_EQ(out[0]->pornClsBuffer()->confidence, 0.25f);
    EXPECT_EQ(cachedPorn->result, nullptr);  // its blob was taken, then dropped
}

TEST_F(MultiExtractorTest, FailedRunLeavesAnEmptyResult) {
    auto out = extractor.extractFeatures(multiInput({asset("bad", FakeAlgorithmSystem::kFailingWidth), asset("ok", 9)}),
                                         true, &error);
    ASSERT_EQ(out.size(), 2u);
    EXPECT_EQ(out[0]->resultCount(), 0);
    EXPECT_EQ(out[1]->resultCount(), 3);
    EXPECT_EQ(error, ErrorPair(8, "Vantor Execute error:INVALID_FORMAT, algorithmType:-1"));
    EXPECT_EQ(fake().graphs.back(), "{whole}");
}

TEST_F(ExtractorTest, QueryFeaturesBothWays) {
    auto input = pornInput({asset("a", 100), asset("b", 200)});
    const std::string key = input->algorithmKey(AlgorithmType::AllNodes);
    auto shared = std::make_shared<Result>("a", key, AlgorithmType::PornCls);
    auto onlyStored = std::make_shared<Result>("b", key, AlgorithmType::PornCls);
    cache->save(shared);
    store->save(shared);
    store->save(onlyStored);

    auto first = extractor.queryFeatures(input, true);
    EXPECT_EQ(first, std::vector<std::shared_ptr<Result>>{shared});
    auto both = extractor.queryFeatures(input, false);
    ASSERT_EQ(both.size(), 2u);
    EXPECT_LT(both[0], both[1]);  // ordered by address
    EXPECT_EQ(std::count(both.begin(), both.end(), shared), 1);
    EXPECT_EQ(std::count(both.begin(), both.end(), onlyStored), 1);
}

TEST_F(ExtractorTest, ClearsGoToTheFirstCache) {
    auto mock = std::make_shared<::testing::StrictMock<MockCache>>();
    Extractor own(config, mock, store, "models", "vantor.json", false);
    EXPECT_CALL(*mock, clearAll());
    EXPECT_CALL(*mock, clear(std::vector<std::string>{"a"}));
    EXPECT_CALL(*mock, clearTypes(std::vector<std::string>{"n"}));
    EXPECT_CALL(*mock, clearTypes(std::vector<AlgorithmType>{AlgorithmType::Face}));
    own.clearAll();
    own.clearAssets({"a"});
    own.clearTypes(std::vector<std::string>{"n"});
    own.clearTypes(std::vector<AlgorithmType>{AlgorithmType::Face});
}

TEST_F(ExtractorTest, HostCacheExceptionsCrossTheEngineAndReleaseTheGate) {
    auto throwing = std::make_shared<NiceMock<MockCache>>();
    Extractor own(config, throwing, nullptr, "models", "vantor.json", false);
    ASSERT_EQ(own.init(), 0);
    EXPECT_CALL(*throwing, query(_, _)).WillOnce(::testing::Throw(std::runtime_error("host says no")))
        .WillRepeatedly(Return(nullptr));
    EXPECT_THROW(own.extractFeatures(pornInput({asset("a", 100)}), true, &error), std::runtime_error);
    auto multi = std::make_shared<MultiAlgorithmInput>(ResourceList{asset("a", 1)}, "",
                                                       std::vector<AlgorithmType>{AlgorithmType::PornCls},
                                                       std::vector<std::string>{});
    EXPECT_CALL(*throwing, query(_, _)).WillOnce(::testing::Throw(std::runtime_error("again")))
        .WillRepeatedly(Return(nullptr));
    EXPECT_THROW(own.extractFeatures(multi, true, &error), std::runtime_error);

    // The gate is free again, and a save that throws inside the run becomes error 500.
    EXPECT_CALL(*throwing, save(::testing::A<const std::shared_ptr<Result>&>()))
        .WillOnce(::testing::Throw(std::runtime_error("disk full")));
    auto out = own.extractFeatures(pornInput({asset("b", 100)}), true, &error);
    EXPECT_EQ(out.size(), 1u);
    EXPECT_EQ(error, ErrorPair(500, "Vantor Throw Exception:disk full"));
}

TEST_F(ExtractorTest, ExtractFeatureByVantorHandsBackTheRawOutput) {
    Vantor::VantorImageBuffer image;
    image.width = 40;
    image.height = 1;
    void* out = extractor.extractFeatureByVantor(image, AlgorithmType::PornCls, "{raw}", IntParams{{"i", 2}},
                                                 FloatParams{{"f", 0.5f}}, StringParams{{"s", "t"}});
    ASSERT_NE(out, nullptr);
    EXPECT_FLOAT_EQ(static_cast<Vantor::PornClsBuffer*>(out)->confidence, 0.04f);
    EXPECT_EQ(fake().graphs.back(), "{raw}");
    EXPECT_EQ(fake().floatParams.at("f"), 0.5f);
    EXPECT_EQ(fake().stringParams.at("s"), "t");
    image.width = FakeAlgorithmSystem::kFailingWidth;
    EXPECT_EQ(extractor.extractFeatureByVantor(image, AlgorithmType::PornCls, "", {}, {}, {}), nullptr);
}

TEST(ExtractorInitTest, InitAppliesTheConfigGraphOnlyAfterSuccess) {
    FakeSystemFactory factory;
    auto config = std::make_shared<Config>();
    config->graph = "g";
    std::shared_ptr<CacheAdapter> cache = std::make_shared<MemoryCache>(2);
    std::shared_ptr<CacheAdapter> none;
    auto extractor = Extractor::makeInstance(config, cache, none, "models", "vantor.json", true);
    EXPECT_EQ(factory.alive(), 0u);  // no wrapper before init
    ASSERT_EQ(extractor->init(), 0);
    EXPECT_EQ(factory.latest().graphs, std::vector<std::string>{"g"});
    EXPECT_EQ(factory.latest().finderInstalls, 1);

    // A re-init replaces the wrapper; a failing framework init returns its code and
    // neither installs the finder nor loads the configured graph.
    factory.initCodeForNew = Vantor::INVALID_CONFIG;
    EXPECT_EQ(extractor->init(), Vantor::INVALID_CONFIG);
    EXPECT_EQ(factory.alive(), 1u);  // the first wrapper was destroyed, the new one kept
    EXPECT_TRUE(factory.latest().graphs.empty());
    EXPECT_EQ(factory.latest().finderInstalls, 0);
    // Runs before a successful init do not crash.
    Extractor fresh(config, cache, none, "models", "vantor.json", false);
    ErrorPair error;
    fresh.extractFeatures(std::make_shared<Input>(ResourceList{asset("a", 3)}, "", IntParams{}, AlgorithmType::PornCls),
                          true, &error);
    EXPECT_EQ(error.first, Vantor::NOT_INIT);
}

}  // namespace
}  // namespace VQFeature
