#include "system/algorithm_system.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <new>
#include <stdexcept>

#include <opencv2/core/ocl.hpp>
#include <opencv2/core/utility.hpp>

#include "graph/execute_counter.h"
#include "graph/graph_definition.h"
#include "graph/graph_wiring.h"
#include "model/clocks.h"
#include "nodes/node_types.h"
#include "system/image_input.h"

namespace kv {

using namespace Vantor;

namespace {

// With KORVID_NODE_TIMES set in the environment, each node's load (processor time of the
// loading thread: what it cost, not how long it waited for a core) and each node's run (wall
// time) go to stderr: the way to see where a load or an execute spends its time without a
// profiler.
void reportTime(const char* what, const std::string& name, const char* type, Clock clock, double start) {
    std::fprintf(stderr, "korvid %s %s (%s): %.2f %s\n", what, name.c_str(), type, clockMs(clock) - start, clockUnit(clock));
}

// Graph loads under way in the process. A system that starts loading while another one is
// loads its nodes last to first: the two then read different networks side by side and meet
// in the middle, where each finds what the other read (sharedNetwork), instead of the second
// waiting behind the first at every network. The nodes' loads do not depend on each other,
// so the graph loaded is the same in either order; of a graph with several faulty nodes, the
// one its error names may differ.
std::atomic<int> graphLoadsUnderway{0};

class LoadTurn {
public:
    LoadTurn() : lastToFirst_(graphLoadsUnderway.fetch_add(1) % 2 == 1) {}
    ~LoadTurn() { graphLoadsUnderway.fetch_sub(1); }
    LoadTurn(const LoadTurn&) = delete;
    LoadTurn& operator=(const LoadTurn&) = delete;
    size_t at(size_t k, size_t count) const { return lastToFirst_ ? count - 1 - k : k; }

private:
    const bool lastToFirst_;
};

}  // namespace

OpenAlgorithmSystem::~OpenAlgorithmSystem() { uninit(); }

VantorErrorCode OpenAlgorithmSystem::fail(VantorErrorCode code, const std::string& message) {
    lastError_ = message;
    return code;
}

VantorErrorCode OpenAlgorithmSystem::initFromText(const char* data, size_t length) {
    FrameworkConfig config;
    try {
        config = parseFrameworkConfig(data, length);
    } catch (const Error& e) {
        return fail(e.code, e.what());
    }
    if (config.threads > 0) cv::setNumThreads(config.threads);
    config_ = std::move(config);
    initialized_ = true;
    lastError_.clear();
    return NO_ERROR;
}

// The flag has no meaning in the open implementation; it is accepted and ignored.
VantorErrorCode OpenAlgorithmSystem::initFromFile(bool, const std::string& configPath) {
    FILE* f = std::fopen(configPath.c_str(), "rb");
    if (f == nullptr) return fail(INVALID_CONFIG, "cannot open configuration \"" + configPath + "\"");
    std::string text;
    char chunk[4096];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f)) > 0) {
        text.append(chunk, n);
        if (text.size() > (8u << 20)) break;
    }
    bool readError = std::ferror(f) != 0;
    std::fclose(f);
    if (readError) return fail(INVALID_CONFIG, "cannot read configuration \"" + configPath + "\"");
    return initFromText(text.data(), text.size());
}

VantorErrorCode OpenAlgorithmSystem::initFromMemory(bool, char* data, int32_t length) {
    // The block is ours whatever happens: it came from malloc.
    std::unique_ptr<char, decltype(&std::free)> owned(data, &std::free);
    if (data == nullptr || length < 0) return fail(INVALID_CONFIG, "no configuration bytes");
    return initFromText(data, static_cast<size_t>(length));
}

VantorErrorCode OpenAlgorithmSystem::setResourceFinder(const VantorResourceFinderConfig& config) {
    if (!initialized_) return fail(NOT_INIT, "setResourceFinder before a successful initialise");
    if (config.finder == nullptr) return fail(INVALID_RES_FINDER, "no resource finder given");
    finder_ = config.finder;
    return NO_ERROR;
}

namespace {

// The model names a node asks the finder for: those its parameters name, then its own
// defaults under keys the parameters leave unnamed.
std::vector<std::pair<std::string, std::string>> wantedModels(const NodeParams& params, const Node* node) {
    std::vector<std::pair<std::string, std::string>> wanted;
    std::map<std::string, std::string> named;
    for (const auto& [key, value] : params.strings) {
        if (isModelParameter(key)) named.emplace(key, value);
    }
    wanted.assign(named.begin(), named.end());
    if (node == nullptr) return wanted;
    for (const auto& [key, name] : node->defaultModels()) {
        if (!named.count(key)) wanted.emplace_back(key, name);
    }
    return wanted;
}

}  // namespace

