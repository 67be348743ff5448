#include "library/decoded_blobs.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "encoding/display_names.h"
#include "encoding/message_json.h"
#include "encoding/message_unpack.h"
#include "library/kinds.h"

namespace vqfe {

DecodedBlobs::DecodedBlobs(const BlobMap& blobs) {
    for (const auto& [name, blob] : blobs) {
        auto kind = parseKind(name);
        if (!kind || blob.first == nullptr) continue;
        const auto* descriptor = VQFeature::blobDescriptorForKind(kind->stringType.empty() ? kind->number : 121);
        if (descriptor == nullptr) continue;
        ProtobufCMessage* message = VQFeature::unpackMessage(descriptor, blob.second, static_cast<const uint8_t*>(blob.first));
        if (message) {
            messages_[name] = std::shared_ptr<ProtobufCMessage>(
                message, [](ProtobufCMessage* m) { protobuf_c_message_free_unpacked(m, nullptr); });
        }
    }
}

namespace {

// Best first, at most n.
void keepBest(std::vector<std::pair<std::string, float>>& entries, size_t n) {
    std::stable_sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.second > b.second; });
    if (entries.size() > n) entries.resize(n);
}

// The expression types in the emotion network's class order.
const char* const kExpressions[] = {"angry", "disgust", "fear", "happy", "sad", "surprise", "neutral"};

// The parts of one face's caption: gender and age, then expression; each only when measured.
std::vector<std::string> caption(const CFaceAttribute& a) {
    std::vector<std::string> parts;
    char part[64];
    // Age and gender are 0 together when no age/gender network ran.
    if (a.age > 0 || a.boy_prob > 0) {
        const bool male = a.gender == 1;
        std::snprintf(part, sizeof part, "%s %.2f, %.0f y", male ? "male" : "female", male ? a.boy_prob : 1 - a.boy_prob, a.age);
        parts.push_back(part);
    }
    const int type = a.exp_type;
    if (a.n_exp_probs > 0 && type >= 0 && static_cast<size_t>(type) < a.n_exp_probs &&
        static_cast<size_t>(type) < std::size(kExpressions)) {
        std::snprintf(part, sizeof part, "%s %.2f", kExpressions[type], a.exp_probs[type]);
        parts.push_back(part);
    }
    return parts;
}

}  // namespace

std::vector<std::vector<std::string>> DecodedBlobs::faceCaptions() const {
    std::vector<std::vector<std::string>> captions;
    const auto* attributes = faceAttributes();
    const auto* found = faces();
    if (attributes == nullptr || found == nullptr || attributes->n_m_faceattributeinfos != found->n_m_facebaseinfos) {
        return captions;
    }
    for (size_t i = 0; i < attributes->n_m_faceattributeinfos; ++i) captions.push_back(caption(*attributes->m_faceattributeinfos[i]));
    return captions;
}

std::optional<float> DecodedBlobs::peopleCue() const {
    if (const auto* scene = get<CSceneRecogBuffer>("scene")) {
        for (size_t i = 0; i < scene->n_m_scenerecoginfo; ++i) {
            if (std::string(scene->m_scenerecoginfo[i]->name) == "people") return scene->m_scenerecoginfo[i]->prob;
        }
    }
    if (const auto* v3 = get<CSceneRecogV3Buffer>("scene-v3")) {
        for (size_t i = 0; i < v3->n_m_scenerecogv3info; ++i) {
            if (std::string(v3->m_scenerecogv3info[i]->name) == "people") return v3->m_scenerecogv3info[i]->confidence;
        }
    }
    return std::nullopt;
}

std::vector<std::pair<std::string, float>> DecodedBlobs::topClasses(size_t n) const {
    std::vector<std::pair<std::string, float>> labels;
    const auto* classes = get<CNHClassificationBuffer>("classification");
    if (classes == nullptr || classes->n_m_classificationinfos == 0) return labels;
    const CNHClassificationInfo* info = classes->m_classificationinfos[0];
    for (size_t i = 0; i < info->n_id && i < info->n_confidence; ++i) {
        if (!shown(info->confidence[i])) continue;
        const int id = info->id[i];
        const std::string label =
            id >= 0 && static_cast<size_t>(id) < classes->n_m_labels ? classes->m_labels[id] : "class " + std::to_string(id);
        labels.emplace_back(label, info->confidence[i]);
    }
    keepBest(labels, n);
    return labels;
}

std::vector<std::pair<std::string, float>> DecodedBlobs::extraClasses() const {
    // By display name: the class 2584_sky is not shown again beside the scene label sky.
    const auto labels = topLabels(3);
    std::vector<std::pair<std::string, float>> classes;
    for (const auto& entry : topClasses(3)) {
        const std::string name = VQFeature::displayName(entry.first);
        if (std::none_of(labels.begin(), labels.end(),
                         [&](const auto& label) { return VQFeature::displayName(label.first) == name; })) {
            classes.push_back(entry);
        }
    }
    return classes;
}

std::vector<std::pair<std::string, float>> DecodedBlobs::topLabels(size_t n) const {
    std::vector<std::pair<std::string, float>> labels;
    if (const auto* scene = get<CSceneRecogBuffer>("scene")) {
        for (size_t i = 0; i < scene->n_m_scenerecoginfo; ++i) {
            const auto* info = scene->m_scenerecoginfo[i];
            if (info->satisfied && shown(info->prob)) labels.emplace_back(info->name, info->prob);
        }
    } else if (const auto* v3 = get<CSceneRecogV3Buffer>("scene-v3")) {
        for (size_t i = 0; i < v3->n_m_scenerecogv3info; ++i) {
            const auto* info = v3->m_scenerecogv3info[i];
            if (info->satisfied && shown(info->confidence)) labels.emplace_back(info->name, info->confidence);
        }
    } else {
        return topClasses(n);
    }
    keepBest(labels, n);
    return labels;
}

bool DecodedBlobs::shown(float score) { return score >= VQFeature::kShownConfidence; }

std::string DecodedBlobs::shownText(const std::pair<std::string, float>& entry) {
    char text[160];
    std::snprintf(text, sizeof text, "%s %.2f", VQFeature::displayName(entry.first).c_str(), entry.second);
    return text;
}

}  // namespace vqfe
