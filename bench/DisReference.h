#pragma once
// The open reference for rebuilt in-between frames: OpenCV's DIS flow (preset "medium") in both
// directions at full size, each frame pulled half-way by cv::remap and the two mixed. Its flows
// are also handed out as the engine's flow images, so that the engine's flow and warp can each be
// swapped for the reference and compared on the same metric code. Only with OpenCV.
#ifdef QUELMOR_HAVE_OPENCV
#include "image/DQImage.h"

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>

#include <memory>

namespace quelmor::bench {

// A top-down 8-bit image seen as a Mat of its channels, without a copy.
inline cv::Mat MatView(const DQImage& image) {
    return cv::Mat(image.height, image.width, CV_MAKETYPE(CV_8U, image.channels),
                   image.RowAddress(0), size_t(image.rowBytes));
}

// Flow from `from` to `to` at full size: at pixel x of `from`, the offset to its match in `to`.
inline cv::Mat DisFlow(const DQImage& from, const DQImage& to) {
    cv::Mat grayFrom, grayTo, flow;
    cv::cvtColor(MatView(from), grayFrom, cv::COLOR_RGBA2GRAY);
    cv::cvtColor(MatView(to), grayTo, cv::COLOR_RGBA2GRAY);
    auto dis = cv::DISOpticalFlow::create(cv::DISOpticalFlow::PRESET_MEDIUM);
    dis->calc(grayFrom, grayTo, flow);
    return flow;
}

// The pair of DIS flows of a frame pair.
struct DisFlows {
    cv::Mat aToB, bToA;
};

inline DisFlows ComputeDisFlows(const DQImage& a, const DQImage& b) {
    return {DisFlow(a, b), DisFlow(b, a)};
}

// A DIS flow as a flow image of the engine: two float channels, x then y.
inline std::unique_ptr<DQImage> ToFlowImage(const cv::Mat& flow) {
    auto image = std::make_unique<DQImage>(flow.cols, flow.rows, 2, DQ_FLOAT, 0);
    for (int y = 0; y < flow.rows; ++y) {
        const cv::Vec2f* in = flow.ptr<cv::Vec2f>(y);
        float* out = image->Row<float>(y);
        for (int x = 0; x < flow.cols; ++x) {
            out[2 * x] = in[x][0];
            out[2 * x + 1] = in[x][1];
        }
    }
    return image;
}

// `source` pulled along `scale` times `flow`: out(x) = source(x + scale flow(x)), edges repeated.
inline cv::Mat PullAlong(const DQImage& source, const cv::Mat& flow, float scale) {
    cv::Mat map(flow.size(), CV_32FC2), out;
    for (int y = 0; y < flow.rows; ++y) {
        const cv::Vec2f* f = flow.ptr<cv::Vec2f>(y);
        cv::Vec2f* m = map.ptr<cv::Vec2f>(y);
        for (int x = 0; x < flow.cols; ++x)
            m[x] = cv::Vec2f(float(x) + scale * f[x][0], float(y) + scale * f[x][1]);
    }
    cv::remap(MatView(source), out, map, cv::noArray(), cv::INTER_LINEAR, cv::BORDER_REPLICATE);
    return out;
}

// The in-between frame at weightA = 1 - t into `dest` (same size and layout as the frames): A
// pulled t of the way along the flow from B, B pulled 1 - t along the flow from A, mixed.
inline void DisInBetween(DQImage* dest, const DQImage& a, const DQImage& b, const DisFlows& flows,
                         float t) {
    const cv::Mat fromA = PullAlong(a, flows.bToA, t);
    const cv::Mat fromB = PullAlong(b, flows.aToB, 1.0f - t);
    cv::Mat out = MatView(*dest);
    cv::addWeighted(fromA, 1.0 - t, fromB, t, 0.0, out);
}

} // namespace quelmor::bench
#endif