// The block of model name for this load: asked of the finder by the first node that names
// it and kept, reported once, for the later nodes that name it too, so that a graph whose
// nodes share a model (seven face nodes, two pet nodes) reads and digests it once per load.
// Null when the finder cannot deliver it.
const VantorAlgorithmModel* OpenAlgorithmSystem::deliverModel(const std::string& name, size_t users) {
    if (auto it = delivered_.find(name); it != delivered_.end()) return &it->second.model;
    VantorAlgorithmModel model;
    model.name = name;
    if (!finder_->findResource(model) || model.data == nullptr) {
        if (model.data != nullptr) finder_->releaseResource(model);
        return nullptr;
    }
    try {
        auto it = delivered_.emplace(name, DeliveredModel{model, users}).first;
        VantorAlgorithmModelEvent event;
        event.modelName = name;
        event.type = MODEL_EVENT_LOADED;
        finder_->reportEvent(event);
        return &it->second.model;
    } catch (const std::bad_alloc&) {
        finder_->releaseResource(model);  // nothing delivered is lost to an allocation failure
        throw;
    }
}

void OpenAlgorithmSystem::acquireModels(LoadedNode& node, ModelSet& models, const std::map<std::string, size_t>& users) {
    const std::vector<std::pair<std::string, std::string>> wanted = wantedModels(node.params, node.node.get());
    node.models.reserve(wanted.size());
    for (const auto& [key, name] : wanted) {
        if (finder_ == nullptr) {
            if (node.params.strings.count(key)) throw Error(INVALID_RES_FINDER, "graph names models but no resource finder is installed");
            continue;
        }
        const VantorAlgorithmModel* model = deliverModel(name, users.at(name));
        if (model == nullptr) {
            // The node's own defaults may be missing: the graph named nothing, so nothing it
            // named is missing when the finder cannot deliver one.
            if (!node.params.strings.count(key)) continue;
            VantorAlgorithmModelEvent event;
            event.modelName = name;
            event.type = MODEL_EVENT_LOAD_FAILED;
            event.code = INVALID_MODEL;
            finder_->reportEvent(event);
            throw Error(INVALID_MODEL, "model \"" + name + "\" of node \"" + node.name + "\" not found");
        }
        node.models.push_back(name);
        models[key] = ModelBlob{model->name, static_cast<const uint8_t*>(model->data), static_cast<size_t>(model->size), &networks_};
    }
}

void OpenAlgorithmSystem::buildGraph(const std::string& graphJson) {
    GraphSpec spec = parseGraphSpec(graphJson);
    std::vector<WiredNode> wired = wireGraph(spec, findNodeType);
    nodes_.reserve(wired.size());
    for (WiredNode& w : wired) {
        LoadedNode n;
        n.name = spec.nodes[w.declared].name;
        n.type = w.type;
        n.params = std::move(spec.nodes[w.declared].params);
        n.slotSources = std::move(w.slotSources);
        n.upstreamTypes = std::move(w.upstreamTypes);
        nodes_.push_back(std::move(n));
    }

    const bool timing = std::getenv("KORVID_NODE_TIMES") != nullptr;
    const double graphStart = timing ? clockMs(Clock::ThreadCpu) : 0;
    // How many nodes name each model, so that a shared block goes back after its last one.
    std::map<std::string, size_t> users;
    for (LoadedNode& n : nodes_) {
        if (n.type->create != nullptr) n.node = n.type->create();
        for (const auto& wanted : wantedModels(n.params, n.node.get())) ++users[wanted.second];
    }
    const LoadTurn turn;
    for (size_t k = 0; k < nodes_.size(); ++k) {
        LoadedNode& n = nodes_[turn.at(k, nodes_.size())];
        const double start = timing ? clockMs(Clock::ThreadCpu) : 0;
        ModelSet models;
        acquireModels(n, models, users);
        if (n.node == nullptr) {
            releaseModels(n);
            continue;
        }
        n.node->upstreamTypes = n.upstreamTypes;
        n.node->memo = &memo_;
        try {
            n.node->load(n.params, models);
        } catch (const Error& e) {
            throw Error(e.code, "node \"" + n.name + "\": " + e.what());
        } catch (const cv::Exception& e) {
            throw Error(INVALID_MODEL, "node \"" + n.name + "\": " + e.what());
        }
        // A loaded node keeps what it needs (parsed parameters, networks in the cache), so its
        // model blocks go back to the finder now rather than with the graph: a graph of every
        // kind would otherwise hold some 180 MB of file copies it never reads again.
        releaseModels(n);
        if (timing) reportTime("load", n.name, n.type->name, Clock::ThreadCpu, start);
    }
    if (timing) {
        std::fprintf(stderr, "korvid load graph: %.2f %s\n", clockMs(Clock::ThreadCpu) - graphStart, clockUnit(Clock::ThreadCpu));
    }
}

