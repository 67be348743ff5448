#include "nodes/grab_cut.h"

#include <cmath>
#include <limits>
#include <vector>

#include <opencv2/imgproc.hpp>
#include <opencv2/imgproc/detail/gcgraph.hpp>

namespace kv {

namespace {

constexpr int kComponents = 5;
constexpr double kGamma = 50;              // neighbour weight scale
constexpr double kFixed = 9 * kGamma;      // terminal weight of a fixed pixel
constexpr double kSingularFix = 0.01;      // added to a learnt covariance's diagonal when singular

bool isBackground(uchar m) { return m == cv::GC_BGD || m == cv::GC_PR_BGD; }
bool isFree(uchar m) { return m == cv::GC_PR_BGD || m == cv::GC_PR_FGD; }

// A Gaussian mixture over BGR in the layout of cv::grabCut's model arrays (1 x 65 doubles:
// weights, means, covariances), computed as OpenCV computes it, operation for operation,
// so that the models and the cut are the same.
class Mixture {
public:
    explicit Mixture(cv::Mat& model)
        : weights_(model.ptr<double>(0)), means_(weights_ + kComponents), covs_(means_ + 3 * kComponents) {
        for (int c = 0; c < kComponents; ++c) {
            if (weights_[c] > 0) invert(c, 0.0);
        }
    }

    double component(int c, const cv::Vec3d& colour) const {
        if (weights_[c] <= 0) return 0;
        const double* m = means_ + 3 * c;
        const double d0 = colour[0] - m[0], d1 = colour[1] - m[1], d2 = colour[2] - m[2];
        const double (&v)[3][3] = inverse_[c];
        const double mult = d0 * (d0 * v[0][0] + d1 * v[1][0] + d2 * v[2][0]) + d1 * (d0 * v[0][1] + d1 * v[1][1] + d2 * v[2][1]) +
                            d2 * (d0 * v[0][2] + d1 * v[1][2] + d2 * v[2][2]);
        return 1.0f / std::sqrt(determinant_[c]) * std::exp(-0.5f * mult);
    }

    double operator()(const cv::Vec3d& colour) const {
        double p = 0;
        for (int c = 0; c < kComponents; ++c) p += weights_[c] * component(c, colour);
        return p;
    }

    int likeliest(const cv::Vec3d& colour) const {
        int best = 0;
        double most = 0;
        for (int c = 0; c < kComponents; ++c) {
            const double p = component(c, colour);
            if (p > most) best = c, most = p;
        }
        return best;
    }

    void startLearning() {
        for (int c = 0; c < kComponents; ++c) {
            for (int a = 0; a < 3; ++a) {
                sums_[c][a] = 0;
                for (int b = 0; b < 3; ++b) products_[c][a][b] = 0;
            }
            counts_[c] = 0;
        }
        total_ = 0;
    }

    void add(int c, const cv::Vec3d& colour) {
        for (int a = 0; a < 3; ++a) {
            sums_[c][a] += colour[a];
            for (int b = 0; b < 3; ++b) products_[c][a][b] += colour[a] * colour[b];
        }
        ++counts_[c];
        ++total_;
    }

