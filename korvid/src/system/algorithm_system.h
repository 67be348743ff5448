// kv::OpenAlgorithmSystem: the open desktop implementation of
// Vantor::VantorAlgorithmSystem. It parses graphs of the framework's JSON dialect, builds
// OpenCV-based nodes (node.h), requests their models through the installed resource
// finder and runs every node of a graph in dependency order.
//
// Ownership: the system owns its graph, node outputs and result buffers; model blocks
// belong to the resource finder and are handed back to it when the graph is released.
// Thread safety: none, as for the device framework; execute() entries are counted for
// tests (Korvid/Diagnostics.h).
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Vantor/VantorAlgorithmSystem.h"
#include "graph/execute_memo.h"
#include "graph/node.h"
#include "model/network.h"
#include "system/finder_model_source.h"
#include "system/framework_config.h"

namespace kv {

class OpenAlgorithmSystem : public Vantor::VantorAlgorithmSystem {
public:
    OpenAlgorithmSystem() = default;
    ~OpenAlgorithmSystem() override;

    Vantor::VantorErrorCode initFromFile(bool flag, const std::string& configPath) override;
    Vantor::VantorErrorCode initFromMemory(bool flag, char* data, int32_t length) override;
    Vantor::VantorErrorCode setResourceFinder(const Vantor::VantorResourceFinderConfig& config) override;
    Vantor::VantorErrorCode loadGraph(const std::string& graphJson) override;
    void releaseGraph() override;
    Vantor::VantorErrorCode execute(const Vantor::VantorAlgorithmInput& input, Vantor::AlgorithmType type) override;
    void* getResult(const Vantor::AlgorithmType& type) override;
    bool isInitialized() const override { return initialized_; }
    bool hasGraph() const override { return !nodes_.empty(); }
    int32_t setIntParams(Vantor::AlgorithmType type, const std::unordered_map<std::string, long>& params) override;
    int32_t setFloatParams(Vantor::AlgorithmType type, const std::unordered_map<std::string, float>& params) override;
    int32_t setStringParams(Vantor::AlgorithmType type,
                            const std::unordered_map<std::string, std::string>& params) override;
    int32_t getNodeCount() const override { return static_cast<int32_t>(nodes_.size()); }
    bool producesType(Vantor::AlgorithmType type) const override;
    std::string getLastErrorMessage() const override { return lastError_; }
    void* getResultByName(const std::string& name) override;
    void clearResults() override;
    uint64_t getExecuteCount() const override { return executeCount_; }
    const char* getVersion() const override;
    void uninit() override;

private:
    struct LoadedNode {
        std::string name;
        const NodeType* type = nullptr;
        NodeParams params;
        std::unique_ptr<Node> node;            // null for the image producer
        std::vector<int> slotSources;          // node index feeding each slot, -1 if none
        std::vector<std::string> upstreamTypes;
        std::vector<std::string> models;  // names of the delivered models the node holds
        std::unique_ptr<NodeOutput> output;
    };
    struct DeliveredModel {
        Vantor::VantorAlgorithmModel model;
        size_t usersLeft = 0;  // nodes of the load still to load with it
    };

    Vantor::VantorErrorCode initFromText(const char* data, size_t length);
    Vantor::VantorErrorCode fail(Vantor::VantorErrorCode code, const std::string& message);
    // Both throw Error; what they acquired stays in nodes_ for releaseGraph.
    void buildGraph(const std::string& graphJson);
    // users: how many nodes of the graph name each model.
    void acquireModels(LoadedNode& node, ModelSet& models, const std::map<std::string, size_t>& users);
    const Vantor::VantorAlgorithmModel* deliverModel(const std::string& name, size_t users);
    // Lets go of the node's models; a block goes back to the finder (reported as released)
    // once no later node of the load names it.
    void releaseModels(LoadedNode& node);
    void releaseModel(Vantor::VantorAlgorithmModel& model);
    bool nodeProduces(const LoadedNode& node, int32_t type) const;
    // Indices of the nodes an execute of type must run (every node for -1).
    std::vector<bool> nodesToRun(int32_t type) const;
    template <typename Map, typename Apply>
    int32_t overrideParams(Vantor::AlgorithmType type, const Map& params, Apply apply);

    bool initialized_ = false;
    FrameworkConfig config_;
    Vantor::VantorResourceFinder* finder_ = nullptr;
    std::vector<LoadedNode> nodes_;  // dependency order
    std::map<std::string, DeliveredModel> delivered_;  // blocks of the current load, by model name
    Vantor::VantorErrorCode loadError_ = Vantor::NO_ERROR;
    std::string lastError_;
    uint64_t executeCount_ = 0;
    // Models the nodes fetch while the graph runs, through finder_.
    FinderModelSource source_{finder_};
    // Networks by content, kept across graph loads within a memory budget, so that loading a
    // graph again (or another graph of the same networks) reads none again.
    NetworkCache networks_{NetworkCache::kDefaultBudget, &source_};
    // What nodes of the current execute share (emptied with the results).
    ExecuteMemo memo_;
};

}  // namespace kv
