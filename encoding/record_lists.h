// Internal helpers of the record conversion and the blob encoders: copying framework
// lists into malloc arrays of plain records, and packing a message into a blob.
//
// Every array returned here is a malloc block owned by the caller (release with free),
// allocated even for an empty list. Stateless; safe from any thread.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

#include <protobuf-c/protobuf-c.h>

namespace VQFeature {
namespace records {

// The framework's element count, truncated to 32-bit signed as the records always
// took it; a count that does not fit (negative after truncation) counts as empty.
template <typename List>
inline size_t countOf(const List& list) {
    const int32_t n = static_cast<int32_t>(list.size());
    return n > 0 ? static_cast<size_t>(n) : 0;
}

// A malloc array holding the list's elements converted to Out: floats and ints are
// copied bit for bit, bytes are widened (zero-extended when unsigned, sign-extended
// when signed). *count receives the element count.
template <typename Out, typename List>
inline Out* copyList(const List& list, size_t* count) {
    const size_t n = countOf(list);
    Out* out = static_cast<Out*>(std::malloc(n * sizeof(Out)));
    using In = std::remove_cv_t<std::remove_reference_t<decltype(list[0])>>;
    if constexpr (std::is_same_v<In, Out>) {
        if (n > 0) std::memcpy(out, list.data(), n * sizeof(Out));
    } else {
        for (size_t i = 0; i < n; ++i) out[i] = static_cast<Out>(list[i]);
    }
    *count = n;
    return out;
}

// A malloc array of n record pointers, to be filled by the caller.
template <typename Record>
inline Record** allocRecordArray(size_t n) {
    return static_cast<Record**>(std::malloc(n * sizeof(Record*)));
}

// A malloc array of records, one per non-null shared pointer of the list, in list
// order; make(element) builds a record from the (non-null) SharePtr. Null elements
// carry no result and are skipped. *count receives the number of records built.
template <typename Record, typename List, typename Make>
inline Record** buildRecords(const List& list, size_t* count, Make make) {
    const size_t n = countOf(list);
    Record** out = allocRecordArray<Record>(n);
    size_t built = 0;
    for (size_t i = 0; i < n; ++i) {
        if (list[i]) out[built++] = make(list[i]);
    }
    *count = built;
    return out;
}

// Releases each of the count records with release, then the array.
template <typename Record>
inline void freeRecords(Record** array, size_t count, void (*release)(Record*)) {
    for (size_t i = 0; i < count; ++i) release(array[i]);
    std::free(array);
}

// A malloc record passed through its generated init.
template <typename Record>
inline Record* newRecord(void (*init)(Record*)) {
    Record* record = static_cast<Record*>(std::malloc(sizeof(Record)));
    init(record);
    return record;
}

// Packs a filled message into a new malloc blob of exactly its packed size (at least
// one byte is allocated so that an empty message still gives a non-null blob).
inline void* packBlob(const ProtobufCMessage* message, unsigned long* size) {
    const size_t n = protobuf_c_message_get_packed_size(message);
    void* blob = std::malloc(n > 0 ? n : 1);
    protobuf_c_message_pack(message, static_cast<uint8_t*>(blob));
    *size = n;
    return blob;
}

}  // namespace records
}  // namespace VQFeature
