#include "dnn/text_reader.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include <opencv2/imgproc.hpp>

#ifdef KORVID_HAVE_TESSERACT
#include <leptonica/allheaders.h>
#include <tesseract/baseapi.h>
#include <tesseract/ocrclass.h>
#include <tesseract/resultiterator.h>
#endif

#ifdef KORVID_HAVE_TESSERACT
extern "C" {
__attribute__((weak)) void omp_set_max_active_levels(int);
__attribute__((weak)) int omp_get_max_active_levels(void);
}
#endif

namespace kv {

namespace {

constexpr int kMinSide = 8, kMaxAspect = 20, kShortestLongSide = 1000, kLongestLongSide = 1600, kMargin = 16;

// The copy Tesseract reads: scaled (at most doubled) towards a longer side of 1000 to 1600
// pixels, framed by a margin of replicated border (text touching the edge is read better);
// empty when the image is not to be read.
[[maybe_unused]] cv::Mat prepared(const cv::Mat& grey) {
    if (grey.empty() || grey.type() != CV_8UC1) return {};
    const int shortSide = std::min(grey.cols, grey.rows), longSide = std::max(grey.cols, grey.rows);
    if (shortSide < kMinSide || longSide > kMaxAspect * shortSide) return {};
    double scale = 1.0;
    if (longSide > kLongestLongSide) scale = double(kLongestLongSide) / longSide;
    else if (longSide < kShortestLongSide) scale = std::min(2.0, double(kShortestLongSide) / longSide);
    cv::Mat scaled = grey;
    if (scale != 1.0) {
        cv::resize(grey, scaled, cv::Size(), scale, scale, scale < 1 ? cv::INTER_AREA : cv::INTER_CUBIC);
        if (scaled.cols < kMinSide || scaled.rows < kMinSide) return {};
    }
    cv::Mat framed;
    cv::copyMakeBorder(scaled, framed, kMargin, kMargin, kMargin, kMargin, cv::BORDER_REPLICATE);
    return framed;
}

#ifdef KORVID_HAVE_TESSERACT

bool fileExists(const std::string& path) { return std::ifstream(path).good(); }

// The tessdata folder holding eng.traineddata: TESSDATA_PREFIX (the folder itself or its
// parent), then Debian's; empty when none has it.
std::string tessdataFolder() {
    std::vector<std::string> candidates;
    if (const char* prefix = std::getenv("TESSDATA_PREFIX"); prefix != nullptr && *prefix != '\0') {
        candidates.push_back(prefix);
        candidates.push_back(std::string(prefix) + "/tessdata");
    }
    candidates.push_back("/usr/share/tesseract-ocr/5/tessdata");
    for (const std::string& folder : candidates) {
        if (fileExists(folder + "/eng.traineddata")) return folder;
    }
    return {};
}

// Debian's Tesseract runs parts of its network on 4 OpenMP threads, whose waiting spins
// cost three times the work on a busy machine. Its parallel loops name their thread count
// (num_threads), which overrides omp_set_num_threads; only no active level (max-active-levels
// 0) keeps them on the calling thread. Weak: resolved from the libgomp that libtesseract
// loads, absent (and skipped) without one.
//
// Where the setting lives: OpenMP 5.1 made max-active-levels per data environment, so it is
// the calling thread's own; libgomp 12 (Debian 12) and LLVM's libomp keep it per thread (a
// thread beside the reader keeps its value, text_reader_test). Under OpenMP 5.0 and earlier
// it was one value per device: then the reads' save, set and restore still never interleave,
// as they happen under the engine's lock, and only OpenMP regions started elsewhere during a
// read would run on one thread. The destructor puts back what was there on every way out of
// Recognize: a return (also at the deadline) or an exception.
class OneOpenMpThread {
public:
    OneOpenMpThread() {
        if (omp_get_max_active_levels != nullptr && omp_set_max_active_levels != nullptr) {
            saved_ = omp_get_max_active_levels();
            omp_set_max_active_levels(0);
        }
    }
    ~OneOpenMpThread() {
        if (saved_ >= 0) omp_set_max_active_levels(saved_);
    }
    OneOpenMpThread(const OneOpenMpThread&) = delete;
    OneOpenMpThread& operator=(const OneOpenMpThread&) = delete;

private:
    int saved_ = -1;
};

// The process's engine, loaded once; every use holds the lock.
class Engine {
public:
    static Engine& instance() {
        static Engine engine;
        return engine;
    }

