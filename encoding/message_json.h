// JSON text of any protobuf-c message, driven by its descriptor (field names as in the
// schema, repeated fields as arrays, nested messages as objects). Used by tools to show
// decoded result blobs.
#pragma once

#include <protobuf-c/protobuf-c.h>

#include <cstddef>
#include <string>

namespace VQFeature {

// The message as one line of JSON. Floats keep 9 significant digits; NaN and
// infinities (which JSON cannot hold) are written as null.
std::string messageToJson(const ProtobufCMessage& message);

// text as a JSON string literal, quotes included.
std::string jsonQuoted(const std::string& text);

// Whether text is well-formed UTF-8 (a file name need not be).
bool isUtf8(const std::string& text);

// The descriptor of the blob message of an algorithm kind (4 face, 121/130
// classification, ...), or null for a kind without blobs.
const ProtobufCMessageDescriptor* blobDescriptorForKind(int kind);

// Decodes a blob of the given kind and returns its JSON. On failure returns "" and
// says why in *error ("no blob format for kind 9", "malformed blob for kind 4").
std::string blobToJson(int kind, const void* data, size_t length, std::string* error);
// The same JSON appended to out (left as it was on failure); false on failure.
bool appendBlobJson(std::string& out, int kind, const void* data, size_t length, std::string* error);

}  // namespace VQFeature
