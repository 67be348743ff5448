// Face family: face (kind 4), face_verify (8), face_clusting (10), expression_detect
// (46 and 9). Detection is the BlazeFace network, landmarks and head angles the face mesh
// network; identity features are the dlib face recogniser's descriptors (uniform-LBP
// histograms with a bare parameter file); the expression comes from the emotion network,
// age and gender from face-api's network, the other attributes from crop statistics.
// See korvid/README.md for what each field holds.
#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

#include <opencv2/imgproc.hpp>

#include "dnn/age_gender.h"
#include "dnn/expression_classifier.h"
#include "dnn/face_descriptor.h"
#include "dnn/face_detector.h"
#include "graph/execute_memo.h"
#include "model/model_bundle.h"
#include "model/model_loading.h"
#include "nodes/face_output.h"
#include "nodes/image_stats.h"
#include "nodes/node_helpers.h"
#include "nodes/node_types.h"

namespace kv {

using Vantor::AlgorithmType;

namespace {

// BlazeFace probability below which a face is not reported. On the samples, testdata and the
// quality photos, portraits score 0.872 to 0.890; the best false candidates are the unframed
// cat (0.830 at 256 x 170, 0.773 to 0.796 at 451 x 300) and a cameraman in profile (0.772).
constexpr float kMinFaceScore = 0.85f;
// A face found in a tile and small for it (at most a quarter of its side) counts from
// kMinTileFaceScore when the face mesh confirms it (presence from kMinTileFacePresence). The
// faces of the 1927 group photo (1024 x 705, faces of 25 to 35 px, tiles of 240 px): 16 of
// its 29 reach 0.85, 26 reach 0.76, each with presence 1.0 (the next scores 0.735). The best
// such false candidates on the quality photos and on testdata enlarged to 700 to 2400 px are
// a rocket (0.734, presence 0.61; 0.705, 0.67), a rocket drawing (0.717, no mesh) and a
// raccoon (0.686, no mesh).
constexpr float kMinTileFaceScore = 0.76f;
constexpr float kMinTileFacePresence = 0.9f;

class FaceNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        auto detectorNetwork = loadNetwork(models, "face_base_model_key", FaceDetector::shape());
        memoKey_ = "faces:" + identity(detectorNetwork.get());
        detector_ = std::make_unique<FaceDetector>(std::move(detectorNetwork));
        if (models.count("face_extra_model_key")) {
            // The face mesh alone, or a bundle of the mesh and the iris network.
            const ModelBlob& extra = models.at("face_extra_model_key");
            const auto parts = bundleParts(extra);
            if (!parts.empty() && (!parts.count("mesh") || !parts.count("iris"))) {
                throw Error(Vantor::INVALID_MODEL, "model \"" + extra.name + "\" lacks its mesh or iris network");
            }
            auto meshNetwork = parts.empty() ? loadNetwork(models, "face_extra_model_key", FaceMesh::shape())
                                             : loadNetwork({{"mesh", parts.at("mesh")}}, "mesh", FaceMesh::shape());
            std::shared_ptr<Network> irisNetwork;
            if (!parts.empty()) irisNetwork = loadNetwork({{"iris", parts.at("iris")}}, "iris", FaceMesh::irisShape());
            memoKey_ += "+" + identity(meshNetwork.get()) + "+" + identity(irisNetwork.get());
            mesh_ = std::make_unique<FaceMesh>(std::move(meshNetwork), std::move(irisNetwork));
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        const long maxNum = params.intOr("face_max_num", 5);
        if (maxNum < 1 || maxNum > 256) throw Error(Vantor::INVALID_NODE, "face_max_num out of range");
        auto out = std::make_unique<FaceOutput>();
        out->bgr = bgr;
        // The face nodes of a merged graph share the networks (same model bytes) and so
        // one detection per image.
        if (memo != nullptr) {
            out->faces = memo->get<std::vector<DetectedFace>>(memoKey_ + "@" + imageIdentity(bgr), [&] { return detect(bgr); });
        } else {
            out->faces = detect(bgr);
        }
        // Largest first, as callers expect, then at most face_max_num.
        std::stable_sort(out->faces.begin(), out->faces.end(),
                         [](const DetectedFace& a, const DetectedFace& b) { return a.box.area() > b.box.area(); });
        if (static_cast<long>(out->faces.size()) > maxNum) out->faces.resize(static_cast<size_t>(maxNum));
        fillBuffer(*out, bgr.size());
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return {static_cast<int32_t>(AlgorithmType::Face)};
    }

private:
    std::vector<DetectedFace> detect(const cv::Mat& bgr) const {
        std::vector<DetectedFace> faces;
        const cv::Rect image(0, 0, bgr.cols, bgr.rows);
        for (const FaceDetection& d : detector_->detect(bgr, kMinFaceScore, kMinTileFaceScore)) {
            DetectedFace face;
            // Clamped in floating point first: a wild (or NaN) box must not overflow the int conversion.
            auto pixel = [](float v, int limit) { return v >= 0.f ? static_cast<int>(std::min(v, float(limit))) : 0; };
            face.box = cv::Rect(cv::Point(pixel(std::floor(d.box.x), image.width), pixel(std::floor(d.box.y), image.height)),
                                cv::Point(pixel(std::ceil(d.box.br().x), image.width), pixel(std::ceil(d.box.br().y), image.height)));
            if (face.box.width < 2 || face.box.height < 2) continue;
            face.score = d.score;
            // The network's eyes, image-left first.
            face.hasEyes = true;
            face.leftEye = d.keyPoints[0].x <= d.keyPoints[1].x ? d.keyPoints[0] : d.keyPoints[1];
            face.rightEye = d.keyPoints[0].x <= d.keyPoints[1].x ? d.keyPoints[1] : d.keyPoints[0];
            if (mesh_) {
                face.landmarks = mesh_->fit(bgr, d.box, face.leftEye, face.rightEye);
                face.hasMesh = face.landmarks.presence >= FaceMesh::kMinPresence;
            }
            // A small face of a tile below kMinFaceScore needs the mesh's word.
            if (d.score < kMinFaceScore && !(mesh_ && face.landmarks.presence >= kMinTileFacePresence)) continue;
            faces.push_back(face);
        }
        return faces;
    }