    void endLearning() {
        for (int c = 0; c < kComponents; ++c) {
            const int n = counts_[c];
            if (n == 0) {
                weights_[c] = 0;
                continue;
            }
            const double inverseN = 1.0 / n;
            weights_[c] = double(n) / total_;
            double* m = means_ + 3 * c;
            for (int a = 0; a < 3; ++a) m[a] = sums_[c][a] * inverseN;
            double* cov = covs_ + 9 * c;
            for (int a = 0; a < 3; ++a) {
                for (int b = 0; b < 3; ++b) cov[a * 3 + b] = products_[c][a][b] * inverseN - m[a] * m[b];
            }
            invert(c, kSingularFix);
        }
    }

private:
    void invert(int c, double singularFix) {
        double* v = covs_ + 9 * c;
        auto det = [v] { return v[0] * (v[4] * v[8] - v[5] * v[7]) - v[1] * (v[3] * v[8] - v[5] * v[6]) + v[2] * (v[3] * v[7] - v[4] * v[6]); };
        double d = det();
        if (d <= 1e-6 && singularFix > 0) {
            v[0] += singularFix, v[4] += singularFix, v[8] += singularFix;
            d = det();
        }
        CV_Assert(d > std::numeric_limits<double>::epsilon());
        determinant_[c] = d;
        const double inv = 1.0 / d;
        double (&r)[3][3] = inverse_[c];
        r[0][0] = (v[4] * v[8] - v[5] * v[7]) * inv;
        r[1][0] = -(v[3] * v[8] - v[5] * v[6]) * inv;
        r[2][0] = (v[3] * v[7] - v[4] * v[6]) * inv;
        r[0][1] = -(v[1] * v[8] - v[2] * v[7]) * inv;
        r[1][1] = (v[0] * v[8] - v[2] * v[6]) * inv;
        r[2][1] = -(v[0] * v[7] - v[1] * v[6]) * inv;
        r[0][2] = (v[1] * v[5] - v[2] * v[4]) * inv;
        r[1][2] = -(v[0] * v[5] - v[2] * v[3]) * inv;
        r[2][2] = (v[0] * v[4] - v[1] * v[3]) * inv;
    }

    double* weights_;
    double* means_;
    double* covs_;
    double inverse_[kComponents][3][3] = {};
    double determinant_[kComponents] = {};
    double sums_[kComponents][3] = {};
    double products_[kComponents][3][3] = {};
    int counts_[kComponents] = {};
    int total_ = 0;
};

// The four neighbours before a pixel (left, up-left, up, up-right), as row and column steps.
constexpr int kStepY[4] = {0, -1, -1, -1};
constexpr int kStepX[4] = {-1, -1, 0, 1};

// Edge weights to those neighbours (0 where outside): gamma e^(-beta |colour difference|^2),
// divided by sqrt 2 on the diagonals; beta from the mean squared difference of the image.
cv::Mat neighbourWeights(const cv::Mat& image) {
    double beta = 0;
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const cv::Vec3d colour = image.at<cv::Vec3b>(y, x);
            for (int k = 0; k < 4; ++k) {
                const int yy = y + kStepY[k], xx = x + kStepX[k];
                if (yy < 0 || xx < 0 || xx >= image.cols) continue;
                const cv::Vec3d d = colour - cv::Vec3d(image.at<cv::Vec3b>(yy, xx));
                beta += d.dot(d);
            }
        }
    }
    if (beta <= std::numeric_limits<double>::epsilon()) {
        beta = 0;
    } else {
        beta = 1.f / (2 * beta / (4 * image.cols * image.rows - 3 * image.cols - 3 * image.rows + 2));
    }
    const double scale[4] = {kGamma, kGamma / std::sqrt(2.0f), kGamma, kGamma / std::sqrt(2.0f)};
    cv::Mat weights(image.size(), CV_64FC4);
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const cv::Vec3d colour = image.at<cv::Vec3b>(y, x);
            cv::Vec4d& w = weights.at<cv::Vec4d>(y, x);
            for (int k = 0; k < 4; ++k) {
                const int yy = y + kStepY[k], xx = x + kStepX[k];
                if (yy < 0 || xx < 0 || xx >= image.cols) {
                    w[k] = 0;
                    continue;
                }
                const cv::Vec3d d = colour - cv::Vec3d(image.at<cv::Vec3b>(yy, xx));
                w[k] = scale[k] * std::exp(-beta * d.dot(d));
            }
        }
    }
    return weights;
}

// Each pixel's likeliest component of its side's mixture, then both mixtures learnt anew.
void learn(const cv::Mat& image, const cv::Mat& seed, Mixture& background, Mixture& foreground) {
    cv::Mat component(image.size(), CV_32S);
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const cv::Vec3d colour = image.at<cv::Vec3b>(y, x);
            component.at<int>(y, x) = isBackground(seed.at<uchar>(y, x)) ? background.likeliest(colour) : foreground.likeliest(colour);
        }
    }
    background.startLearning();
    foreground.startLearning();
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const cv::Vec3d colour = image.at<cv::Vec3b>(y, x);
            (isBackground(seed.at<uchar>(y, x)) ? background : foreground).add(component.at<int>(y, x), colour);
        }
    }
    background.endLearning();
    foreground.endLearning();
}

