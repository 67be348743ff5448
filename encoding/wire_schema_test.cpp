// Wire rules of the result schema, checked on hand-derived bytes.
#include <gtest/gtest.h>

#include <vector>

#include "testing/packed_message.h"
#include "vqfe_results.pb-c.h"

namespace {

using vqfe_testing::packed;

TEST(WireSchemaTest, RequiredZeroFieldsAndEmptyStringsAreWritten) {
    CFaceBuffer face = C__FACE_BUFFER__INIT;
    EXPECT_EQ(packed(face), (std::vector<uint8_t>{0x38, 0x00, 0x40, 0x00}));  // m_width, m_height

    CSceneRecogInfo info = C__SCENE_RECOG_INFO__INIT;
    char empty[] = "";
    info.name = empty;
    // prob (fixed32 0), satisfied (false), name (zero length)
    EXPECT_EQ(packed(info), (std::vector<uint8_t>{0x0d, 0, 0, 0, 0, 0x10, 0x00, 0x1a, 0x00}));
}

TEST(WireSchemaTest, RepeatedScalarsAreUnpackedButPackedInputIsAccepted) {
    int32_t values[] = {1, 2, 300};
    CIntArray array = C__INT_ARRAY__INIT;
    array.n_i = 3;
    array.i = values;
    EXPECT_EQ(packed(array), (std::vector<uint8_t>{0x08, 0x01, 0x08, 0x02, 0x08, 0xac, 0x02}));

    const uint8_t packedInput[] = {0x0a, 0x04, 0x01, 0x02, 0xac, 0x02};
    CIntArray* decoded = c__int_array__unpack(nullptr, sizeof packedInput, packedInput);
    ASSERT_NE(decoded, nullptr);
    ASSERT_EQ(decoded->n_i, 3u);
    EXPECT_EQ(decoded->i[2], 300);
    c__int_array__free_unpacked(decoded, nullptr);
}

}  // namespace
