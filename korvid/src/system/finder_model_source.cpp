#include "system/finder_model_source.h"

#include <cstdio>
#include <cstdlib>

#include "model/clocks.h"

namespace kv {

using namespace Vantor;

namespace {

void report(VantorResourceFinder& finder, const std::string& name, VantorModelEventType type, int32_t code = 0) {
    VantorAlgorithmModelEvent event;
    event.modelName = name;
    event.type = type;
    event.code = code;
    finder.reportEvent(event);
}

}  // namespace

bool FinderModelSource::withModel(const std::string& name, const std::function<void(const ModelBlob&)>& use) {
    VantorResourceFinder* finder = finder_;
    if (finder == nullptr) return false;
    // With KORVID_NODE_TIMES set, each fetch goes to stderr with its processor time, as node
    // loads do.
    struct Timing {
        const std::string& name;
        const bool on = std::getenv("KORVID_NODE_TIMES") != nullptr;
        const double start = on ? clockMs(Clock::ThreadCpu) : 0;
        ~Timing() {
            if (on) std::fprintf(stderr, "korvid fetch %s: %.2f %s\n", name.c_str(), clockMs(Clock::ThreadCpu) - start, clockUnit(Clock::ThreadCpu));
        }
    } timing{name};
    VantorAlgorithmModel model;
    model.name = name;
    if (!finder->findResource(model) || model.data == nullptr) {
        if (model.data != nullptr) finder->releaseResource(model);
        report(*finder, name, MODEL_EVENT_LOAD_FAILED, INVALID_MODEL);
        return false;
    }
    // Handed back whatever use does: the block is the finder's.
    struct HandBack {
        VantorResourceFinder& finder;
        VantorAlgorithmModel& model;
        ~HandBack() {
            finder.releaseResource(model);
            try {
                report(finder, model.name, MODEL_EVENT_RELEASED);
            } catch (...) {  // a finder's report that throws loses only its report
            }
        }
    } handBack{*finder, model};
    report(*finder, name, MODEL_EVENT_LOADED);
    use(ModelBlob{name, static_cast<const uint8_t*>(model.data), static_cast<size_t>(model.size), nullptr});
    return true;
}

}  // namespace kv
