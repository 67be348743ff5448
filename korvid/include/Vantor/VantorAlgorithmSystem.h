// Vantor::VantorAlgorithmSystem: one instance of the algorithm framework.
//
// A system is created by VantorAlgorithmFactory, initialised once from a JSON
// configuration, given a resource finder, then loads one processing graph at a time and
// executes it on inputs. Result buffers stay owned by the system and valid until the
// next execute(), releaseGraph() or uninit().
//
// Thread safety: none. One system must not be entered from two threads at once.
//
// The order of the virtual functions is the framework's binary interface and must not
// change (the destructor takes the first two table entries).
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "Vantor/AlgorithmType.h"
#include "Vantor/VantorAlgorithmInput.h"
#include "Vantor/VantorErrorCode.h"
#include "Vantor/VantorResourceFinder.h"

namespace Vantor {

// What setResourceFinder installs. The finder is not owned by the system; it must
// outlive every graph loaded after it was installed.
struct VantorResourceFinderConfig {
    VantorResourceFinder* finder = nullptr;
    std::string cacheDir;      // optional, may be empty
    std::string deviceTag;     // optional, may be empty
};

class VantorAlgorithmSystem {
public:
    virtual ~VantorAlgorithmSystem() = default;

    // 3. Initialise from a configuration file (JSON). REQUIRES: not yet initialised.
    virtual VantorErrorCode initFromFile(bool flag, const std::string& configPath) = 0;
    // 4. Initialise from configuration bytes. Takes ownership of data (a malloc block)
    // whatever the outcome, and frees it.
    virtual VantorErrorCode initFromMemory(bool flag, char* data, int32_t length) = 0;
    // 5. Install the resource finder through which models are requested.
    virtual VantorErrorCode setResourceFinder(const VantorResourceFinderConfig& config) = 0;
    // 6. Parse and load a graph, requesting its models. Fails with INVALID_GRAPH or
    // INVALID_MODEL; a failed load leaves no graph.
    virtual VantorErrorCode loadGraph(const std::string& graphJson) = 0;
    // 7. Release the current graph and its models (nothing happens without a graph).
    virtual void releaseGraph() = 0;
    // 8. Run the graph on input. type -1 runs every node; any other type runs the nodes
    // that produce it and fails with INVALID_TYPE when none does.
    virtual VantorErrorCode execute(const VantorAlgorithmInput& input, AlgorithmType type) = 0;
    // 9. The result buffer of type from the last execute, or null.
    virtual void* getResult(const AlgorithmType& type) = 0;
    // 10. Whether an initialise succeeded.
    virtual bool isInitialized() const = 0;
    // 11. Whether a graph is loaded.
    virtual bool hasGraph() const = 0;
    // 12-14. Override node parameters of the nodes producing type, for later runs.
    virtual int32_t setIntParams(AlgorithmType type, const std::unordered_map<std::string, long>& params) = 0;
    virtual int32_t setFloatParams(AlgorithmType type, const std::unordered_map<std::string, float>& params) = 0;
    virtual int32_t setStringParams(AlgorithmType type,
                                    const std::unordered_map<std::string, std::string>& params) = 0;
    // 15. Number of nodes in the loaded graph (0 without one).
    virtual int32_t getNodeCount() const = 0;
    // 16. Whether the loaded graph produces type.
    virtual bool producesType(AlgorithmType type) const = 0;
    // 17. Text of the last failure, "" after a success.
    virtual std::string getLastErrorMessage() const = 0;
    // 18. The result buffer of the node named name from the last execute, or null.
    virtual void* getResultByName(const std::string& name) = 0;
    // 19. Drop the results of the last execute.
    virtual void clearResults() = 0;
    // 20. Number of executes since initialisation.
    virtual uint64_t getExecuteCount() const = 0;
    // 21. Version text of the implementation.
    virtual const char* getVersion() const = 0;
    // 22. Release the graph and everything the initialise created.
    virtual void uninit() = 0;
};

class VantorAlgorithmFactory {
public:
    static VantorAlgorithmSystem* CreateAlgorithmSystem();
    static void DestroyAlgorithmSystem(VantorAlgorithmSystem* system);
};

}  // namespace Vantor
