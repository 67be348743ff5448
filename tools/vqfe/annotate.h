// `--draw`: a PNG per image with what was found drawn on it: face rectangles, landmarks,
// outlines, irises and pupils, with age, gender and expression beside each face; pet
// rectangles and points with their type; every person's skeleton, a colour each; the
// saliency box; the matting, pet matting and saliency masks as tinted, outlined overlays;
// the top labels, the people cue and the classification's classes as text. Only what an
// analysis measured is drawn.
#pragma once

#include <string>
#include <vector>

#include "library/decoded_blobs.h"
#include "library/image_io.h"

namespace vqfe {

// The text drawn top left: the labels shown, the people cue when it is not among them (and
// not under the floor the labels have), then the classes shown that are not among them; the
// same labels and classes the summary lists (it gives the people cue a field of its own).
std::vector<std::string> labelLines(const DecodedBlobs& decoded);

// The file name of an image's picture: its file stem and the first 8 digits of its asset
// id ("IMG_0001-47de3e15.png"), so that photos of one name in two folders (cameras repeat
// their names) get a picture each, and vqfe report finds each photo's own.
std::string drawnPictureName(const std::string& imagePath, const std::string& assetId);

// Writes <dir>/<drawnPictureName> (the directory is created when missing). False with
// *error set when the picture cannot be written.
bool drawAnnotations(const LoadedImage& image, const BlobMap& blobs, const std::string& dir, std::string* error);

}  // namespace vqfe
