// Why a copy of OpenCV's GrabCut and not a call to cv::grabCut (docs/performance.md,
// "GrabCut: cv::grabCut on a crop"): cv::grabCut builds its graph over every pixel, 13 to
// 18 % slower on the matting seeds; on a crop of the undecided band it learns its colour
// models and its edge scale (beta, from the mean colour difference of the crop, 0.12 to 0.87
// of the image's) from the crop alone, and most masks collapse (mean IoU 0.24 to 0.45 with
// these, padded with fixed pixels or not; exact models with a crop's beta 0.68, and slower).
#include "nodes/grab_cut.h"

#include "nodes/colour_clusters.h"
#include "nodes/cut_graph.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace kv {

namespace {

constexpr int kComponents = 5;
constexpr double kGamma = 50;              // neighbour weight scale
constexpr double kSingularFix = 0.01;      // added to a learnt covariance's diagonal when singular
const double kLogSmallest = std::log(std::numeric_limits<double>::denorm_min());  // densities below are 0

// A pixel's colour term, -log p. Where p underflows to 0 it is finite all the same, so that
// the next cut can take it back (infinity minus infinity has no value): any term over the
// largest finite one (745) and the pixel's edges (at most 8 x 50 and 341 folded) decides the
// pixel's side as infinity does.
constexpr double kCertainTerm = 1e6;
double colourTerm(double p) { return std::min(-std::log(p), kCertainTerm); }

bool isBackground(uchar m) { return m == cv::GC_BGD || m == cv::GC_PR_BGD; }
bool isFree(uchar m) { return m == cv::GC_PR_BGD || m == cv::GC_PR_FGD; }

// A Gaussian mixture over BGR, learnt as OpenCV's GrabCut learns it, operation for operation (the
// 3 x 3 inverse and determinant of cv::Matx are OpenCV's GrabCut expressions term for term),
// so that the models and the cut are the same.
class Mixture {
public:
    // The squared Mahalanobis distance of a colour to component c.
    double distance(int c, const cv::Vec3d& colour) const {
        const cv::Vec3d d = colour - means_[c];
        const cv::Matx33d& v = inverses_[c];
        return d[0] * (d[0] * v(0, 0) + d[1] * v(1, 0) + d[2] * v(2, 0)) + d[1] * (d[0] * v(0, 1) + d[1] * v(1, 1) + d[2] * v(2, 1)) +
               d[2] * (d[0] * v(0, 2) + d[1] * v(1, 2) + d[2] * v(2, 2));
    }

    double component(int c, const cv::Vec3d& colour) const {
        if (weights_[c] <= 0) return 0;
        return scales_[c] * std::exp(-0.5f * distance(c, colour));
    }

    double operator()(const cv::Vec3d& colour) const {
        double p = 0;
        for (int c = 0; c < kComponents; ++c) p += weights_[c] * component(c, colour);
        return p;
    }

    // The component of the highest density, compared by its logarithm: no exponential per
    // pixel. Where every density underflows to 0 the first component, as when compared as
    // densities.
    int likeliest(const cv::Vec3d& colour) const {
        int best = 0;
        double most = kLogSmallest;
        for (int c = 0; c < kComponents; ++c) {
            if (weights_[c] <= 0) continue;
            const double logP = logScales_[c] - 0.5 * distance(c, colour);
            if (logP > most) best = c, most = logP;
        }
        return best;
    }

    void startLearning() {
        for (int c = 0; c < kComponents; ++c) sums_[c] = {}, counts_[c] = 0;
        total_ = 0;
    }

    // `count` pixels of this colour into component c. The sums are of 8-bit values, kept as
    // integers: exact, as the sums in double they stand for are (all below 2^53), so a colour
    // added once with its count sums as its pixels one by one do, in any order.
    void add(int c, const cv::Vec3b& colour, int count = 1) {
        Sums& s = sums_[c];
        const std::int64_t b = colour[0], g = colour[1], r = colour[2];
        s.channel[0] += count * b;
        s.channel[1] += count * g;
        s.channel[2] += count * r;
        s.product[0] += count * (b * b);
        s.product[1] += count * (b * g);
        s.product[2] += count * (b * r);
        s.product[3] += count * (g * g);
        s.product[4] += count * (g * r);
        s.product[5] += count * (r * r);
        counts_[c] += count;
        total_ += count;
    }

