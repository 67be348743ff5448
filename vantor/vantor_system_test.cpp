#include "vantor/vantor_system.h"

#include <android/asset_manager.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "vantor/asset_manager_holder.h"
#include "testing/mock_algorithm_system.h"
#include "testing/temp_dir.h"

namespace VQFeature {
namespace {

using ::testing::_;
using ::testing::InSequence;
using ::testing::Invoke;
using ::testing::Return;
using ::testing::Throw;
using Vantor::AlgorithmType;

// Records what exec reported.
struct Outcome {
    std::vector<void*> results;
    std::vector<std::pair<int, std::string>> errors;

    std::function<void(void*)> onResult() {
        return [this](void* out) { results.push_back(out); };
    }
    std::function<void(int, std::string)> onError() {
        return [this](int code, std::string text) { errors.emplace_back(code, std::move(text)); };
    }
};

class VantorSystemTest : public ::testing::Test {
protected:
    MockSystemFactory factory;
    MockAlgorithmSystem& mock = factory.next();
    std::unique_ptr<VantorSystem> wrapper =
        std::make_unique<VantorSystem>(nullptr, "models", "vantor.json", true);
    Vantor::VantorImageBuffer image;
    Outcome outcome;
};

TEST_F(VantorSystemTest, ExecuteErrorCarriesNameAndType) {
    EXPECT_CALL(mock, execute(_, AlgorithmType::SceneRecog)).WillOnce(Return(Vantor::INVALID_GRAPH));
    EXPECT_CALL(mock, getResult(_)).Times(0);
    wrapper->exec(image, AlgorithmType::SceneRecog, outcome.onResult(), outcome.onError());
    EXPECT_TRUE(outcome.results.empty());
    ASSERT_EQ(outcome.errors.size(), 1u);
    EXPECT_EQ(outcome.errors[0].first, 4);
    EXPECT_EQ(outcome.errors[0].second, "Vantor Execute error:INVALID_GRAPH, algorithmType:25");

    EXPECT_CALL(mock, execute(_, AlgorithmType::Face)).WillOnce(Return(static_cast<Vantor::VantorErrorCode>(42)));
    wrapper->exec(image, AlgorithmType::Face, outcome.onResult(), outcome.onError());
    EXPECT_EQ(outcome.errors[1], std::make_pair(42, std::string("Vantor Execute error:UNKNOWN, algorithmType:4")));
}

TEST_F(VantorSystemTest, ResultOrNullResultAndWholeGraphRunsReportNullWithoutAsking) {
    int buffer = 0;
    EXPECT_CALL(mock, getResult(AlgorithmType::Face)).WillOnce(Return(&buffer)).WillOnce(Return(nullptr));
    wrapper->exec(image, AlgorithmType::Face, outcome.onResult(), outcome.onError());
    wrapper->exec(image, AlgorithmType::Face, outcome.onResult(), outcome.onError());
    EXPECT_CALL(mock, getResult(AlgorithmType::AllNodes)).Times(0);
    wrapper->exec(image, AlgorithmType::AllNodes, outcome.onResult(), outcome.onError());
    EXPECT_EQ(outcome.results, (std::vector<void*>{&buffer, nullptr}));
    EXPECT_EQ(outcome.errors, (decltype(outcome.errors){{204, "Vantor Result is NULL"}}));
}

TEST_F(VantorSystemTest, StdExceptionsBecomeError500) {
    EXPECT_CALL(mock, execute(_, _))
        .WillOnce(Throw(std::runtime_error("model exploded")))
        .WillRepeatedly(Return(Vantor::NO_ERROR));
    int buffer = 0;
    ON_CALL(mock, getResult(_)).WillByDefault(Return(&buffer));
    wrapper->exec(image, AlgorithmType::Face, outcome.onResult(), outcome.onError());
    // A throwing result callback is caught the same way.
    wrapper->exec(image, AlgorithmType::Face, [](void*) { throw std::out_of_range("cache full"); },
                  outcome.onError());
    ASSERT_EQ(outcome.errors.size(), 2u);
    EXPECT_EQ(outcome.errors[0], std::make_pair(500, std::string("Vantor Throw Exception:model exploded")));
    EXPECT_EQ(outcome.errors[1], std::make_pair(500, std::string("Vantor Throw Exception:cache full")));
    // Anything else passes through.
    EXPECT_THROW(wrapper->exec(image, AlgorithmType::Face, [](void*) { throw 7; }, outcome.onError()), int);
    // An empty result callback is a bad_function_call, caught the same way; with no error
    // callback either, the second one leaves exec.
    wrapper->exec(image, AlgorithmType::Face, nullptr, outcome.onError());
    ASSERT_EQ(outcome.errors.size(), 3u);
    EXPECT_EQ(outcome.errors[2].first, 500);
    EXPECT_EQ(outcome.errors[2].second.rfind("Vantor Throw Exception:", 0), 0u);
    EXPECT_THROW(wrapper->exec(image, AlgorithmType::Face, nullptr, nullptr), std::bad_function_call);
}

TEST_F(VantorSystemTest, SetGraphReleasesFirstAndReturnsTheLoadCode) {
    EXPECT_CALL(mock, releaseGraph()).Times(::testing::AnyNumber());  // the destructor's
    {
        InSequence order;
        EXPECT_CALL(mock, releaseGraph());
        EXPECT_CALL(mock, loadGraph("{bad}")).WillOnce(Return(Vantor::INVALID_GRAPH));
        EXPECT_CALL(mock, releaseGraph());
        EXPECT_CALL(mock, loadGraph("{good}")).WillOnce(Return(Vantor::NO_ERROR));
    }
    EXPECT_EQ(wrapper->setGraph("{bad}"), Vantor::INVALID_GRAPH);
    EXPECT_EQ(wrapper->setGraph("{good}"), Vantor::NO_ERROR);
}

TEST_F(VantorSystemTest, InitFromFileInstallsTheFinderOnSuccessOnly) {
    EXPECT_CALL(mock, initFromFile(true, "vantor.json"))
        .WillOnce(Return(Vantor::INVALID_CONFIG))
        .WillOnce(Return(Vantor::NO_ERROR));
    EXPECT_CALL(mock, initFromMemory(_, _, _)).Times(0);
    Vantor::VantorResourceFinder* installed = nullptr;
    EXPECT_CALL(mock, setResourceFinder(_))
        .WillOnce(Invoke([&](const Vantor::VantorResourceFinderConfig& config) {
            installed = config.finder;
            EXPECT_EQ(config.cacheDir, "");
            EXPECT_EQ(config.deviceTag, "");
            return Vantor::NO_ERROR;
        }));
    EXPECT_EQ(wrapper->init(), Vantor::INVALID_CONFIG);
    EXPECT_EQ(wrapper->init(), Vantor::NO_ERROR);
    ASSERT_NE(installed, nullptr);
    EXPECT_EQ(installed->getCacheDir(), "");
}

TEST_F(VantorSystemTest, InitFromAssets) {
    TempDir assets;
    assets.write("vantor.json", "{\"config\":1}");
    AAssetManager* manager = AAssetManager_fromDirectory(assets.path().c_str());
    AssetManagerHolder::getInstance().set(manager);

    EXPECT_CALL(mock, initFromFile(_, _)).Times(0);
    EXPECT_CALL(mock, initFromMemory(true, _, 12)).WillOnce(Invoke([](bool, char* data, int32_t length) {
        EXPECT_EQ(std::string(data, static_cast<size_t>(length)), "{\"config\":1}");
        std::free(data);  // the framework owns the block
        return Vantor::NO_ERROR;
    }));
    EXPECT_CALL(mock, setResourceFinder(_));
    EXPECT_EQ(wrapper->init(), 0);

    // A missing asset fails before the framework is asked anything.
    MockAlgorithmSystem& second = factory.next();
    VantorSystem missing(nullptr, "models", "absent.json", false);
    EXPECT_CALL(second, initFromMemory(_, _, _)).Times(0);
    EXPECT_CALL(second, initFromFile(_, _)).Times(0);
    EXPECT_CALL(second, setResourceFinder(_)).Times(0);
    EXPECT_EQ(missing.init(), -1);

    AssetManagerHolder::getInstance().set(nullptr);
    AAssetManager_delete(manager);
}

TEST_F(VantorSystemTest, DestructorReleasesUninitialisesThenDestroys) {
    {
        InSequence order;
        EXPECT_CALL(mock, releaseGraph()).WillOnce(Invoke([&] { EXPECT_EQ(factory.destroyed(), 0); }));
        EXPECT_CALL(mock, uninit()).WillOnce(Invoke([&] { EXPECT_EQ(factory.destroyed(), 0); }));
    }
    wrapper.reset();
    EXPECT_EQ(factory.destroyed(), 1);
}

}  // namespace
}  // namespace VQFeature
