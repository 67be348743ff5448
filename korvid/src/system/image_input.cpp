#include "system/image_input.h"

#include <cstring>

#include <opencv2/imgproc.hpp>

#include "Vantor/VantorErrorCode.h"
#include "model/error.h"

namespace kv {

namespace {

int bytesPerPixel(int32_t format) {
    switch (format) {
        case Vantor::PIXEL_FORMAT_AUTO:
        case Vantor::PIXEL_FORMAT_RGBA8888:
        case Vantor::PIXEL_FORMAT_BGRA8888:
        case Vantor::PIXEL_FORMAT_ARGB8888: return 4;
        case Vantor::PIXEL_FORMAT_RGB888:
        case Vantor::PIXEL_FORMAT_BGR888: return 3;
        default: return 1;  // GRAY8 and the Y plane of the YUV formats
    }
}

bool isYuv(int32_t format) {
    return format == Vantor::PIXEL_FORMAT_NV21 || format == Vantor::PIXEL_FORMAT_NV12 ||
           format == Vantor::PIXEL_FORMAT_I420;
}

[[noreturn]] void refuse(const std::string& what) { throw Error(Vantor::INVALID_FORMAT, what); }

// Packs the planes of a YUV image into one continuous block of width x height*3/2.
cv::Mat packYuv(const Vantor::VantorImageBuffer& img, uint64_t stride) {
    const int w = img.width, h = img.height;
    cv::Mat yuv(h * 3 / 2, w, CV_8UC1);
    const uint8_t* src = img.data;
    for (int r = 0; r < h; ++r) std::memcpy(yuv.ptr(r), src + r * stride, w);
    src += stride * h;
    if (img.format == Vantor::PIXEL_FORMAT_I420) {
        const uint64_t cstride = stride / 2;
        uint8_t* dst = yuv.ptr(h);
        for (int plane = 0; plane < 2; ++plane) {
            for (int r = 0; r < h / 2; ++r, dst += w / 2) std::memcpy(dst, src + r * cstride, w / 2);
            src += cstride * (h / 2);
        }
    } else {
        for (int r = 0; r < h / 2; ++r) std::memcpy(yuv.ptr(h + r), src + r * stride, w);
    }
    return yuv;
}

}  // namespace

cv::Mat toUprightBgr(const Vantor::VantorAlgorithmInput& input) {
    const auto* img = dynamic_cast<const Vantor::VantorImageBuffer*>(&input);
    if (img == nullptr || input.type != Vantor::INPUT_TYPE_IMAGE) refuse("input is not an image buffer");
    if (img->width <= 0 || img->height <= 0 || img->width > kMaxImageSide || img->height > kMaxImageSide) {
        refuse("image size out of range");
    }
    if (img->format < Vantor::PIXEL_FORMAT_AUTO || img->format > Vantor::PIXEL_FORMAT_ARGB8888) {
        refuse("unknown pixel format " + std::to_string(img->format));
    }
    if (img->rotation < Vantor::ROTATION_0 || img->rotation > Vantor::ROTATION_270) {
        refuse("unknown rotation " + std::to_string(img->rotation));
    }
    if (img->data == nullptr) refuse("image has no data");
    const uint64_t w = static_cast<uint64_t>(img->width), h = static_cast<uint64_t>(img->height);
    const uint64_t rowBytes = w * static_cast<uint64_t>(bytesPerPixel(img->format));
    if (img->stride < 0) refuse("negative stride");
    const uint64_t stride = img->stride == 0 ? rowBytes : static_cast<uint64_t>(img->stride);
    if (stride < rowBytes) refuse("stride shorter than a row");
    uint64_t needed;
    if (isYuv(img->format)) {
        if (w % 2 != 0 || h % 2 != 0) refuse("YUV images need an even width and height");
        needed = img->format == Vantor::PIXEL_FORMAT_I420 ? stride * h + 2 * (stride / 2) * (h / 2)
                                                           : stride * h + stride * (h / 2);
        if (img->format == Vantor::PIXEL_FORMAT_I420 && stride / 2 < w / 2) refuse("chroma stride too short");
    } else {
        needed = stride * (h - 1) + rowBytes;
    }
    if (img->dataLength < needed) {
        refuse("image data holds " + std::to_string(img->dataLength) + " bytes, " + std::to_string(needed) + " needed");
    }

    const int iw = img->width, ih = img->height;
    auto* data = const_cast<uint8_t*>(img->data);  // wrapped read-only: every path below copies
    cv::Mat bgr;
    switch (img->format) {
        case Vantor::PIXEL_FORMAT_AUTO:
        case Vantor::PIXEL_FORMAT_RGBA8888:
            cv::cvtColor(cv::Mat(ih, iw, CV_8UC4, data, stride), bgr, cv::COLOR_RGBA2BGR);
            break;
        case Vantor::PIXEL_FORMAT_BGRA8888:
            cv::cvtColor(cv::Mat(ih, iw, CV_8UC4, data, stride), bgr, cv::COLOR_BGRA2BGR);
            break;
        case Vantor::PIXEL_FORMAT_RGB888:
            cv::cvtColor(cv::Mat(ih, iw, CV_8UC3, data, stride), bgr, cv::COLOR_RGB2BGR);
            break;
        case Vantor::PIXEL_FORMAT_BGR888:
            cv::Mat(ih, iw, CV_8UC3, data, stride).copyTo(bgr);
            break;
        case Vantor::PIXEL_FORMAT_GRAY8:
            cv::cvtColor(cv::Mat(ih, iw, CV_8UC1, data, stride), bgr, cv::COLOR_GRAY2BGR);
            break;
        case Vantor::PIXEL_FORMAT_ARGB8888: {
            cv::Mat argb(ih, iw, CV_8UC4, data, stride);
            bgr.create(ih, iw, CV_8UC3);
            const int fromTo[] = {1, 2, 2, 1, 3, 0};  // A,R,G,B -> B,G,R
            cv::mixChannels(&argb, 1, &bgr, 1, fromTo, 3);
            break;
        }
        case Vantor::PIXEL_FORMAT_NV21:
            cv::cvtColor(packYuv(*img, stride), bgr, cv::COLOR_YUV2BGR_NV21);
            break;
        case Vantor::PIXEL_FORMAT_NV12:
            cv::cvtColor(packYuv(*img, stride), bgr, cv::COLOR_YUV2BGR_NV12);
            break;
        case Vantor::PIXEL_FORMAT_I420:
            cv::cvtColor(packYuv(*img, stride), bgr, cv::COLOR_YUV2BGR_I420);
            break;
    }
    cv::Mat out;
    switch (img->rotation) {
        case Vantor::ROTATION_90: cv::rotate(bgr, out, cv::ROTATE_90_CLOCKWISE); break;
        case Vantor::ROTATION_180: cv::rotate(bgr, out, cv::ROTATE_180); break;
        case Vantor::ROTATION_270: cv::rotate(bgr, out, cv::ROTATE_90_COUNTERCLOCKWISE); break;
        default: out = bgr; break;
    }
    return out;
}

}  // namespace kv
