// BatchRunner over a scripted framework and a SQLite store: what the store answers whole
// loads no graph and runs nothing; whatever is missing, for any image or kind, is computed;
// a runner loads its graph once, however many batches it runs, and stores every result
// under the full graph's keys.
#include "library/batch_runner.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "cache/memory_cache.h"
#include "cache/sqlite_cache.h"
#include "cache/store_index.h"
#include "cache/stored_result.h"
#include "library/batch_store.h"
#include "extractor/algorithm_types.h"
#include "extractor/input.h"
#include "extractor/result.h"
#include "testing/fake_algorithm_system.h"
#include "testing/rgba_image.h"
#include "testing/temp_dir.h"

namespace vqfe {
namespace {

using VQFeature::FakeSystemFactory;

ImageOutcome pictureOfWidth(int width) {
    ImageOutcome outcome;
    outcome.image.path = "picture-" + std::to_string(width) + ".png";
    outcome.image.assetId = "asset-" + std::to_string(width);
    outcome.image.buffer = VQFeature::testing::rgbaImage(cv::Mat(20, width, CV_8UC3, cv::Scalar(90, 120, 150)));
    return outcome;
}

std::vector<ImageOutcome*> pointers(std::vector<ImageOutcome>& outcomes) {
    std::vector<ImageOutcome*> batch;
    for (auto& outcome : outcomes) batch.push_back(&outcome);
    return batch;
}

class BatchRunnerTest : public testing::Test {
protected:
    // Runs the kinds over pictures of these widths with a runner of its own (a new system).
    std::vector<ImageOutcome> run(const std::vector<std::string>& kindNames, const std::vector<int>& widths,
                                  const std::vector<std::string>& absentNames = {}) {
        AnalysisSetup setup{{}, "models", "framework.json"};
        for (const auto& name : kindNames) setup.kinds.push_back(*parseKind(name));
        BatchRunner runner(setup, "{\"graph\":\"" + std::to_string(setup.kinds.size()) + "\"}", store);
        EXPECT_EQ(runner.initCode(), 0);
        for (const auto& name : absentNames) factory.latest().absentNames.insert(name);
        std::vector<ImageOutcome> outcomes;
        for (int width : widths) outcomes.push_back(pictureOfWidth(width));
        auto batch = pointers(outcomes);
        runner.run(batch);
        graphLoads = factory.latest().graphs.size();
        executes = factory.latest().executes;
        lastWidth = factory.latest().lastImage.width;
        return outcomes;
    }

