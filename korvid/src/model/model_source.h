// Models a graph fetches while it runs: a bundle part may name a part of another model
// (model_reference.h) that a node asks for only when it first needs it. The system serves
// them through its resource finder (system/finder_model_source.h).
#pragma once

#include <functional>
#include <string>

#include "model/model_blob.h"

namespace kv {

class ModelSource {
public:
    virtual ~ModelSource() = default;
    // Calls use with the bytes of model name (no network cache set) and hands them back
    // afterwards, also when use throws; false, without calling use, when the model cannot be
    // delivered.
    virtual bool withModel(const std::string& name, const std::function<void(const ModelBlob&)>& use) = 0;
};

}  // namespace kv
