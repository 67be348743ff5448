#include "nodes/text_cues.h"

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "nodes/scene_evidence.h"

namespace kv {
namespace {

void writeLines(cv::Mat& image, int lines, const cv::Scalar& ink, int left = 30) {
    const char* words[] = {"Invoice number 2041 for the garden", "Please pay within thirty days", "Total amount due today is 18 euros",
                           "Thank you for your order and trust"};
    for (int i = 0; i < lines; ++i) {
        cv::putText(image, words[i % 4], cv::Point(left, 50 + 40 * i), cv::FONT_HERSHEY_SIMPLEX, 0.8, ink, 2, cv::LINE_AA);
    }
}

// A page of text is a document and text; a flat drawn window with a few lines is a
// screenshot; noise and a smooth photo never reach the engine and score nothing.
TEST(TextCues, PagesScreensAndPicturesWithoutText) {
    cv::Mat page(720, 540, CV_8UC3, cv::Scalar(245, 245, 245));
    writeLines(page, 16, cv::Scalar(20, 20, 20));
    cv::Mat noise(480, 640, CV_8UC3), smooth;
    cv::randu(noise, 0, 256);
    cv::GaussianBlur(noise, smooth, cv::Size(0, 0), 8);
    EXPECT_GE(textLikeMarks(page), 100);
    for (const cv::Mat& image : {smooth, cv::Mat(480, 640, CV_8UC3, cv::Scalar(30, 90, 200))}) {
        const TextScene t = measureText(image);
        EXPECT_FALSE(t.read);
        EXPECT_EQ(documentCue(t) + textCue(t) + screenshotCue(t), 0.0);
    }
    if (!textReaderAvailable()) GTEST_SKIP() << "built without Tesseract or its English data";
    const TextScene onPage = measureText(page);
    EXPECT_TRUE(onPage.read);
    EXPECT_GE(documentCue(onPage), 0.6);
    EXPECT_LE(documentCue(onPage), kMaxCue);
    EXPECT_GE(textCue(onPage), 0.6);

    // A window: a title bar, a side panel, buttons, a few lines of text on flat colours.
    cv::Mat screen(600, 800, CV_8UC3, cv::Scalar(255, 255, 255));
    screen(cv::Rect(0, 0, 800, 40)).setTo(cv::Scalar(90, 60, 40));
    screen(cv::Rect(0, 40, 200, 560)).setTo(cv::Scalar(235, 235, 235));
    for (int y = 120; y < 560; y += 60) cv::rectangle(screen, cv::Rect(20, y, 160, 36), cv::Scalar(200, 140, 60), cv::FILLED);
    cv::Mat body = screen(cv::Rect(220, 60, 560, 300));
    writeLines(body, 5, cv::Scalar(30, 30, 30), 10);
    const TextScene onScreen = measureText(screen);
    EXPECT_GE(screenshotCue(onScreen), 0.3);
    EXPECT_LT(screenshotCue(onPage), 0.2);  // a page has no bars or panels
    EXPECT_GE(textCue(onScreen), 0.5);
}

// Foliage read as many short confident "words" ("SS", "AN", "LAN") is no text and no page;
// the same count with words of four letters and more is.
TEST(TextCues, ShortWordsAloneAreNoText) {
    TextScene t;
    t.read = true;
    t.text = {true, 14, 30, 0, 9, 0.03};
    EXPECT_EQ(textCue(t), 0);
    EXPECT_EQ(documentCue(t), 0);
    t.text.longWords = 10;
    EXPECT_GT(textCue(t), 0.8);
    EXPECT_GT(documentCue(t), 0.1);
}

}  // namespace
}  // namespace kv