    static void fillBuffer(FaceOutput& out, const cv::Size& size) {
        Vantor::FaceBuffer& buf = *out.buffer;
        buf.imageWidth = size.width;
        buf.imageHeight = size.height;
        for (size_t i = 0; i < out.faces.size(); ++i) {
            const DetectedFace& f = out.faces[i];
            auto face = Glintcore::makeShared<Vantor::Face106>();
            face->rect = normalised(f.box, size);
            face->score = f.score;
            face->id = static_cast<int32_t>(i);
            if (f.hasMesh) {
                for (const cv::Point2f& p : f.landmarks.points106) face->points.push_back(normalised(p, size));
                face->visibility = Glintcore::PrimitiveVector<float>(f.landmarks.points106.size(), 1.f);
            } else if (f.hasEyes) {
                face->points.push_back(normalised(f.leftEye, size));
                face->points.push_back(normalised(f.rightEye, size));
                face->visibility = {1.f, 1.f};
            }
            if (f.hasEyes) {
                const cv::Point2f d = f.rightEye - f.leftEye;
                face->eyeDist = std::sqrt(d.x * d.x + d.y * d.y) / size.width;
                face->roll = static_cast<float>(std::atan2(d.y, d.x) * 180.0 / CV_PI);
            }
            if (f.hasMesh) {
                face->yaw = f.landmarks.yaw;
                face->pitch = f.landmarks.pitch;
                face->roll = f.landmarks.roll;
            }
            buf.faces.push_back(face);

            auto extra = Glintcore::makeShared<Vantor::FaceExtra>();
            if (f.hasMesh) {
                auto outline = [&](const std::vector<cv::Point2f>& points, Glintcore::PrimitiveVector<Glintcore::Vector2f>& target) {
                    for (const cv::Point2f& p : points) target.push_back(normalised(p, size));
                };
                const FaceLandmarks& m = f.landmarks;
                extra->eyeCount = 2;
                extra->eyebrowCount = 2;
                extra->lipsCount = 1;
                outline(m.eyeLeft, extra->eyeLeft);
                outline(m.eyeRight, extra->eyeRight);
                outline(m.eyebrowLeft, extra->eyebrowLeft);
                outline(m.eyebrowRight, extra->eyebrowRight);
                outline(m.lips, extra->lips);
                if (!m.irisLeft.empty()) {
                    extra->irisCount = 2;
                    outline(m.irisLeft, extra->leftIris);
                    outline(m.irisRight, extra->rightIris);
                }
            }
            buf.extras.push_back(extra);
        }
    }

