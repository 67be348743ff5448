#include "bench/framework_buffers.h"

#include <cmath>
#include <cstdint>
#include <sstream>
#include <string>

#include "bench/bench_texts.h"

namespace VQFeature {
namespace bench {
namespace {

constexpr int kFaces = 5;
constexpr int kLandmarks = 106;
constexpr int kMaskSide = 64;
constexpr int kClasses = 208;
constexpr int kFeatureDim = 1280;
constexpr int kMattingSide = 512;

Glintcore::PrimitiveVector<Glintcore::Vector2f> contour(int n, float cx, float cy, float radius) {
    Glintcore::PrimitiveVector<Glintcore::Vector2f> out;
    for (int i = 0; i < n; ++i) {
        const float a = 6.2831853f * static_cast<float>(i) / static_cast<float>(n);
        out.push_back({cx + radius * std::cos(a), cy + radius * std::sin(a)});
    }
    return out;
}

// A soft disc: 255 inside, 0 outside, a ramp across the edge (as a segmentation
// network's output looks), side x side bytes.
Glintcore::PrimitiveVector<uint8_t> softDisc(int side, float edge) {
    Glintcore::PrimitiveVector<uint8_t> out;
    const float c = (static_cast<float>(side) - 1.f) / 2.f;
    const float r = static_cast<float>(side) * 0.35f;
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const float d = std::hypot(static_cast<float>(x) - c, static_cast<float>(y) - c) - r;
            const float v = 255.f * (0.5f - d / edge);
            out.push_back(static_cast<uint8_t>(v < 0.f ? 0.f : (v > 255.f ? 255.f : v)));
        }
    }
    return out;
}

template <typename Mask>
Glintcore::SharePtr<Mask> faceMask(int id) {
    auto mask = Glintcore::makeShared<Mask>();
    mask->faceMaskSize = kMaskSide;
    mask->faceMask = softDisc(kMaskSide, 6.f);
    mask->warpMat = {0.25f, 0.f, 0.1f * static_cast<float>(id), 0.f, 0.25f, 0.2f};
    mask->id = id;
    return mask;
}

std::vector<std::string> splitCommas(const std::string& text) {
    std::vector<std::string> out;
    std::stringstream in(text);
    for (std::string item; std::getline(in, item, ',');) out.push_back(item);
    return out;
}

// The value of "key":"..." in the graph text.
std::string graphValue(const std::string& graph, const std::string& key) {
    const std::string open = "\"" + key + "\":\"";
    const size_t start = graph.find(open) + open.size();
    return graph.substr(start, graph.find('"', start) - start);
}

}  // namespace

std::unique_ptr<Vantor::FaceBuffer> makeFaceBuffer() {
    auto buffer = std::make_unique<Vantor::FaceBuffer>();
    buffer->imageWidth = 4032;
    buffer->imageHeight = 3024;
    for (int i = 0; i < kFaces; ++i) {
        const float cx = 0.15f + 0.17f * static_cast<float>(i), cy = 0.4f;
        auto face = Glintcore::makeShared<Vantor::Face106>();
        face->rect = {cx - 0.06f, cy - 0.08f, 0.12f, 0.16f};
        face->score = 0.9f + 0.01f * static_cast<float>(i);
        face->points = contour(kLandmarks, cx, cy, 0.05f);
        for (int p = 0; p < kLandmarks; ++p) face->visibility.push_back(p % 7 == 0 ? 0.4f : 0.98f);
        face->yaw = 3.5f * static_cast<float>(i);
        face->pitch = -2.f;
        face->roll = 1.25f;
        face->eyeDist = 0.031f;
        face->id = i;
        face->action = 0x11;
        face->trackingCount = 1;
        buffer->faces.push_back(face);

        auto extra = Glintcore::makeShared<Vantor::FaceExtra>();
        extra->eyeCount = 22;
        extra->eyebrowCount = 13;
        extra->lipsCount = 64;
        extra->irisCount = 20;
        extra->eyeLeft = contour(22, cx - 0.02f, cy - 0.02f, 0.01f);
        extra->eyeRight = contour(22, cx + 0.02f, cy - 0.02f, 0.01f);
        extra->eyebrowLeft = contour(13, cx - 0.02f, cy - 0.035f, 0.012f);
        extra->eyebrowRight = contour(13, cx + 0.02f, cy - 0.035f, 0.012f);
        extra->lips = contour(64, cx, cy + 0.04f, 0.015f);
        extra->leftIris = contour(20, cx - 0.02f, cy - 0.02f, 0.004f);
        extra->rightIris = contour(20, cx + 0.02f, cy - 0.02f, 0.004f);
        buffer->extras.push_back(extra);

        buffer->mouthMasks.push_back(faceMask<Vantor::FaceMouthMask>(i));
        buffer->teethMasks.push_back(faceMask<Vantor::FaceTeethMask>(i));
        buffer->faceMasks.push_back(faceMask<Vantor::FaceFaceMask>(i));
        auto occlusion = Glintcore::makeShared<Vantor::FaceOcclusion>();
        occlusion->prob = 0.05f * static_cast<float>(i);
        occlusion->id = i;
        buffer->occlusions.push_back(occlusion);
    }
    return buffer;
}

std::unique_ptr<Vantor::NHClassificationBuffer> makeClassificationBuffer() {
    auto buffer = std::make_unique<Vantor::NHClassificationBuffer>();
    const std::string graph = classificationGraph();
    buffer->labels = splitCommas(graphValue(graph, "class_labels"));
    for (const std::string& t : splitCommas(graphValue(graph, "class_thresholds"))) {
        buffer->thresh.push_back(std::stof(t));
    }
    auto info = Glintcore::makeShared<Vantor::NHClassificationInfo>();
    info->numClasses = kClasses;
    for (int i = 0; i < kClasses; ++i) {
        const int id = (i * 71) % kClasses;  // a permutation, as sorting by confidence gives
        info->id.push_back(id);
        info->confidence.push_back(1.f / (2.f + static_cast<float>(i)));
        info->exceedThresh.push_back(i < 3 ? 1 : 0);
    }
    auto feature = Glintcore::makeShared<Vantor::NHClassificationFeature>();
    for (int i = 0; i < kFeatureDim; ++i) feature->features.push_back(std::sin(0.37f * static_cast<float>(i)));
    buffer->bufferSize = 1;
    buffer->infos[0] = info;
    buffer->features[0] = feature;
    return buffer;
}

std::unique_ptr<Vantor::MattingBuffer> makeMattingBuffer() {
    auto buffer = std::make_unique<Vantor::MattingBuffer>();
    auto result = Glintcore::makeShared<Vantor::MattingResult>();
    result->width = kMattingSide;
    result->height = kMattingSide;
    result->mask = softDisc(kMattingSide, 12.f);
    result->rect = {0.15f, 0.15f, 0.7f, 0.7f};
    buffer->result = result;
    return buffer;
}

}  // namespace bench
}  // namespace VQFeature