    VQFeature::TempDir dir;
    FakeSystemFactory factory;
    std::shared_ptr<VQFeature::CacheAdapter> store =
        std::make_shared<VQFeature::SqliteCache>(dir.path() + "/results.db");
    size_t graphLoads = 0;
    int executes = 0;
    int lastWidth = 0;  // of the last picture run
};

// The blob of a kind given by number or name.
std::string blobOf(const ImageOutcome& outcome, const std::string& kind) {
    auto found = outcome.blobs.find(parseKind(kind)->name);
    if (found == outcome.blobs.end() || found->second.first == nullptr) return "";
    return std::string(static_cast<const char*>(found->second.first), found->second.second);
}

TEST_F(BatchRunnerTest, AStoreThatHoldsEverythingLoadsNoGraph) {
    for (const std::vector<std::string>& kinds : {std::vector<std::string>{"33"}, {"33", "c300"}}) {
        const auto first = run(kinds, {100, 200});
        EXPECT_EQ(graphLoads, 1u);
        EXPECT_EQ(executes, 2);
        const auto again = run(kinds, {100, 200});
        EXPECT_EQ(graphLoads, 0u) << kinds.size() << " kinds";
        EXPECT_EQ(executes, 0);
        for (size_t i = 0; i < again.size(); ++i) {
            EXPECT_TRUE(again[i].fromStore);
            EXPECT_TRUE(again[i].produced);
            EXPECT_EQ(again[i].error.first, 0);
            for (const auto& kind : kinds) {
                EXPECT_FALSE(blobOf(again[i], kind).empty()) << kind;
                EXPECT_EQ(blobOf(again[i], kind), blobOf(first[i], kind)) << kind;
            }
        }
    }
}

TEST_F(BatchRunnerTest, WhatTheStoreLacksIsComputed) {
    // One picture stored, one new: the new one alone is run, and both come back.
    const auto stored = run({"33"}, {100});
    auto mixed = run({"33"}, {100, 300});
    EXPECT_EQ(graphLoads, 1u);
    EXPECT_EQ(executes, 1);
    EXPECT_EQ(lastWidth, 300);
    EXPECT_TRUE(mixed[0].fromStore);
    EXPECT_FALSE(mixed[1].fromStore);
    EXPECT_EQ(blobOf(mixed[0], "33"), blobOf(stored[0], "33"));
    EXPECT_TRUE(mixed[1].produced);
    EXPECT_FALSE(blobOf(mixed[1], "33").empty());

    // One kind of two stored: the picture is run again and both kinds come back.
    const auto half = run({"33", "c300"}, {400}, {VQFeature::AlgorithmTypeC300});
    EXPECT_TRUE(blobOf(half[0], "c300").empty());
    const auto whole = run({"33", "c300"}, {400});
    EXPECT_EQ(graphLoads, 1u);
    EXPECT_EQ(executes, 1);
    EXPECT_FALSE(whole[0].fromStore);
    EXPECT_FALSE(blobOf(whole[0], "33").empty());
    EXPECT_FALSE(blobOf(whole[0], "c300").empty());
}

// Two files of one content in a batch (a photo copied under another name): analysed once,
// the copy gets the same results and no time of its own, and the index keeps both paths.
TEST_F(BatchRunnerTest, ACopyInTheBatchGetsTheFirstFilesResults) {
    for (const bool withStore : {false, true}) {
        if (!withStore) store = nullptr;
        AnalysisSetup setup{{*parseKind("33"), *parseKind("c300")}, "models", "framework.json"};
        BatchRunner runner(setup, "{\"graph\":\"2\"}", store);
        ASSERT_EQ(runner.initCode(), 0);
        std::vector<ImageOutcome> outcomes{pictureOfWidth(100), pictureOfWidth(200), pictureOfWidth(100)};
        outcomes[2].image.path = "copy-of-100.png";
        auto batch = pointers(outcomes);
        runner.run(batch);
        EXPECT_EQ(factory.latest().executes, 2) << withStore;
        const ImageOutcome &first = outcomes[0], &copy = outcomes[2];
        EXPECT_TRUE(copy.produced) << withStore;
        EXPECT_EQ(copy.error.first, 0);
        EXPECT_EQ(copy.fromStore, first.fromStore);
        EXPECT_EQ(copy.milliseconds, 0.0);
        for (const char* kind : {"33", "c300"}) {
            EXPECT_FALSE(blobOf(copy, kind).empty()) << kind << " " << withStore;
            EXPECT_EQ(blobOf(copy, kind), blobOf(first, kind)) << kind;
        }
        if (withStore) {
            const auto snapshot = dynamic_cast<VQFeature::StoreIndex&>(*store).snapshot(false);
            bool bothPaths = false;
            for (const auto& image : snapshot.images) {
                if (image.record.assetId == "asset-100") bothPaths = image.paths.size() == 2;
            }
            EXPECT_TRUE(bothPaths);
        }
        store = std::make_shared<VQFeature::SqliteCache>(dir.path() + "/copies.db");
    }
}

TEST_F(BatchRunnerTest, LaterBatchesKeepTheGraphAndStoreUnderItsKeys) {
    const std::string graph = "{\"graph\":\"merged\"}";
    using VQFeature::AlgorithmTypeC300;
    const auto porn = Vantor::AlgorithmType::PornCls;
    struct Case {
        std::vector<std::string> kinds;
        std::vector<std::string> fullKeys;  // as a request carrying the graph files them
        std::vector<std::string> emptyGraphKeys;
    };
    VQFeature::MultiAlgorithmInput multi({}, graph, {porn}, {AlgorithmTypeC300});
    VQFeature::MultiAlgorithmInput multiEmpty({}, "", {porn}, {AlgorithmTypeC300});
    const std::vector<Case> cases{
        {{"33"},
         {VQFeature::Input({}, graph, {}, porn).algorithmKey()},
         {VQFeature::Input({}, "", {}, porn).algorithmKey()}},
        {{"33", "c300"},
         {multi.algorithmKey(porn), multi.algorithmKey(AlgorithmTypeC300)},
         {multiEmpty.algorithmKey(porn), multiEmpty.algorithmKey(AlgorithmTypeC300)}},
    };
    int width = 100;
    for (const Case& c : cases) {
        for (const bool stored : {true, false}) {
            SCOPED_TRACE(std::to_string(c.kinds.size()) + " kinds, store " + std::to_string(stored));
            AnalysisSetup setup{{}, "models", "framework.json"};
            for (const auto& name : c.kinds) setup.kinds.push_back(*parseKind(name));
            BatchRunner runner(setup, graph, stored ? store : nullptr);
            ASSERT_EQ(runner.initCode(), 0);
            auto& system = factory.latest();
            // Three batches: the second holds an image that fails and, with a store, one the
            // first batch had (a memory cache keeps results whose blobs the extractor took
            // back); failures of several images are each run again alone.
            const std::vector<std::vector<int>> batches{{width, width + 1},
                                                        {width + 2, stored ? width : width + 4,
                                                         VQFeature::FakeAlgorithmSystem::kFailingWidth},
                                                        {width + 3, VQFeature::FakeAlgorithmSystem::kFailingWidth,
                                                         VQFeature::FakeAlgorithmSystem::kFailingWidth}};
            for (const auto& widths : batches) {
                std::vector<ImageOutcome> outcomes;
                for (int w : widths) outcomes.push_back(pictureOfWidth(w));
                auto batch = pointers(outcomes);
                runner.run(batch);
                for (const auto& outcome : outcomes) {
                    const bool fails = outcome.image.buffer->width == VQFeature::FakeAlgorithmSystem::kFailingWidth;
                    EXPECT_EQ(outcome.produced, !fails) << outcome.image.assetId;
                    EXPECT_EQ(outcome.error.first != 0, fails) << outcome.image.assetId;
                    if (fails) continue;
                    for (const auto& kind : c.kinds) EXPECT_FALSE(blobOf(outcome, kind).empty()) << kind;
                    if (c.kinds.size() == 1) {
                        // The result handed back carries the key a request with the graph gives it.
                        auto result = std::static_pointer_cast<VQFeature::Result>(outcome.keepAlive.front());
                        EXPECT_EQ(result->algorithmKey, c.fullKeys.front());
                    }
                }
            }
            EXPECT_EQ(system.graphs, std::vector<std::string>{graph});
            EXPECT_EQ(system.releases, 1);  // the one before the load
            if (!stored) continue;
            for (int w : {width, width + 1, width + 2, width + 3}) {
                const std::string asset = pictureOfWidth(w).image.assetId;
                for (size_t k = 0; k < c.kinds.size(); ++k) {
                    EXPECT_NE(store->query(asset, c.fullKeys[k]), nullptr) << asset << " " << c.kinds[k];
                    EXPECT_EQ(store->query(asset, c.emptyGraphKeys[k]), nullptr) << asset << " " << c.kinds[k];
                }
            }
            width += 10;
        }
    }
}

TEST_F(BatchRunnerTest, ABatchThatRanNothingSendsTheGraphAgain) {
    // Expressions (9) have no blob, but a run still saves their result.
    for (const std::string kind : {"33", "9"}) {
        AnalysisSetup setup{{}, "models", "framework.json"};
        setup.kinds.push_back(*parseKind(kind));
        BatchRunner runner(setup, "{g}", nullptr);
        auto& system = factory.latest();
        for (const std::vector<int>& widths : {std::vector<int>{VQFeature::FakeAlgorithmSystem::kFailingWidth},
                                               std::vector<int>{100}, std::vector<int>{200}}) {
            std::vector<ImageOutcome> outcomes;
            for (int w : widths) outcomes.push_back(pictureOfWidth(w));
            auto batch = pointers(outcomes);
            runner.run(batch);
        }
        // The first request ran nothing, so the second carried the graph again; the third did not.
        EXPECT_EQ(system.graphs, (std::vector<std::string>{"{g}", "{g}"})) << kind;
        EXPECT_EQ(system.executes, 3) << kind;
    }
}

// The extractor's result keeps the key it was saved with; the store gets a copy of its
// bytes under the full graph's key, with an index or without.
TEST(BatchStoreTest, StoresAnAliasedResultUnderTheFullKeyAndLeavesTheSavedOneAlone) {
    VQFeature::TempDir dir;
    auto sqlite = std::make_shared<VQFeature::SqliteCache>(dir.path() + "/results.db");
    auto memory = std::make_shared<VQFeature::MemoryCache>(16);
    for (const bool indexed : {true, false}) {
        SCOPED_TRACE(indexed ? "indexed" : "memory");
        std::shared_ptr<VQFeature::CacheAdapter> inner = indexed ? std::shared_ptr<VQFeature::CacheAdapter>(sqlite) : memory;
        BatchStore batchStore(inner, indexed ? sqlite.get() : nullptr);
        batchStore.setKeyAliases({{"kept", "full"}});
        batchStore.begin({{"asset", "photo.png", 3, 1, 1, 0}});
        auto saved = VQFeature::storedResult("asset", "kept", 33, "", "abc", 3);
        batchStore.save(saved);
        EXPECT_EQ(saved->algorithmKey, "kept");
        batchStore.finish();
        auto found = inner->query("asset", "full");
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(std::string(static_cast<const char*>(found->result), found->resultLength), "abc");
        EXPECT_EQ(inner->query("asset", "kept"), nullptr);
    }
}

}  // namespace
}  // namespace vqfe