    std::unique_ptr<FaceDetector> detector_;
    std::unique_ptr<FaceMesh> mesh_;
    std::string memoKey_;  // the networks used
};

// Uniform LBP: the 58 patterns with at most two 0/1 transitions get their own bin,
// every other pattern shares bin 58.
const std::array<uint8_t, 256>& uniformLbpBins() {
    static const std::array<uint8_t, 256> table = [] {
        std::array<uint8_t, 256> t{};
        uint8_t next = 0;
        for (int p = 0; p < 256; ++p) {
            int transitions = 0;
            for (int b = 0; b < 8; ++b) transitions += ((p >> b) & 1) != ((p >> ((b + 1) % 8)) & 1);
            t[p] = transitions <= 2 ? next++ : 58;
        }
        return t;
    }();
    return table;
}

// Concatenated uniform-LBP histograms over grid x grid cells, square-rooted and
// L2-normalised (Hellinger), so that a dot product compares two crops.
std::vector<float> lbpFeature(const cv::Mat& crop, int grid) {
    const auto& bins = uniformLbpBins();
    std::vector<float> feature(static_cast<size_t>(grid * grid * 59), 0.f);
    const int cellW = (crop.cols - 2) / grid, cellH = (crop.rows - 2) / grid;
    for (int y = 1; y < crop.rows - 1; ++y) {
        for (int x = 1; x < crop.cols - 1; ++x) {
            const uint8_t c = crop.at<uint8_t>(y, x);
            static const int dx[8] = {-1, 0, 1, 1, 1, 0, -1, -1}, dy[8] = {-1, -1, -1, 0, 1, 1, 1, 0};
            int code = 0;
            for (int k = 0; k < 8; ++k) code |= (crop.at<uint8_t>(y + dy[k], x + dx[k]) >= c) << k;
            const int gx = std::min(grid - 1, (x - 1) / std::max(1, cellW));
            const int gy = std::min(grid - 1, (y - 1) / std::max(1, cellH));
            feature[static_cast<size_t>((gy * grid + gx) * 59 + bins[code])] += 1.f;
        }
    }
    double norm = 0;
    for (float& v : feature) {
        v = std::sqrt(v);
        norm += double(v) * v;
    }
    norm = std::sqrt(norm);
    if (norm > 0) {
        for (float& v : feature) v = static_cast<float>(v / norm);
    }
    return feature;
}

// The face's geometry for the aligned crops: the mouth is the centre of the mesh's lips.
FacePoints facePoints(const DetectedFace& f) {
    FacePoints p;
    p.box = f.box;
    p.hasEyes = f.hasEyes;
    p.leftEye = f.leftEye;
    p.rightEye = f.rightEye;
    if (f.hasMesh && !f.landmarks.lips.empty()) {
        p.hasMouth = true;
        for (const cv::Point2f& q : f.landmarks.lips) p.mouth += q;
        p.mouth *= 1.f / float(f.landmarks.lips.size());
    }
    if (f.hasMesh && !f.landmarks.points106.empty()) p.landmarkBox = cv::boundingRect(f.landmarks.points106);
    return p;
}

// A face's crop geometry in a memo key: the nodes of a merged graph share the detection, so
// the same face has the same geometry in each of them.
std::string geometryKey(const FacePoints& p) {
    std::string key;
    for (float v : {float(p.box.x), float(p.box.y), float(p.box.width), float(p.box.height), p.leftEye.x, p.leftEye.y,
                    p.rightEye.x, p.rightEye.y, p.mouth.x, p.mouth.y, p.landmarkBox.x, p.landmarkBox.y,
                    p.landmarkBox.width, p.landmarkBox.height}) {
        key += std::to_string(v) + ',';
    }
    return key;
}

class FaceVerifyNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        // A bundle of parameters and the descriptor network; a bare parameter file keeps the
        // LBP features.
        const ModelBlob& blob = requireModel(models, "face_verify_model_key");
        if (const auto bundle = paramsAndNetwork(blob)) {
            openParams(bundle->params, "face_verify")["network_model_version"] >> version_;
            auto network = loadNetwork({{"network", bundle->network}}, "network", FaceDescriptor::shape());
            memoKey_ = "descriptor:" + identity(network.get()) + "@";
            descriptor_ = std::make_unique<FaceDescriptor>(std::move(network));
            return;
        }
        cv::FileStorage fs = openParams(blob, "face_verify");
        cropSize_ = static_cast<int>(paramOr(fs, "crop_size", 64));
        grid_ = static_cast<int>(paramOr(fs, "grid", 4));
        fs["model_version"] >> version_;
        if (cropSize_ < 16 || cropSize_ > 512 || grid_ < 1 || grid_ > 16 || cropSize_ / grid_ < 4) {
            throw Error(Vantor::INVALID_MODEL, "face_verify parameters out of range");
        }
    }

    std::unique_ptr<NodeOutput> run(const NodeParams&, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        FaceOutput& faces = inputAs<FaceOutput>(inputs, 1);
        auto out = std::make_unique<BufferOutput<Vantor::FaceVerifyBuffer>>(
            std::vector<int32_t>{static_cast<int32_t>(AlgorithmType::FaceVerify)});
        for (size_t i = 0; i < faces.faces.size(); ++i) {
            const DetectedFace& f = faces.faces[i];
            auto info = Glintcore::makeShared<Vantor::FaceVerifyInfo>();
            std::vector<float> feature = descriptor_ ? describe(bgr, facePoints(f))
                                                     : lbpFeature(normalisedFaceCrop(bgr, f, cropSize_), grid_);
            info->features = Glintcore::PrimitiveVector<float>(feature.begin(), feature.end());
            info->face = *faces.buffer->faces[i];
            info->id = static_cast<int32_t>(i);
            info->rect = info->face.rect;
            info->faceStatus = 1;
            info->modelVersion = version_;
            out->buffer->faceVerifyInfos.push_back(info);
        }
        out->buffer->validFaceNum = static_cast<int32_t>(faces.faces.size());
        out->buffer->needUpdate = !faces.faces.empty();
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return {static_cast<int32_t>(AlgorithmType::FaceVerify)};
    }

