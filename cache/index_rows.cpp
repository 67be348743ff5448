#include "cache/index_rows.h"

#include <cstring>
#include <memory>

#include "cache/stored_result.h"
#include "encoding/message_json.h"
#include "vqfe_results.pb-c.h"

namespace VQFeature {
namespace {

// The kind numbers of the result-kinds table: kFace, kSceneRecog, kNHClassification, ...
enum ResultKind : int {
#define VQFE_RESULT_KIND(kind, number, cliName, Buffer, Message, name) k##kind = number,
#include "encoding/result_kinds.def"
};

using Message = std::unique_ptr<ProtobufCMessage, void (*)(ProtobufCMessage*)>;

Message unpack(int kind, const Result& result) {
    auto release = [](ProtobufCMessage* m) {
        if (m) protobuf_c_message_free_unpacked(m, nullptr);
    };
    const ProtobufCMessageDescriptor* descriptor = blobDescriptorForKind(kind);
    const std::string_view blob = blobBytes(result);
    if (descriptor == nullptr || blob.data() == nullptr) return Message(nullptr, release);
    return Message(protobuf_c_message_unpack(descriptor, nullptr, blob.size(), reinterpret_cast<const uint8_t*>(blob.data())),
                   release);
}

void faceRows(const CFaceVerifyBuffer& buffer, const std::string& assetId, IndexRows* rows) {
    std::vector<IndexedFace> faces;
    for (size_t i = 0; i < buffer.n_m_faceverifyinfos; ++i) {
        const CFaceVerifyInfo& info = *buffer.m_faceverifyinfos[i];
        IndexedFace face;
        face.assetId = assetId;
        face.index = static_cast<int>(i);
        if (info.rect) {
            face.box[0] = info.rect->x;
            face.box[1] = info.rect->y_vantor;
            face.box[2] = info.rect->width;
            face.box[3] = info.rect->height;
        }
        face.descriptor.assign(info.features, info.features + info.n_features);
        faces.push_back(std::move(face));
    }
    rows->faceCount = static_cast<int>(faces.size());
    rows->faces = std::move(faces);
}

// The labels a scene recogniser found satisfied, scored by its score field.
template <typename Info>
void sceneRows(const Info* const* infos, size_t count, float Info::*score, const std::string& assetId,
               IndexRows* rows) {
    std::vector<IndexedLabel> labels;
    for (size_t i = 0; i < count; ++i) {
        if (infos[i]->satisfied) labels.push_back({assetId, infos[i]->name, infos[i]->*score});
    }
    rows->labels = std::move(labels);
}

void classificationRows(const CNHClassificationBuffer& buffer, const std::string& assetId, IndexRows* rows) {
    std::vector<IndexedLabel> labels;
    std::vector<float> signature;
    if (buffer.n_m_classificationinfos > 0) {
        const CNHClassificationInfo& info = *buffer.m_classificationinfos[0];
        if (info.numclasses > 0 && info.numclasses <= 100000) signature.assign(info.numclasses, 0.0f);
        for (size_t i = 0; i < info.n_id && i < info.n_confidence; ++i) {
            const int id = info.id[i];
            if (id >= 0 && static_cast<size_t>(id) < signature.size()) signature[id] = info.confidence[i];
            const bool over = i < info.n_exceedthresh && info.exceedthresh[i] != 0;
            if (over && id >= 0 && static_cast<size_t>(id) < buffer.n_m_labels && buffer.m_labels[id][0] != '\0') {
                labels.push_back({assetId, buffer.m_labels[id], info.confidence[i]});
            }
        }
    }
    rows->labels = std::move(labels);
    if (!signature.empty()) rows->signature = std::move(signature);
}

}  // namespace

IndexRows indexRowsOf(const Result& result) {
    IndexRows rows;
    const bool stringKind = !result.algorithmStringType.empty();
    const int kind = stringKind ? kNHClassification : static_cast<int>(result.algorithmType);
    if (kind != kFace && kind != kFaceVerify && kind != kSceneRecog && kind != kSimilarity && kind != kSceneRecogV3 &&
        kind != kNHClassification && kind != kRelationRecog) {
        return rows;
    }
    Message message = unpack(kind, result);
    if (!message) return rows;
    rows.labelSource = stringKind ? result.algorithmStringType : std::to_string(kind);
    switch (kind) {
    case kFace:
        rows.faceCount = static_cast<int>(reinterpret_cast<const CFaceBuffer*>(message.get())->n_m_facebaseinfos);
        break;
    case kFaceVerify:
        faceRows(*reinterpret_cast<const CFaceVerifyBuffer*>(message.get()), result.assetId, &rows);
        break;
    case kSimilarity: {
        const auto* similarity = reinterpret_cast<const CSimilarityBuffer*>(message.get());
        if (similarity->n_feature == 8) {
            uint64_t hash = 0;
            for (size_t i = 0; i < 8; ++i) hash |= static_cast<uint64_t>(similarity->feature[i] & 0xff) << (8 * i);
            rows.hash = hash;
        }
        break;
    }
    case kSceneRecog: {
        const auto* scene = reinterpret_cast<const CSceneRecogBuffer*>(message.get());
        sceneRows(scene->m_scenerecoginfo, scene->n_m_scenerecoginfo, &CSceneRecogInfo::prob, result.assetId, &rows);
        break;
    }
    case kSceneRecogV3: {
        const auto* scene = reinterpret_cast<const CSceneRecogV3Buffer*>(message.get());
        sceneRows(scene->m_scenerecogv3info, scene->n_m_scenerecogv3info, &CSceneRecogV3Info::confidence,
                  result.assetId, &rows);
        break;
    }
    default:  // the classifications
        classificationRows(*reinterpret_cast<const CNHClassificationBuffer*>(message.get()), result.assetId, &rows);
        // Only the 208-class classification is the signature of the image.
        if (kind != kNHClassification || stringKind) rows.signature.reset();
        break;
    }
    return rows;
}

std::string floatBytes(const std::vector<float>& values) {
    std::string bytes(values.size() * sizeof(float), '\0');
    if (!values.empty()) std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

std::vector<float> floatsOf(const std::string& bytes) {
    std::vector<float> values(bytes.size() / sizeof(float));
    if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
    return values;
}

}  // namespace VQFeature