    bool available() {
        std::lock_guard<std::mutex> lock(mutex_);
        return load();
    }

    TextEvidence read(const cv::Mat& image) {
        TextEvidence e;
        std::lock_guard<std::mutex> lock(mutex_);
        if (!load()) return e;
        api_->SetImage(image.data, image.cols, image.rows, 1, static_cast<int>(image.step[0]));
        api_->SetSourceResolution(300);  // scaled to a page's size: no resolution guess (and its warning)
        tesseract::ETEXT_DESC monitor;
        monitor.set_deadline_msecs(kReadDeadlineMs);
        {
            const OneOpenMpThread oneThread;
            // A recognition stopped by the deadline still leaves the words read until then.
            api_->Recognize(&monitor);
        }
        collect(image, e);
        e.measured = true;
        api_->Clear();
        return e;
    }

private:
    // Loaded once. The engine is made after Init has made Tesseract's process-wide dictionary
    // cache, so it is destroyed first at exit: the other way round the cache would find the
    // dictionaries still lent and keep them (leaked).
    bool load() {
        static const std::unique_ptr<tesseract::TessBaseAPI> engine = initialised();
        api_ = engine.get();
        return api_ != nullptr;
    }

    static std::unique_ptr<tesseract::TessBaseAPI> initialised() {
        const std::string folder = tessdataFolder();
        if (folder.empty()) return nullptr;
        auto api = std::make_unique<tesseract::TessBaseAPI>();
        if (api->Init(folder.c_str(), "eng", tesseract::OEM_LSTM_ONLY) != 0) return nullptr;
        api->SetVariable("debug_file", "/dev/null");
        setMsgSeverity(L_SEVERITY_NONE);  // Leptonica's messages about odd boxes go to stderr otherwise
        // Text anywhere, in any layout (a page, a sign, a screen): the automatic page layout
        // takes a photographed page with a shaded edge for a picture and reads nothing.
        api->SetPageSegMode(tesseract::PSM_SPARSE_TEXT);
        return api;
    }

    void collect(const cv::Mat& image, TextEvidence& e) {
        std::unique_ptr<tesseract::ResultIterator> it(api_->GetIterator());
        if (!it) return;
        cv::Mat covered = cv::Mat::zeros(image.size(), CV_8U);
        bool lineCounted = false;
        do {
            if (it->IsAtBeginningOf(tesseract::RIL_TEXTLINE)) lineCounted = false;
            if (it->Confidence(tesseract::RIL_WORD) < kWordConfidence) continue;
            std::unique_ptr<char[]> text(it->GetUTF8Text(tesseract::RIL_WORD));
            if (!text) continue;
            int alnum = 0;
            for (const char* c = text.get(); *c != '\0'; ++c) alnum += std::isalnum(static_cast<unsigned char>(*c)) != 0;
            if (alnum < 2) continue;  // a lone mark or a stroke is no word
            int left, top, right, bottom;
            if (!it->BoundingBox(tesseract::RIL_WORD, &left, &top, &right, &bottom)) continue;
            ++e.words;
            e.longWords += alnum >= 4;
            e.characters += alnum;
            if (!lineCounted) ++e.lines;
            lineCounted = true;
            covered(cv::Rect(cv::Point(left, top), cv::Point(right, bottom)) & cv::Rect(0, 0, image.cols, image.rows)) = 255;
        } while (it->Next(tesseract::RIL_WORD));
        // The margin belongs to no image: the share is of the framed copy less the margin.
        const double inner = double(image.cols - 2 * kMargin) * (image.rows - 2 * kMargin);
        e.coverage = std::min(1.0, cv::countNonZero(covered) / std::max(1.0, inner));
    }

    std::mutex mutex_;
    tesseract::TessBaseAPI* api_ = nullptr;
};

#endif

}  // namespace

TextEvidence readText(const cv::Mat& grey) {
#ifdef KORVID_HAVE_TESSERACT
    const cv::Mat image = prepared(grey);
    if (image.empty()) return {};
    return Engine::instance().read(image);
#else
    (void)grey;
    return {};
#endif
}

bool textReaderAvailable() {
#ifdef KORVID_HAVE_TESSERACT
    return Engine::instance().available();
#else
    return false;
#endif
}

}  // namespace kv
