// The decoded messages of one image's blobs, by kind name, for the summary and the
// pictures. Each message is released with its free function when the object dies.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vqfe_results.pb-c.h"

namespace vqfe {

using BlobMap = std::map<std::string, std::pair<const void*, unsigned long>>;

class DecodedBlobs {
public:
    explicit DecodedBlobs(const BlobMap& blobs);

    const CFaceBuffer* faces() const { return get<CFaceBuffer>("face"); }
    const CFacePetDetectBuffer* pets() const { return get<CFacePetDetectBuffer>("pet-face"); }
    const CSkeletonBuffer* skeleton() const { return get<CSkeletonBuffer>("skeleton"); }
    const CSaliencySegInfo* saliency() const { return get<CSaliencySegInfo>("saliency"); }
    const CMattingResult* matting() const { return get<CMattingResult>("matting"); }
    const CPetMattingBuffer* petMatting() const { return get<CPetMattingBuffer>("pet-matting"); }
    const CFaceAttributeBuffer* faceAttributes() const { return get<CFaceAttributeBuffer>("face-attribute"); }

    // Per face of faces(), in its order, what the attribute networks measured: gender with
    // its probability and age ("female 0.93, 31 y"), then the expression with its probability
    // ("happy 0.87"), each only when measured. Empty when the attributes were not asked or
    // do not match the faces one to one.
    std::vector<std::vector<std::string>> faceCaptions() const;

    // The scene analyses' "people" cue (scene recognition, else the third generation),
    // when one of them ran.
    std::optional<float> peopleCue() const;

    // What the summary and the pictures show of an image's labels. Only labels and classes
    // of at least VQFeature::kShownConfidence are listed (a NaN never is): under it they were
    // not found. The blobs keep every value.

    // Up to n labels with their scores, best first, from scene recognition, then the
    // third scene generation (only the labels the analysis says are satisfied: a label
    // under its threshold was not found), then the 208-class classification.
    std::vector<std::pair<std::string, float>> topLabels(size_t n) const;

    // Up to n classes of the 208-class classification, best first.
    std::vector<std::pair<std::string, float>> topClasses(size_t n) const;

    // The classes worth showing beside topLabels(3): up to three not already among them.
    std::vector<std::pair<std::string, float>> extraClasses() const;

    // Whether a score is shown: at least VQFeature::kShownConfidence (a NaN never is).
    static bool shown(float score);

    // An entry as shown: display name and score, "one person 0.87".
    static std::string shownText(const std::pair<std::string, float>& entry);

private:
    template <typename T>
    const T* get(const std::string& name) const {
        auto found = messages_.find(name);
        return found == messages_.end() ? nullptr : reinterpret_cast<const T*>(found->second.get());
    }

    std::map<std::string, std::shared_ptr<ProtobufCMessage>> messages_;
};

}  // namespace vqfe