    void endLearning() {
        for (int c = 0; c < kComponents; ++c) {
            const int n = counts_[c];
            weights_[c] = n == 0 ? 0 : double(n) / total_;
            if (n == 0) continue;
            const double inverseN = 1.0 / n;
            const Sums& s = sums_[c];
            const cv::Vec3d sum(double(s.channel[0]), double(s.channel[1]), double(s.channel[2]));
            const double bb = double(s.product[0]), bg = double(s.product[1]), br = double(s.product[2]);
            const double gg = double(s.product[3]), gr = double(s.product[4]), rr = double(s.product[5]);
            const cv::Matx33d products(bb, bg, br, bg, gg, gr, br, gr, rr);
            means_[c] = sum * inverseN;
            covariances_[c] = products * inverseN - means_[c] * means_[c].t();
            invert(c, kSingularFix);
        }
    }

private:
    void invert(int c, double singularFix) {
        cv::Matx33d& v = covariances_[c];
        double d = cv::determinant(v);
        if (d <= 1e-6 && singularFix > 0) {
            for (int a = 0; a < 3; ++a) v(a, a) += singularFix;
            d = cv::determinant(v);
        }
        CV_Assert(d > std::numeric_limits<double>::epsilon());
        scales_[c] = 1.0f / std::sqrt(d);
        logScales_[c] = std::log(scales_[c]);
        inverses_[c] = v.inv();
    }

    // A component's sums of colours and of their products (bb, bg, br, gg, gr, rr).
    struct Sums {
        std::int64_t channel[3] = {};
        std::int64_t product[6] = {};
    };

    double weights_[kComponents] = {};
    cv::Vec3d means_[kComponents];
    Sums sums_[kComponents];
    cv::Matx33d covariances_[kComponents], inverses_[kComponents];
    double scales_[kComponents] = {}, logScales_[kComponents] = {};  // 1 / sqrt(determinant)
    int counts_[kComponents] = {};
    int total_ = 0;
};

// The four neighbours before a pixel (left, up-left, up, up-right), as row and column steps.
constexpr int kStepY[4] = {0, -1, -1, -1};
constexpr int kStepX[4] = {-1, -1, 0, 1};

// The edges to those neighbours: gamma e^(-beta |colour difference|^2), divided by sqrt 2 on
// the diagonals; beta from the mean squared difference of the image. Only the edges at a free
// pixel are weighed (the exponential is the cost), each once, when the graph is built.
class NeighbourWeights {
public:
    explicit NeighbourWeights(const cv::Mat& image) : squares_(image.size(), CV_32SC4, cv::Scalar::all(0)) {
        // Integer squares and sum: exact, as the sum in double they stand for is (below 2^53).
        std::int64_t sum = 0;
        for (int y = 0; y < image.rows; ++y) {
            const cv::Vec3b* row = image.ptr<cv::Vec3b>(y);
            const cv::Vec3b* above = y > 0 ? image.ptr<cv::Vec3b>(y - 1) : nullptr;
            cv::Vec4i* out = squares_.ptr<cv::Vec4i>(y);
            for (int x = 0; x < image.cols; ++x) {
                for (int k = 0; k < 4; ++k) {
                    const int xx = x + kStepX[k];
                    if ((kStepY[k] < 0 && !above) || xx < 0 || xx >= image.cols) continue;
                    const cv::Vec3b& other = kStepY[k] < 0 ? above[xx] : row[xx];
                    const int d0 = row[x][0] - other[0], d1 = row[x][1] - other[1], d2 = row[x][2] - other[2];
                    sum += out[x][k] = d0 * d0 + d1 * d1 + d2 * d2;
                }
            }
        }
        const double total = double(sum);
        if (total <= std::numeric_limits<double>::epsilon()) {
            beta_ = 0;
        } else {
            beta_ = 1.f / (2 * total / (4 * image.cols * image.rows - 3 * image.cols - 3 * image.rows + 2));
        }
    }

    // The weight of the edge from (x, y) to its neighbour k (inside the image).
    double operator()(int y, int x, int k) { return kScale[k] * decay(squares_.at<cv::Vec4i>(y, x)[k]); }

private:
    // e^(-beta square); those of small squares (most neighbours differ little) kept as found.
    double decay(int square) {
        if (square >= kKept) return std::exp(-beta_ * double(square));
        double& kept = decays_[size_t(square)];
        if (kept < 0) kept = std::exp(-beta_ * double(square));
        return kept;
    }

