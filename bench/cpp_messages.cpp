#include "bench/cpp_messages.h"

#include <algorithm>

namespace VQFeature {
namespace bench {
namespace {

void setRect(const Glintcore::Rect& rect, C_Rect* out) {
    out->set_x(rect.x);
    out->set_y((1.0f - rect.y) - rect.height);
    out->set_y_vantor(rect.y);
    out->set_width(rect.width);
    out->set_height(rect.height);
}

void addPoints(const Glintcore::PrimitiveVector<Glintcore::Vector2f>& points,
               google::protobuf::RepeatedPtrField<C_Float2>* out) {
    out->Reserve(static_cast<int>(points.size()));
    for (const auto& p : points) {
        C_Float2* point = out->Add();
        point->set_x(p.x);
        point->set_y(p.y);
    }
}

template <typename Out, typename List>
void addAll(const List& list, google::protobuf::RepeatedField<Out>* out) {
    out->Reserve(static_cast<int>(list.size()));
    for (const auto& v : list) out->AddAlreadyReserved(static_cast<Out>(v));
}

template <typename Message>
void fillMask(const Vantor::FaceMaskBase& mask, Message* out) {
    out->set_face_mask_side(mask.faceMaskSize);
    addAll(mask.faceMask, out->mutable_face_mask());
    addAll(mask.warpMat, out->mutable_warp_mat());
    out->set_id(mask.id);
}

}  // namespace

void buildMessage(const Vantor::FaceBuffer& buffer, C_FaceBuffer* message) {
    message->set_m_width(buffer.imageWidth);
    message->set_m_height(buffer.imageHeight);
    for (const auto& face : buffer.faces) {
        C_Face106* out = message->add_m_facebaseinfos();
        setRect(face->rect, out->mutable_rect());
        out->set_score(face->score);
        addPoints(face->points, out->mutable_points_array());
        addAll(face->visibility, out->mutable_visibility_array());
        out->set_yaw(face->yaw);
        out->set_pitch(face->pitch);
        out->set_roll(face->roll);
        out->set_eye_dist(face->eyeDist);
        out->set_id(face->id);
        out->set_action(face->action);
        out->set_tracking_cnt(face->trackingCount);
    }
    for (const auto& extra : buffer.extras) {
        C_FaceExtra* out = message->add_m_faceextrainfos();
        out->set_eye_count(extra->eyeCount);
        out->set_eyebrow_count(extra->eyebrowCount);
        out->set_lips_count(extra->lipsCount);
        out->set_iris_count(extra->irisCount);
        addPoints(extra->eyeLeft, out->mutable_eye_left());
        addPoints(extra->eyeRight, out->mutable_eye_right());
        addPoints(extra->eyebrowLeft, out->mutable_eyebrow_left());
        addPoints(extra->eyebrowRight, out->mutable_eyebrow_right());
        addPoints(extra->lips, out->mutable_lips());
        addPoints(extra->leftIris, out->mutable_left_iris());
        addPoints(extra->rightIris, out->mutable_right_iris());
    }
    for (const auto& mask : buffer.mouthMasks) fillMask(*mask, message->add_m_facemouthmask());
    for (const auto& mask : buffer.teethMasks) fillMask(*mask, message->add_m_faceteethmask());
    for (const auto& mask : buffer.faceMasks) fillMask(*mask, message->add_m_facefacemask());
    for (const auto& occlusion : buffer.occlusions) {
        C_FaceOcclusion* out = message->add_m_faceocclusion();
        out->set_prob(occlusion->prob);
        out->set_id(occlusion->id);
    }
}

void buildMessage(const Vantor::NHClassificationBuffer& buffer, C_NHClassificationBuffer* message) {
    constexpr uint64_t kSlots = Vantor::NHClassificationBuffer::kSlots;
    message->set_m_buffersize(buffer.bufferSize);
    const uint64_t slots = std::min(buffer.bufferSize, kSlots);
    for (uint64_t i = 0; i < slots; ++i) {
        const auto& info = buffer.infos[i];
        if (!info) continue;
        C_NHClassificationInfo* out = message->add_m_classificationinfos();
        addAll(info->id, out->mutable_id());
        addAll(info->confidence, out->mutable_confidence());
        addAll(info->exceedThresh, out->mutable_exceedthresh());
        out->set_numclasses(info->numClasses);
    }
    for (uint64_t i = 0; i < slots && buffer.features[i]; ++i) {
        addAll(buffer.features[i]->features, message->add_m_classificationfeatures()->mutable_features());
    }
    message->mutable_m_labels()->Reserve(static_cast<int>(buffer.labels.size()));
    for (const auto& label : buffer.labels) message->add_m_labels(label);
    addAll(buffer.thresh, message->mutable_m_thresh());
}

void buildMessage(const Vantor::MattingBuffer& buffer, C_MattingResult* message) {
    const Vantor::MattingResult& result = *buffer.result;
    message->set_width(result.width);
    message->set_height(result.height);
    addAll(result.mask, message->mutable_maskdata());
    setRect(result.rect, message->mutable_resultrect());
}

}  // namespace bench
}  // namespace VQFeature
