// `--draw`: a PNG per image with what was found drawn on it: face and pet rectangles and
// points, skeleton points, the saliency box, the matting and saliency masks as tinted
// overlays, and the top labels as text.
#pragma once

#include <string>

#include "tools/vqfe/decoded_blobs.h"
#include "tools/vqfe/image_io.h"

namespace vqfe {

// Writes <dir>/<file stem>.png (the directory is created when missing). False with
// *error set when the picture cannot be written.
bool drawAnnotations(const LoadedImage& image, const BlobMap& blobs, const std::string& dir, std::string* error);

}  // namespace vqfe