    static constexpr int kKept = 4096;
    const double kScale[4] = {kGamma, kGamma / std::sqrt(2.0f), kGamma, kGamma / std::sqrt(2.0f)};
    cv::Mat squares_;  // the squared colour differences, per neighbour
    double beta_ = 0;
    std::vector<double> decays_ = std::vector<double>(kKept, -1.0);  // -1: not yet found
};

// The first models: each side's colours in k-means clusters, learnt as components (OpenCV's
// GrabCut initialisation: 10 rounds from k-means++ centres).
void initialise(const cv::Mat& image, const cv::Mat& seed, Mixture& background, Mixture& foreground) {
    std::vector<cv::Vec3f> samples[2];
    for (int y = 0; y < image.rows; ++y) {
        const cv::Vec3b* colour = image.ptr<cv::Vec3b>(y);
        const uchar* s = seed.ptr<uchar>(y);
        for (int x = 0; x < image.cols; ++x) samples[isBackground(s[x]) ? 0 : 1].push_back(cv::Vec3f(colour[x]));
    }
    Mixture* sides[2] = {&background, &foreground};
    for (int side = 0; side < 2; ++side) {
        const std::vector<cv::Vec3f>& colours = samples[side];
        const std::vector<int> labels = colourClusters(colours, std::min(kComponents, int(colours.size())), 10);
        sides[side]->startLearning();
        for (size_t i = 0; i < colours.size(); ++i) sides[side]->add(labels[i], cv::Vec3b(colours[i]));
        sides[side]->endLearning();
    }
}

// The image's distinct colours, and each pixel's (row after row) as an index into them: the
// colour models depend on a pixel's colour alone, so they are evaluated once per colour (a
// photo of 256 pixels a side has about half as many colours as pixels; a drawing a few).
struct Palette {
    explicit Palette(const cv::Mat& image) : index(image.total()) {
        // Open addressing over the 24-bit colours plus 1 (0: an empty slot); at most half full.
        int bits = 1;
        while ((size_t(1) << bits) < 2 * image.total()) ++bits;
        std::vector<std::uint32_t> keys(size_t(1) << bits, 0);
        std::vector<int> slots(keys.size());
        const std::uint32_t mask = std::uint32_t(keys.size() - 1);
        size_t p = 0;
        for (int y = 0; y < image.rows; ++y) {
            const cv::Vec3b* row = image.ptr<cv::Vec3b>(y);
            for (int x = 0; x < image.cols; ++x, ++p) {
                const std::uint32_t key = (std::uint32_t(row[x][0]) << 16 | std::uint32_t(row[x][1]) << 8 | row[x][2]) + 1;
                std::uint32_t at = (key * 2654435761u) >> (32 - bits);
                while (keys[at] != 0 && keys[at] != key) at = (at + 1) & mask;
                if (keys[at] == 0) {
                    keys[at] = key;
                    slots[at] = int(colours.size());
                    colours.push_back(row[x]);
                }
                index[p] = slots[at];
            }
        }
    }

    std::vector<cv::Vec3b> colours;
    std::vector<int> index;
};

// Each pixel's likeliest component of its side's mixture, then both mixtures learnt anew
// (the components are assigned with the models of before: they change only at the end). The
// pixels are counted per colour and side, and each colour added once with its count.
void learn(const Palette& palette, const cv::Mat& seed, Mixture& background, Mixture& foreground) {
    std::vector<int> counts(2 * palette.colours.size(), 0);  // background, foreground per colour
    size_t p = 0;
    for (int y = 0; y < seed.rows; ++y) {
        const uchar* s = seed.ptr<uchar>(y);
        for (int x = 0; x < seed.cols; ++x, ++p) ++counts[2 * size_t(palette.index[p]) + (isBackground(s[x]) ? 0 : 1)];
    }
    background.startLearning();
    foreground.startLearning();
    for (size_t c = 0; c < palette.colours.size(); ++c) {
        const cv::Vec3b& colour = palette.colours[c];
        for (int side = 0; side < 2; ++side) {
            const int n = counts[2 * c + size_t(side)];
            if (n == 0) continue;
            Mixture& model = side == 0 ? background : foreground;
            model.add(model.likeliest(cv::Vec3d(colour)), colour, n);
        }
    }
    background.endLearning();
    foreground.endLearning();
}

// The graph over the free pixels, built once: its neighbour edges and the edges to fixed
// neighbours (folded into the terminal weights) depend on the image and the seed alone.
class FreeGraph {
public:
    FreeGraph(const cv::Mat& seed, NeighbourWeights& weights, const Palette& palette)
        : index_(seed.size(), CV_32S), graph_(countFree(seed), 8 * countFree(seed)) {
        std::vector<char> seen(palette.colours.size(), 0);
        for (int y = 0; y < seed.rows; ++y) {
            const uchar* s = seed.ptr<uchar>(y);
            int* index = index_.ptr<int>(y);
            for (int x = 0; x < seed.cols; ++x) {
                index[x] = isFree(s[x]) ? int(pixels_.size()) : -1;
                if (index[x] < 0) continue;
                pixels_.emplace_back(x, y);
                const int colour = palette.index[size_t(y) * size_t(seed.cols) + size_t(x)];
                colourOf_.push_back(colour);
                if (!seen[size_t(colour)]) seen[size_t(colour)] = 1, colours_.push_back(colour);
            }
        }
        fromSource_.assign(pixels_.size(), 0);
        toSink_.assign(pixels_.size(), 0);
        for (int y = 0; y < seed.rows; ++y) {
            for (int x = 0; x < seed.cols; ++x) {
                const int i = index_.at<int>(y, x);
                for (int k = 0; k < 4; ++k) {
                    const int yy = y + kStepY[k], xx = x + kStepX[k];
                    if (yy < 0 || xx < 0 || xx >= seed.cols) continue;
                    const int j = index_.at<int>(yy, xx);
                    if (i >= 0 && j >= 0) {
                        const double w = weights(y, x, k);
                        graph_.addEdges(i, j, w, w);
                    } else if (i >= 0 || j >= 0) {
                        const int free = i >= 0 ? i : j;
                        const uchar fixed = i >= 0 ? seed.at<uchar>(yy, xx) : seed.at<uchar>(y, x);
                        (fixed == cv::GC_BGD ? toSink_ : fromSource_)[size_t(free)] += weights(y, x, k);
                    }
                }
            }
        }
        backgroundTerm_.resize(palette.colours.size());
        foregroundTerm_.resize(palette.colours.size());
    }