// One cut over the free pixels; they become GC_PR_FGD or GC_PR_BGD. False when none is free.
bool cut(const cv::Mat& image, cv::Mat& seed, const cv::Mat& weights, const Mixture& background, const Mixture& foreground) {
    cv::Mat index(image.size(), CV_32S);
    int count = 0;
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) index.at<int>(y, x) = isFree(seed.at<uchar>(y, x)) ? count++ : -1;
    }
    if (count == 0) return false;
    // Terminal weights first, with the edges to fixed neighbours folded in.
    std::vector<double> fromSource(size_t(count), 0), toSink(size_t(count), 0);
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const int i = index.at<int>(y, x);
            const cv::Vec4d& w = weights.at<cv::Vec4d>(y, x);
            for (int k = 0; k < 4; ++k) {
                const int yy = y + kStepY[k], xx = x + kStepX[k];
                if (yy < 0 || xx < 0 || xx >= image.cols) continue;
                const int j = index.at<int>(yy, xx);
                if ((i < 0) == (j < 0)) continue;  // both free (an edge below) or both fixed
                const int free = i >= 0 ? i : j;
                const uchar fixed = i >= 0 ? seed.at<uchar>(yy, xx) : seed.at<uchar>(y, x);
                (fixed == cv::GC_BGD ? toSink : fromSource)[size_t(free)] += w[k];
            }
        }
    }
    cv::detail::GCGraph<double> graph(unsigned(count), 8u * unsigned(count));
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const int i = index.at<int>(y, x);
            if (i < 0) continue;
            graph.addVtx();
            const cv::Vec3d colour = image.at<cv::Vec3b>(y, x);
            graph.addTermWeights(i, -std::log(background(colour)) + fromSource[size_t(i)], -std::log(foreground(colour)) + toSink[size_t(i)]);
            const cv::Vec4d& w = weights.at<cv::Vec4d>(y, x);
            for (int k = 0; k < 4; ++k) {
                const int yy = y + kStepY[k], xx = x + kStepX[k];
                if (yy < 0 || xx < 0 || xx >= image.cols) continue;
                const int j = index.at<int>(yy, xx);
                if (j >= 0) graph.addEdges(i, j, w[k], w[k]);
            }
        }
    }
    graph.maxFlow();
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const int i = index.at<int>(y, x);
            if (i >= 0) seed.at<uchar>(y, x) = graph.inSourceSegment(i) ? cv::GC_PR_FGD : cv::GC_PR_BGD;
        }
    }
    return true;
}

cv::Mat foregroundOf(const cv::Mat& seed) { return (seed == cv::GC_FGD) | (seed == cv::GC_PR_FGD); }

}  // namespace

cv::Mat grabCut(const cv::Mat& image, cv::Mat seed, int iterations, Convergence until) {
    if (cv::countNonZero((seed == cv::GC_BGD) | (seed == cv::GC_PR_BGD)) == 0 ||
        cv::countNonZero((seed == cv::GC_FGD) | (seed == cv::GC_PR_FGD)) == 0) {
        return cv::Mat::zeros(image.size(), CV_8U);
    }
    cv::theRNG().state = 0x4b6f72766964ULL;
    cv::Mat backgroundModel, foregroundModel;
    // OpenCV's own initialisation (k-means clusters of each side); no iteration.
    cv::grabCut(image, seed, cv::Rect(), backgroundModel, foregroundModel, 0, cv::GC_INIT_WITH_MASK);
    Mixture background(backgroundModel), foreground(foregroundModel);
    const cv::Mat weights = neighbourWeights(image);
    cv::Mat mask = foregroundOf(seed);
    for (int i = 0; i < iterations; ++i) {
        learn(image, seed, background, foreground);
        if (!cut(image, seed, weights, background, foreground)) break;
        cv::Mat next = foregroundOf(seed);
        const bool checked = until.settled > 0 && i > 0 && (until.lastCheck < 0 || i <= until.lastCheck);
        const bool settled = checked && size_t(cv::countNonZero(next != mask)) * size_t(until.settled) < next.total();
        mask = next;
        if (settled) break;
    }
    return mask;
}

}  // namespace kv