VantorErrorCode OpenAlgorithmSystem::loadGraph(const std::string& graphJson) {
    releaseGraph();
    VantorErrorCode code;
    if (!initialized_) {
        code = fail(NOT_INIT, "loadGraph before a successful initialise");
    } else {
        try {
            const NetworkReadScope reads;  // ends after networks_.trim(), whose frees it gives back too
            networks_.startLoad();
            try {
                buildGraph(graphJson);
                code = NO_ERROR;
            } catch (const Error& e) {
                code = fail(e.code, e.what());
            }
            networks_.trim();
        } catch (const std::bad_alloc&) {
            code = fail(INTERNAL_ERROR, "out of memory while loading the graph");
        }
    }
    if (code != NO_ERROR) {
        releaseGraph();
        loadError_ = code;
    } else {
        lastError_.clear();
    }
    return code;
}

void OpenAlgorithmSystem::releaseModel(VantorAlgorithmModel& model) {
    if (finder_ == nullptr) return;
    finder_->releaseResource(model);
    VantorAlgorithmModelEvent event;
    event.modelName = model.name;
    event.type = MODEL_EVENT_RELEASED;
    finder_->reportEvent(event);
}

void OpenAlgorithmSystem::releaseModels(LoadedNode& node) {
    for (const std::string& name : node.models) {
        auto it = delivered_.find(name);
        if (it == delivered_.end() || --it->second.usersLeft > 0) continue;
        releaseModel(it->second.model);
        delivered_.erase(it);
    }
    node.models.clear();
}

void OpenAlgorithmSystem::releaseGraph() {
    for (LoadedNode& n : nodes_) {
        n.output.reset();
        n.node.reset();
        n.models.clear();
    }
    // The blocks of a load that failed half way.
    for (auto& [name, delivered] : delivered_) releaseModel(delivered.model);
    delivered_.clear();
    nodes_.clear();
    loadError_ = NO_ERROR;
}

bool OpenAlgorithmSystem::nodeProduces(const LoadedNode& node, int32_t type) const {
    if (node.node == nullptr) return false;
    for (int32_t t : node.node->producedTypes(node.params, node.upstreamTypes)) {
        if (t == type) return true;
    }
    return false;
}

bool OpenAlgorithmSystem::producesType(AlgorithmType type) const {
    if (type == AlgorithmType::AllNodes) return hasGraph();
    for (const LoadedNode& n : nodes_) {
        if (nodeProduces(n, static_cast<int32_t>(type))) return true;
    }
    return false;
}

std::vector<bool> OpenAlgorithmSystem::nodesToRun(int32_t type) const {
    std::vector<bool> run(nodes_.size(), type == -1);
    if (type == -1) return run;
    for (size_t i = nodes_.size(); i-- > 0;) {
        if (nodeProduces(nodes_[i], type)) run[i] = true;
        if (!run[i]) continue;
        for (int src : nodes_[i].slotSources) {
            if (src != -1) run[static_cast<size_t>(src)] = true;
        }
    }
    return run;
}

