// The models a graph fetches while it runs (model/model_source.h), served by the system's
// resource finder: asked for, reported loaded (or failed), used, handed back and reported
// released, as the models of a graph load are.
#pragma once

#include "Vantor/VantorErrorCode.h"
#include "Vantor/VantorResourceFinder.h"
#include "model/model_source.h"

namespace kv {

class FinderModelSource : public ModelSource {
public:
    // finder: the system's own pointer, read at each fetch (null: nothing is delivered).
    explicit FinderModelSource(Vantor::VantorResourceFinder* const& finder) : finder_(finder) {}
    bool withModel(const std::string& name, const std::function<void(const ModelBlob&)>& use) override;

private:
    Vantor::VantorResourceFinder* const& finder_;
};

}  // namespace kv
