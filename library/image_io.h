// Reading photos for the tool: file bytes, their content hash (the asset id, so a
// renamed file still hits the store) and the decoded RGBA pixels the app would hand over.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "extractor/image_buffer.h"

namespace vqfe {

struct LoadedImage {
    std::string path;
    std::string assetId;                             // md5 of the file's bytes
    std::shared_ptr<VQFeature::ImageBuffer> buffer;  // RGBA8888, format 0
    bool truncated = false;  // a JPEG that ends before its end marker: the decoder filled the rest grey
};

// Whether a JPEG file's bytes end before its end-of-image marker (a cut-off download or
// copy). Walks the marker segments (an EXIF thumbnail's markers are inside its segment)
// and the scans; a complete file reaches the marker, with anything appended after it.
bool jpegEndsEarly(const std::string& bytes);

// What every command says of a truncated JPEG it analyses, after "vqfe <command>: ".
std::string truncatedWarning(const std::string& path);

// text with its ASCII letters in lower case (file extensions, label names).
std::string lowered(std::string text);

// Reads and decodes a JPEG or PNG file. On failure returns nullopt and says why in
// *error ("cannot read", "not a JPEG or PNG image").
std::optional<LoadedImage> loadImage(const std::string& path, std::string* error);

// Why the store named by store (a file or a postgresql:// URI) cannot take this file, or ""
// when it can: a PostgreSQL store keeps paths as text, which there is UTF-8 only, and one
// such path failed the whole batch.
std::string pathUnfitForStore(const std::string& store, const std::string& path);

// The image files named by the arguments: files as given, directories searched
// (recursively, sorted) for .jpg/.jpeg/.png. Unreadable arguments are reported in
// *problems and skipped.
std::vector<std::string> collectImages(const std::vector<std::string>& arguments, std::vector<std::string>* problems);

}  // namespace vqfe
