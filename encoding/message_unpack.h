// Unpacking of result blobs in one pass over the bytes.
//
// protobuf-c's own unpack first records every field occurrence of a message, then
// parses them; on the blobs of this library, whose long lists (mask bytes, features)
// are written unpacked, one tag per element, that record takes tens of bytes per
// element and dominates decoding. unpackMessage parses each field as it is read and
// builds exactly the message protobuf-c would build, from the same allocator (malloc),
// so the result is released with the generated free_unpacked and the default allocator.
//
// Anything it does not handle itself (unknown fields, malformed or truncated input,
// optional, oneof, enum or bytes fields, a required sub-message given twice) makes it
// hand the whole blob to protobuf-c's unpack instead, so errors and unusual inputs
// are always decided by protobuf-c. Stateless; safe from any thread.
#pragma once

#include <cstddef>
#include <cstdint>

#include <protobuf-c/protobuf-c.h>

namespace VQFeature {

// A new message of the descriptor's type holding the blob, or null for a malformed
// blob (as protobuf_c_message_unpack with the default allocator).
ProtobufCMessage* unpackMessage(const ProtobufCMessageDescriptor* descriptor, size_t length, const uint8_t* data);

}  // namespace VQFeature
