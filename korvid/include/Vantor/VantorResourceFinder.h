// Model delivery. The framework asks the installed VantorResourceFinder for every model
// a graph names, and hands each model back to the same finder when the graph is released.
#pragma once

#include <cstdint>
#include <string>

namespace Vantor {

// One model as the framework requests it.
struct VantorAlgorithmModel {
    std::string name;          // written by the framework before findResource
    void* data = nullptr;      // set by the finder: the model bytes
    uint64_t size = 0;         // set by the finder: byte count of data
    std::string version;       // framework-side bookkeeping; finders leave it alone
    int32_t kind = 0;
};

enum VantorModelEventType : int32_t {
    MODEL_EVENT_LOADED = 0,
    MODEL_EVENT_LOAD_FAILED = 1,
    MODEL_EVENT_RELEASED = 2,
};

struct VantorAlgorithmModelEvent {
    std::string modelName;
    VantorModelEventType type = MODEL_EVENT_LOADED;
    int32_t code = 0;
};

class VantorResourceFinder {
public:
    virtual ~VantorResourceFinder();

    // Fills model.data and model.size; true on success. Called from whatever thread the
    // framework loads graphs on.
    virtual bool findResource(VantorAlgorithmModel& model) = 0;

    // Base behaviour: releases model.data with array delete (so a finder that keeps
    // this implementation must allocate with array new), sets data null and size 0,
    // returns true.
    virtual bool releaseResource(VantorAlgorithmModel& model);

    // Base behaviour: "" (no cache directory).
    virtual std::string getCacheDir() const;

    // Base behaviour: ignores the event and returns false.
    virtual bool reportEvent(const VantorAlgorithmModelEvent& event);
};

}  // namespace Vantor