    bool empty() const { return pixels_.empty(); }

    // One cut with these colour models; the free pixels become GC_PR_FGD or GC_PR_BGD.
    void cut(const Palette& palette, cv::Mat& seed, const Mixture& background, const Mixture& foreground) {
        for (const int c : colours_) {
            const cv::Vec3d colour = palette.colours[size_t(c)];
            backgroundTerm_[size_t(c)] = colourTerm(background(colour));
            foregroundTerm_[size_t(c)] = colourTerm(foreground(colour));
        }
        for (size_t i = 0; i < pixels_.size(); ++i) {
            const size_t c = size_t(colourOf_[i]);
            graph_.setTerminals(int(i), backgroundTerm_[c] + fromSource_[i], foregroundTerm_[c] + toSink_[i]);
        }
        graph_.maxFlow();
        for (size_t i = 0; i < pixels_.size(); ++i) seed.at<uchar>(pixels_[i]) = graph_.inSourceSegment(int(i)) ? cv::GC_PR_FGD : cv::GC_PR_BGD;
    }

private:
    static int countFree(const cv::Mat& seed) { return cv::countNonZero(seed == cv::GC_PR_BGD) + cv::countNonZero(seed == cv::GC_PR_FGD); }

    cv::Mat index_;  // the free pixels' vertices, -1 where fixed
    std::vector<cv::Point> pixels_;
    std::vector<int> colourOf_;  // each free pixel's colour in the palette
    std::vector<int> colours_;   // the palette's colours of free pixels, each once
    std::vector<double> backgroundTerm_, foregroundTerm_;  // per palette colour, of the last cut
    std::vector<double> fromSource_, toSink_;
    CutGraph graph_;
};

cv::Mat foregroundOf(const cv::Mat& seed) { return (seed == cv::GC_FGD) | (seed == cv::GC_PR_FGD); }

}  // namespace

cv::Mat grabCut(const cv::Mat& image, cv::Mat seed, int iterations, Convergence until) {
    const size_t seeded = size_t(cv::countNonZero(foregroundOf(seed)));
    if (seeded == 0 || seeded == seed.total()) return cv::Mat::zeros(image.size(), CV_8U);
    cv::theRNG().state = 0x4b6f72766964ULL;
    Mixture background, foreground;
    initialise(image, seed, background, foreground);
    const Palette palette(image);
    NeighbourWeights weights(image);
    FreeGraph graph(seed, weights, palette);
    cv::Mat mask = foregroundOf(seed);
    for (int i = 0; i < iterations && !graph.empty(); ++i) {
        learn(palette, seed, background, foreground);
        graph.cut(palette, seed, background, foreground);
        cv::Mat next = foregroundOf(seed);
        const bool checked = until.settled > 0 && i > 0 && (until.lastCheck < 0 || i <= until.lastCheck);
        const bool settled = checked && size_t(cv::countNonZero(next != mask)) * size_t(until.settled) < next.total();
        mask = next;
        if (settled) break;
    }
    return mask;
}

}  // namespace kv
