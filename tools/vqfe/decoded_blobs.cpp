#include "tools/vqfe/decoded_blobs.h"

#include <algorithm>

#include "encoding/message_json.h"
#include "tools/vqfe/kinds.h"

namespace vqfe {

DecodedBlobs::DecodedBlobs(const BlobMap& blobs) {
    for (const auto& [name, blob] : blobs) {
        auto kind = parseKind(name);
        if (!kind || blob.first == nullptr) continue;
        const auto* descriptor = VQFeature::blobDescriptorForKind(kind->stringType.empty() ? kind->number : 121);
        if (descriptor == nullptr) continue;
        ProtobufCMessage* message = protobuf_c_message_unpack(descriptor, nullptr, blob.second,
                                                              static_cast<const uint8_t*>(blob.first));
        if (message) {
            messages_[name] = std::shared_ptr<ProtobufCMessage>(
                message, [](ProtobufCMessage* m) { protobuf_c_message_free_unpacked(m, nullptr); });
        }
    }
}

std::vector<std::pair<std::string, float>> DecodedBlobs::topLabels(size_t n) const {
    std::vector<std::pair<std::string, float>> labels;
    if (const auto* scene = get<CSceneRecogBuffer>("scene")) {
        for (size_t i = 0; i < scene->n_m_scenerecoginfo; ++i) {
            labels.emplace_back(scene->m_scenerecoginfo[i]->name, scene->m_scenerecoginfo[i]->prob);
        }
    } else if (const auto* v3 = get<CSceneRecogV3Buffer>("scene-v3")) {
        for (size_t i = 0; i < v3->n_m_scenerecogv3info; ++i) {
            labels.emplace_back(v3->m_scenerecogv3info[i]->name, v3->m_scenerecogv3info[i]->confidence);
        }
    } else if (const auto* classes = get<CNHClassificationBuffer>("classification")) {
        if (classes->n_m_classificationinfos > 0) {
            const CNHClassificationInfo* info = classes->m_classificationinfos[0];
            for (size_t i = 0; i < info->n_id && i < info->n_confidence; ++i) {
                const int id = info->id[i];
                const std::string label = id >= 0 && static_cast<size_t>(id) < classes->n_m_labels
                                              ? classes->m_labels[id]
                                              : "class " + std::to_string(id);
                labels.emplace_back(label, info->confidence[i]);
            }
        }
    }
    std::stable_sort(labels.begin(), labels.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    if (labels.size() > n) labels.resize(n);
    return labels;
}

}  // namespace vqfe
