#include "extractor/blob_blocks.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "extractor/multi_result.h"
#include "extractor/result.h"

namespace VQFeature {
namespace {

using Vantor::AlgorithmType;

void* faceBlob(int32_t width, int* length) {
    CFaceBuffer face = C__FACE_BUFFER__INIT;
    face.m_width = width;
    *length = static_cast<int>(protobuf_c_message_get_packed_size(&face.base));
    void* blob = std::malloc(*length);
    protobuf_c_message_pack(&face.base, static_cast<uint8_t*>(blob));
    return blob;
}

// Run under AddressSanitizer, a read past a block or a second free fails these tests.
TEST(BlobBlocksTest, ReadersStopAtTheBlockEndWhateverTheLengthSays) {
    int length = 0;
    void* blob = faceBlob(640, &length);
    Result result("a", "k", AlgorithmType::Face, blob, length);
    EXPECT_EQ(blobs::readable(blob, 1000), static_cast<unsigned long>(length));
    EXPECT_EQ(blobs::readable(blob, 1), 1UL);
    int unknown = 0;
    EXPECT_EQ(blobs::readable(&unknown, 1000), 1000UL);  // a block the table never saw

    result.resultLength = 1UL << 40;  // a public field, set wrong by its user
    std::string copy(4096, '\x7f');
    result.memcpyStructResult(copy.data(), copy.size());
    EXPECT_EQ(copy[length], '\x7f');
    CFaceBuffer* face = result.faceBuffer();
    ASSERT_NE(face, nullptr);
    EXPECT_EQ(face->m_width, 640);

    int itemLength = 0;
    MultiResult::ResultItem item(AlgorithmType::Face, faceBlob(320, &itemLength), 0);
    item.size = 1UL << 40;
    std::string itemCopy(64, '\0');
    item.memcpyStructResult(itemCopy.data(), itemCopy.size());
    EXPECT_EQ(itemCopy.find_first_not_of('\0', itemLength), std::string::npos);
}

TEST(BlobBlocksTest, ABlockHeldByTwoRecordsIsFreedOnceByTheLastHolder) {
    int length = 0;
    void* blob = faceBlob(64, &length);
    auto item = std::make_shared<MultiResult::ResultItem>(AlgorithmType::Face, blob, length);
    {
        // The engine's hand-over: a Result offered to the caches holds the item's block.
        Result offered("a", "k", AlgorithmType::Face, blob, length);
        offered.freeResult();  // what a cache may do with it
        EXPECT_TRUE(blobs::isHeld(blob));
    }
    std::string bytes(length, '\0');
    item->memcpyStructResult(bytes.data(), bytes.size());
    EXPECT_EQ(std::memcmp(bytes.data(), blob, length), 0);
    item.reset();
    EXPECT_FALSE(blobs::isHeld(blob));

    // resetData hands the block to whoever took the pointer: it leaves the table unfreed.
    void* handed = faceBlob(32, &length);
    {
        Result result("a", "k", AlgorithmType::Face, handed, length);
        result.resetData();
    }
    EXPECT_FALSE(blobs::isHeld(handed));
    std::free(handed);
}

TEST(BlobBlocksTest, APointerTakenFromAnotherThreadIsHeldOrRefusedNeverFreedTwice) {
    int unknown = 0;
    EXPECT_FALSE(blobs::holdIfLive(&unknown));
    EXPECT_FALSE(blobs::holdIfLive(nullptr));

    // One thread's record frees its blocks while another takes their pointers: each take
    // either holds a live block (which outlives the owner's release) or is refused.
    // Under AddressSanitizer, a take of a block freed in between fails this test.
    std::atomic<void*> published{nullptr};
    std::atomic<bool> done{false};
    std::thread owner([&] {
        for (int i = 0; i < 20000; ++i) {
            int length = 0;
            void* blob = faceBlob(i + 1, &length);  // never an empty block: the taker reads a byte
            blobs::hold(blob, length);
            published.store(blob);
            blobs::release(blob);
        }
        done.store(true);
    });
    while (!done.load()) {
        void* blob = published.load();
        if (blob == nullptr || !blobs::holdIfLive(blob)) continue;
        volatile char first = *static_cast<char*>(blob);
        (void)first;
        blobs::release(blob);
    }
    owner.join();
}

}  // namespace
}  // namespace VQFeature