private:
    // The verification nodes of a merged graph describe each face once.
    std::vector<float> describe(const cv::Mat& bgr, const FacePoints& face) const {
        if (memo == nullptr) return descriptor_->describe(bgr, face);
        return memo->get<std::vector<float>>(memoKey_ + imageIdentity(bgr) + ":" + geometryKey(face),
                                             [&] { return descriptor_->describe(bgr, face); });
    }

    std::unique_ptr<FaceDescriptor> descriptor_;
    std::string memoKey_;  // the descriptor network
    int cropSize_ = 64;
    int grid_ = 4;
    std::string version_;
};

// Two faces join a cluster from this cosine similarity of their descriptors on, when the
// parameter file names none (qm_bigbrother's value; korvid/README.md, "Identity calibration").
constexpr float kClusterThreshold = 0.965f;

class FaceClustingNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        cv::FileStorage fs = openParams(requireModel(models, "face_clusting_model_key"), "face_clusting");
        threshold_ = static_cast<float>(paramOr(fs, "similarity_threshold", kClusterThreshold));
    }

    // Single-link clustering of this image's faces: two faces join when the dot product
    // of their features reaches the threshold ("face_clusting_thres" overrides it).
    std::unique_ptr<NodeOutput> run(const NodeParams& params, const std::vector<NodeOutput*>& inputs) override {
        auto& verify = inputAs<BufferOutput<Vantor::FaceVerifyBuffer>>(inputs, 0);
        const auto& infos = verify.buffer->faceVerifyInfos;
        const float threshold = params.floatOr("face_clusting_thres", threshold_);
        std::vector<size_t> parent(infos.size());
        std::iota(parent.begin(), parent.end(), 0);
        auto root = [&parent](size_t i) {
            while (parent[i] != i) i = parent[i] = parent[parent[i]];
            return i;
        };
        for (size_t a = 0; a < infos.size(); ++a) {
            for (size_t b = a + 1; b < infos.size(); ++b) {
                const auto& fa = infos[a]->features;
                const auto& fb = infos[b]->features;
                float dot = 0.f;
                for (size_t k = 0; k < std::min(fa.size(), fb.size()); ++k) dot += fa[k] * fb[k];
                if (dot >= threshold) parent[root(b)] = root(a);
            }
        }
        auto out = std::make_unique<BufferOutput<Vantor::FaceClustingBuffer>>(
            std::vector<int32_t>{static_cast<int32_t>(AlgorithmType::FaceClusting)});
        std::vector<int> clusterOf(infos.size(), -1);
        for (size_t i = 0; i < infos.size(); ++i) {
            size_t r = root(i);
            if (clusterOf[r] == -1) {
                clusterOf[r] = static_cast<int>(out->buffer->clusters.size());
                out->buffer->clusters.emplace_back();
            }
            out->buffer->results.push_back(clusterOf[r]);
            out->buffer->clusters[static_cast<size_t>(clusterOf[r])].push_back(static_cast<int32_t>(i));
        }
        out->buffer->clustingInfo.flag = infos.empty() ? 0 : 1;
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return {static_cast<int32_t>(AlgorithmType::FaceClusting)};
    }