VantorErrorCode OpenAlgorithmSystem::execute(const VantorAlgorithmInput& input, AlgorithmType algorithmType) {
    ExecuteCounter counting;
    ++executeCount_;
    // The open framework computes on the CPU. Without this, OpenCV's first transparent-API
    // call would load the OpenCL runtime into the process (per calling thread setting).
    cv::ocl::setUseOpenCL(false);
    clearResults();
    const int32_t type = static_cast<int32_t>(algorithmType);
    if (type != -1) {
        auto fault = config_.faults.find(type);
        if (fault != config_.faults.end()) {
            switch (fault->second.kind) {
                case Fault::Kind::ExecuteCode:
                    lastError_ = "injected execute fault";
                    return static_cast<VantorErrorCode>(fault->second.code);
                case Fault::Kind::NullResult: lastError_.clear(); return NO_ERROR;
                case Fault::Kind::Throw: throw std::runtime_error(fault->second.text);
            }
        }
    }
    if (!initialized_) return fail(NOT_INIT, "execute before a successful initialise");
    if (loadError_ != NO_ERROR) return loadError_;
    if (nodes_.empty()) return fail(INVALID_GRAPH, "no graph loaded");
    std::vector<bool> run = nodesToRun(type);
    bool any = false;
    for (bool r : run) any = any || r;
    if (!any) return fail(INVALID_TYPE, "the graph does not produce type " + std::to_string(type));

    cv::Mat image;
    try {
        image = toUprightBgr(input);
    } catch (const Error& e) {
        return fail(e.code, e.what());
    }

    VantorErrorCode code = NO_ERROR;
    const bool timing = std::getenv("KORVID_NODE_TIMES") != nullptr;
    try {
        for (size_t i = 0; i < nodes_.size() && code == NO_ERROR; ++i) {
            if (!run[i]) continue;
            LoadedNode& n = nodes_[i];
            if (n.node == nullptr) {
                auto out = std::make_unique<ImageOutput>();
                out->bgr = image;
                n.output = std::move(out);
                continue;
            }
            std::vector<NodeOutput*> inputs;
            for (int src : n.slotSources) inputs.push_back(src == -1 ? nullptr : nodes_[static_cast<size_t>(src)].output.get());
            try {
                const double start = timing ? clockMs(Clock::Wall) : 0;
                n.output = n.node->run(n.params, inputs);
                if (timing) reportTime("node", n.name, n.type->name, Clock::Wall, start);
            } catch (const Error& e) {
                code = fail(e.code, "node \"" + n.name + "\": " + e.what());
            } catch (const cv::Exception& e) {
                code = fail(INVALID_NODE, "node \"" + n.name + "\": " + e.what());
            }
        }
    } catch (const std::bad_alloc&) {
        code = fail(INTERNAL_ERROR, "out of memory while running the graph");
    }
    if (code != NO_ERROR) {
        clearResults();
        return code;
    }
    lastError_.clear();
    return NO_ERROR;
}

void* OpenAlgorithmSystem::getResult(const AlgorithmType& type) {
    for (LoadedNode& n : nodes_) {
        if (n.output == nullptr) continue;
        if (void* p = n.output->result(static_cast<int32_t>(type))) return p;
    }
    return nullptr;
}

void* OpenAlgorithmSystem::getResultByName(const std::string& name) {
    for (LoadedNode& n : nodes_) {
        if (n.name == name) return n.output == nullptr ? nullptr : n.output->mainResult();
    }
    return nullptr;
}

void OpenAlgorithmSystem::clearResults() {
    for (LoadedNode& n : nodes_) n.output.reset();
    memo_.clear();
}

template <typename Map, typename Apply>
int32_t OpenAlgorithmSystem::overrideParams(AlgorithmType type, const Map& params, Apply apply) {
    if (params.empty()) return NO_ERROR;
    if (nodes_.empty()) return fail(INVALID_GRAPH, "no graph loaded");
    bool applied = false;
    for (LoadedNode& n : nodes_) {
        if (n.node == nullptr) continue;
        if (type != AlgorithmType::AllNodes && !nodeProduces(n, static_cast<int32_t>(type))) continue;
        for (const auto& [key, value] : params) apply(n.params, key, value);
        applied = true;
    }
    return applied ? NO_ERROR : fail(INVALID_TYPE, "no node produces type " + std::to_string(static_cast<int32_t>(type)));
}

int32_t OpenAlgorithmSystem::setIntParams(AlgorithmType type, const std::unordered_map<std::string, long>& params) {
    return overrideParams(type, params, [](NodeParams& p, const std::string& k, long v) { p.ints[k] = v; });
}

int32_t OpenAlgorithmSystem::setFloatParams(AlgorithmType type, const std::unordered_map<std::string, float>& params) {
    return overrideParams(type, params, [](NodeParams& p, const std::string& k, float v) { p.floats[k] = v; });
}

int32_t OpenAlgorithmSystem::setStringParams(AlgorithmType type,
                                             const std::unordered_map<std::string, std::string>& params) {
    return overrideParams(type, params, [](NodeParams& p, const std::string& k, const std::string& v) { p.strings[k] = v; });
}

const char* OpenAlgorithmSystem::getVersion() const { return "korvid-open 1.0"; }

void OpenAlgorithmSystem::uninit() {
    releaseGraph();
    finder_ = nullptr;
    config_ = FrameworkConfig();
    initialized_ = false;
}

}  // namespace kv

namespace Vantor {

VantorAlgorithmSystem* VantorAlgorithmFactory::CreateAlgorithmSystem() { return new kv::OpenAlgorithmSystem(); }

void VantorAlgorithmFactory::DestroyAlgorithmSystem(VantorAlgorithmSystem* system) { delete system; }

}  // namespace Vantor
