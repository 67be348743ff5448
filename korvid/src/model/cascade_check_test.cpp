// The cascade check: Debian's cat-face cascade and the one-stage LBP cascade come out as
// text OpenCV reads to the same classifier; broken structure and numbers are refused.
#include "model/cascade_check.h"
#include "model/error.h"
#include "testing/file_bytes.h"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>
#include <opencv2/objdetect.hpp>

namespace kv {
namespace {

// The rewritten text, or empty and why in fault.
std::string checked(const std::string& text, std::string& fault) {
    try {
        return checkedCascadeText(reinterpret_cast<const uint8_t*>(text.data()), text.size());
    } catch (const Error& e) {
        fault = e.what();
        return {};
    }
}

std::string replaced(std::string s, const std::string& from, const std::string& to) {
    const size_t at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

TEST(CascadeCheck, RealCascadesReadTheSameAfterRewriting) {
    for (const char* path : {"/usr/share/opencv4/haarcascades/haarcascade_frontalcatface.xml", KORVID_TINY_CASCADE}) {
        std::string fault;
        const std::string text = checked(vqfe_testing::fileBytes(path), fault);
        ASSERT_FALSE(text.empty()) << path << ": " << fault;
        cv::FileStorage fs(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
        cv::CascadeClassifier rewritten, original(path);
        ASSERT_TRUE(rewritten.read(fs.getFirstTopLevelNode()));
        EXPECT_EQ(rewritten.getOriginalWindowSize(), original.getOriginalWindowSize());
        EXPECT_EQ(rewritten.getFeatureType(), original.getFeatureType());
    }
}

TEST(CascadeCheck, RefusesBrokenStructureAndNumbers) {
    const std::string tiny = vqfe_testing::fileBytes(KORVID_TINY_CASCADE);
    const std::string refused[] = {
        tiny.substr(0, tiny.size() / 2),                                      // cut short
        replaced(tiny, "</stages>", "</stage>"),                              // mismatched close
        replaced(tiny, "<height>24", "<height>0x18"),                         // not a decimal number
        replaced(tiny, "<stageNum>1", "<stageNum>2"),                         // counts disagree
        replaced(tiny, "0 -1 0 -1", "0 -1 7 -1"),                             // feature index past the features
        replaced(tiny, "0 -1 0 -1", "0 -9 0 -1"),                             // leaf past the leaves
        replaced(tiny, "-1. 1.</leafValues>", "-1.</leafValues>"),            // one leaf for a stump
        replaced(tiny, "0 0 8 8", "0 0 9 8"),                                 // an LBP block outside the window
        replaced(tiny, "<maxCatCount>256", "<maxCatCount>32"),                // subsets too short for LBP codes
        replaced(tiny, "<stageType>BOOST", "<stageType>BOOST<x/>"),           // mixed content
        replaced(tiny, "<stageThreshold>0.", "<stageThreshold>1e999"),        // out of range
        std::string("<opencv_storage/>"),
    };
    for (const std::string& text : refused) {
        std::string fault;
        EXPECT_EQ(checked(text, fault), "") << text.size();
        EXPECT_NE(fault, "");
    }
}

}  // namespace
}  // namespace kv
