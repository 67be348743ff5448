/// ImageScorer: quality score of one image file through the framework's image-quality
/// API. Lifecycle: construct, init, any number of scoreImage/getScore, destroy, delete.
/// The destructor does not call destroy(). One thread at a time.
#pragma once

#include <string>

namespace VQFeature {

class ImageScorer {
public:
    /// modelPath: the quality model file. option: passed to the framework unchanged.
    ImageScorer(const std::string& modelPath, int option);
    ~ImageScorer();

    int init();     ///< 0 when ready, else the API's code
    /// -1 without a handle, else the API's code; writes the score on success.
    int scoreImage(const std::string& imagePath, int a, int b);
    float getScore();  ///< the score of the last successful scoreImage
    int destroy();  ///< 0 without a handle, else the API's code

    std::string modelPath;
    int option;

private:
    void* handle_;
    float score_;
};

}  // namespace VQFeature
