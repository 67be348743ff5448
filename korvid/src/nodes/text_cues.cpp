#include "nodes/text_cues.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "nodes/cue_math.h"
#include "nodes/image_stats.h"
#include "nodes/scene_evidence.h"

namespace kv {

namespace {

// The pre-test's copy: the text of a screenshot (11 to 13 pixels high at 1300 wide) keeps 4
// pixels or more.
constexpr int kMarkSide = 768;

// Marks of ink (255 in the mask) of a letter's size that stand in a line: four of a similar
// height on the same baseline within three heights (the inner letters of a word; grain,
// fur, foliage and gravel make marks too, rarely so many in a row). Sorted by baseline, a
// mark's line neighbours are within a few places of it.
int marksInLines(const cv::Mat& ink) {
    cv::Mat labels, stats, centroids;
    const int n = cv::connectedComponentsWithStats(ink, labels, stats, centroids, 8, CV_32S);
    std::vector<cv::Rect> marks;
    for (int i = 1; i < n && marks.size() < 4000; ++i) {
        const cv::Rect r(stats.at<int>(i, cv::CC_STAT_LEFT), stats.at<int>(i, cv::CC_STAT_TOP), stats.at<int>(i, cv::CC_STAT_WIDTH),
                         stats.at<int>(i, cv::CC_STAT_HEIGHT));
        const int area = stats.at<int>(i, cv::CC_STAT_AREA);
        if (r.height >= 4 && r.height <= 40 && r.width <= 40 && area >= 6 && area <= 0.7 * r.area() + 1) marks.push_back(r);
    }
    std::sort(marks.begin(), marks.end(), [](const cv::Rect& a, const cv::Rect& b) { return a.y + a.height < b.y + b.height; });
    int inLines = 0;
    for (size_t i = 0; i < marks.size(); ++i) {
        const cv::Rect& a = marks[i];
        const int base = a.y + a.height, reach = a.height / 4;
        int neighbours = 0;
        size_t from = i;
        while (from > 0 && base - (marks[from - 1].y + marks[from - 1].height) <= reach) --from;
        for (size_t j = from; j < marks.size() && (marks[j].y + marks[j].height) - base <= reach; ++j) {
            const cv::Rect& b = marks[j];
            if (j == i || b.height * 10 < a.height * 7 || b.height * 7 > a.height * 10) continue;
            neighbours += std::abs((a.x + a.width / 2) - (b.x + b.width / 2)) <= 3 * a.height;
        }
        inLines += neighbours >= 4;
    }
    return inLines;
}

cv::Mat greyCopy(const cv::Mat& bgr, int side) {
    cv::Mat grey;
    const cv::Mat small = shrinkToFit(bgr, side);
    if (small.channels() == 1) grey = small;
    else cv::cvtColor(small, grey, small.channels() == 4 ? cv::COLOR_BGRA2GRAY : cv::COLOR_BGR2GRAY);
    return grey;
}

// Exactly uniform 3 x 3 patches (every channel): drawn colour, which a camera's noise and
// compression never leave.
double flatShare(const cv::Mat& bgr) {
    cv::Mat lo, hi;
    const cv::Mat kernel = cv::getStructuringElement(cv::MORPH_RECT, cv::Size(3, 3));
    cv::erode(bgr, lo, kernel);
    cv::dilate(bgr, hi, kernel);
    cv::Mat diff = hi - lo, spread;
    if (diff.channels() > 1) {
        std::vector<cv::Mat> ch;
        cv::split(diff, ch);
        spread = ch[0];
        for (size_t c = 1; c < ch.size(); ++c) spread = cv::max(spread, ch[c]);
    } else {
        spread = diff;
    }
    return cv::countNonZero(spread == 0) / double(std::max<size_t>(1, spread.total()));
}

// Edges on horizontal or vertical runs of at least 40 pixels (the borders of a window, a
// button, a bar), as a share of all edges.
double straightEdgeShare(const cv::Mat& grey) {
    cv::Mat edges;
    cv::Canny(grey, edges, 50, 150);
    const int all = cv::countNonZero(edges);
    if (all == 0) return 0;
    cv::Mat across, down;
    cv::morphologyEx(edges, across, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(40, 1)));
    cv::morphologyEx(edges, down, cv::MORPH_OPEN, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(1, 40)));
    return cv::countNonZero(across | down) / double(all);
}

}  // namespace

int textLikeMarks(const cv::Mat& bgr) {
    const cv::Mat grey = greyCopy(bgr, kMarkSide);
    if (grey.rows < 16 || grey.cols < 16) return 0;
    cv::Mat dark, light;
    cv::adaptiveThreshold(grey, dark, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY_INV, 15, 12);
    cv::adaptiveThreshold(grey, light, 255, cv::ADAPTIVE_THRESH_MEAN_C, cv::THRESH_BINARY, 15, -12);
    return marksInLines(dark) + marksInLines(light);
}

TextScene measureText(const cv::Mat& bgr) {
    TextScene t;
    if (bgr.empty() || textLikeMarks(bgr) < kMinTextMarks) return t;
    t.read = true;
    t.text = readText(greyCopy(bgr, 1600));
    if (t.text.words == 0) return t;
    const cv::Mat small = shrinkToFit(bgr, 512);
    t.flatShare = flatShare(small);
    t.straightEdges = straightEdgeShare(greyCopy(small, 512));
    return t;
}

TextScene sharedText(const cv::Mat& bgr, ExecuteMemo* memo) {
    if (memo == nullptr) return measureText(bgr);
    return memo->get<TextScene>("text:" + imageIdentity(bgr), [&] { return measureText(bgr); });
}

// Calibration (docs/quality.md, "Text"): a scanned page reads 200+ words over 40 % of the
// image, a sign 2 to 6 words, photos without text 0 to 2. Text has words of four letters or
// more (a page 15, screenshots 14 to 57); a moss close-up read as 14 words, none that long.
double documentCue(const TextScene& t) {
    const TextEvidence& e = t.text;
    return kMaxCue * rise(e.words, 6, 30) * rise(e.lines, 2, 5) * rise(e.coverage, 0.01, 0.05) * rise(e.longWords, 2, 8);
}

double textCue(const TextScene& t) {
    const TextEvidence& e = t.text;
    return kMaxCue * rise(e.words, 1, 6) * rise(e.characters, 6, 20) * rise(e.longWords, 0, 3);
}

double screenshotCue(const TextScene& t) {
    return 0.6 * rise(t.text.words, 3, 12) * rise(t.flatShare, 0.3, 0.6) * rise(t.straightEdges, 0.1, 0.3);
}

}  // namespace kv
