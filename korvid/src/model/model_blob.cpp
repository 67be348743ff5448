#include "model/model_blob.h"

#include "model/error.h"

namespace kv {

const ModelBlob& requireModel(const ModelSet& models, const std::string& key) {
    auto it = models.find(key);
    if (it == models.end()) throw Error(Vantor::INVALID_GRAPH, "no model named by \"" + key + "\"");
    return it->second;
}

}  // namespace kv