private:
    float threshold_ = kClusterThreshold;
};

class ExpressionNode : public Node {
public:
    void load(const NodeParams&, const ModelSet& models) override {
        if (models.count("face_attr_expression_model_dir")) {
            expressions_ = std::make_unique<ExpressionClassifier>(
                loadNetwork(models, "face_attr_expression_model_dir", ExpressionClassifier::shape()));
        }
        if (models.count("face_attr_age_gender_model_dir")) {
            // A bundle of parameters and the age/gender network; a bare parameter file only
            // marks the model as present.
            const ModelBlob& blob = models.at("face_attr_age_gender_model_dir");
            const auto bundle = paramsAndNetwork(blob);
            openParams(bundle ? bundle->params : blob, "face_attribute");
            if (bundle) {
                auto network = loadNetwork({{"network", bundle->network}}, "network", AgeGenderEstimator::shape());
                ageGenderKey_ = "age-gender:" + identity(network.get()) + "@";
                ageGender_ = std::make_unique<AgeGenderEstimator>(std::move(network));
            }
        }
        if (models.count("face_attr_extra_model_dir")) openParams(models.at("face_attr_extra_model_dir"), "face_attribute");
    }

    std::unique_ptr<NodeOutput> run(const NodeParams&, const std::vector<NodeOutput*>& inputs) override {
        const cv::Mat& bgr = inputAs<ImageOutput>(inputs, 0).bgr;
        FaceOutput& faces = inputAs<FaceOutput>(inputs, 1);
        auto out = std::make_unique<BufferOutput<Vantor::FaceAttributeBuffer>>(std::vector<int32_t>{
            static_cast<int32_t>(AlgorithmType::FaceAttribute), static_cast<int32_t>(AlgorithmType::FaceExpression)});
        cv::Mat gray;
        cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
        for (const DetectedFace& f : faces.faces) {
            auto attr = Glintcore::makeShared<Vantor::FaceAttribute>();
            if (expressions_) {
                const auto probs = expressions_->classify(gray, f.box);
                attr->happyScore = probs[Happy];
                attr->expType = static_cast<int32_t>(std::max_element(probs.begin(), probs.end()) - probs.begin());
                attr->expProbs = Glintcore::PrimitiveVector<float>(probs.begin(), probs.end());
            }
            if (ageGender_) {
                // The attribute nodes of a merged graph estimate each face once.
                const FacePoints points = facePoints(f);
                auto estimate = [&] { return ageGender_->estimate(bgr, points); };
                const AgeGender result = memo == nullptr ? estimate()
                                                         : memo->get<AgeGender>(ageGenderKey_ + imageIdentity(bgr) + ":" + geometryKey(points), estimate);
                attr->age = result.age;
                attr->boyProb = result.male;
                attr->gender = result.male >= 0.5f ? 1 : 0;
            }
            cv::Mat crop = gray(f.box);
            cv::Mat lap;
            cv::Laplacian(crop, lap, CV_64F);
            cv::Scalar m, sd;
            cv::meanStdDev(lap, m, sd);
            attr->quality = static_cast<float>(sharpnessScore(sd[0] * sd[0]) * std::min(1.0, f.box.width / 80.0));
            cv::Rect core(f.box.x + f.box.width / 5, f.box.y + f.box.height / 5, f.box.width * 3 / 5, f.box.height * 3 / 5);
            cv::Mat skin = skinMask(bgr(core));
            attr->realFaceProb = skin.empty() ? 0.f : float(cv::countNonZero(skin)) / float(skin.total());
            out->buffer->attributes.push_back(attr);
        }
        return out;
    }

