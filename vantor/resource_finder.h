// VantorResourceFinderImpl: delivers model files to the framework. A model name becomes
// <modelDir>/<stem>.model, read whole from the registered Android assets when there
// are any, else from the file system. Owned by VantorSystem. Safe to call from any
// thread (no shared mutable state).
#pragma once

#include <string>

#include "Vantor/VantorResourceFinder.h"

namespace VQFeature {

class VantorResourceFinderImpl : public Vantor::VantorResourceFinder {
public:
    explicit VantorResourceFinderImpl(const std::string& modelDir);
    ~VantorResourceFinderImpl() override;

    bool findResource(Vantor::VantorAlgorithmModel& model) override;
    // Blocks come from malloc, so they go back with free (the base would use delete[]).
    bool releaseResource(Vantor::VantorAlgorithmModel& model) override;

    // "dir/qm_face_v2.0.model" -> "qm_face": drops the directory, a version suffix
    // (_v<digit>...) and a .model/_model/.dat suffix.
    static std::string getNormalizedNameOfModel(const std::string& name);

    std::string modelDir;
};

}  // namespace VQFeature
