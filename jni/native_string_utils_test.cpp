#include "jni/native_string_utils.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace VQFeature {
namespace {

class Recorder : public ByteArrayCallBack {
public:
    void onResult(char* data, unsigned long size) override {
        seen.assign(data, size);
        calls++;
        if (size > 0) data[0] = 'X';  // edits stay in the temporary block
    }
    std::string seen;
    int calls = 0;
};

TEST(NativeStringUtilsTest, HandsACopyOfTheBytesToTheCallback) {
    char source[] = "feature bytes";
    Recorder recorder;
    NativeStringUtils::getJavaDataFromByte(reinterpret_cast<int64_t>(source), 7, &recorder);
    EXPECT_EQ(recorder.seen, "feature");
    EXPECT_EQ(recorder.calls, 1);
    EXPECT_EQ(source[0], 'f');  // the callback edited a copy

    NativeStringUtils::getJavaDataFromByte(reinterpret_cast<int64_t>(source), 0, &recorder);
    EXPECT_EQ(recorder.seen, "");
    NativeStringUtils::getJavaDataFromByte(reinterpret_cast<int64_t>(source), -5, &recorder);
    EXPECT_EQ(recorder.seen, "");
    EXPECT_EQ(recorder.calls, 3);

    NativeStringUtils::getJavaDataFromByte(reinterpret_cast<int64_t>(source), 4, nullptr);  // skipped
    EXPECT_THROW(NativeStringUtils::getJavaDataFromByte(0, 4, &recorder), std::invalid_argument);
    EXPECT_THROW(NativeStringUtils::getJavaDataFromByte(0, 1, &recorder), std::invalid_argument);
    EXPECT_EQ(recorder.calls, 3);
}

TEST(NativeStringUtilsTest, FeatureDataOwnsItsText) {
    VantorFeatureData data;
    EXPECT_EQ(data.featureData, nullptr);
    EXPECT_EQ(data.featureLen, 0);
    data.featureData = new char[4]{'a', 'b', 'c', '\0'};  // released by the destructor (LSan checks)
    data.featureLen = 3;
}

}  // namespace
}  // namespace VQFeature