    std::vector<int32_t> producedTypes(const NodeParams&, const std::vector<std::string>&) const override {
        return {static_cast<int32_t>(AlgorithmType::FaceAttribute), static_cast<int32_t>(AlgorithmType::FaceExpression)};
    }

private:
    std::unique_ptr<ExpressionClassifier> expressions_;
    std::unique_ptr<AgeGenderEstimator> ageGender_;
    std::string ageGenderKey_;  // the age/gender network
};

}  // namespace

cv::Mat normalisedFaceCrop(const cv::Mat& bgr, const DetectedFace& face, int side) {
    cv::Mat gray;
    cv::cvtColor(bgr, gray, cv::COLOR_BGR2GRAY);
    if (face.hasEyes) {
        const cv::Point2f d = face.rightEye - face.leftEye;
        const cv::Point2f mid = (face.leftEye + face.rightEye) * 0.5f;
        cv::Mat rot = cv::getRotationMatrix2D(mid, std::atan2(d.y, d.x) * 180.0 / CV_PI, 1.0);
        cv::warpAffine(gray, gray, rot, gray.size(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    }
    cv::Mat crop;
    cv::resize(gray(face.box & cv::Rect(0, 0, gray.cols, gray.rows)), crop, cv::Size(side, side), 0, 0, cv::INTER_AREA);
    cv::equalizeHist(crop, crop);
    return crop;
}

std::vector<NodeType> faceNodeTypes() {
    return {
        {"face", {{Port::Image, true}}, Port::Faces, [] { return std::make_unique<FaceNode>(); }},
        {"face_verify", {{Port::Image, true}, {Port::Faces, true}}, Port::FaceFeatures,
         [] { return std::make_unique<FaceVerifyNode>(); }},
        {"face_clusting", {{Port::FaceFeatures, true}}, Port::None, [] { return std::make_unique<FaceClustingNode>(); }},
        {"expression_detect", {{Port::Image, true}, {Port::Faces, true}}, Port::FaceAttributes,
         [] { return std::make_unique<ExpressionNode>(); }},
    };
}

}  // namespace kv
