#include "flow/FlowOverlay.h"

#include "image/Parallel.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace {

// The colour wheel: red to yellow, yellow to green, green to cyan, cyan to blue, blue to magenta
// and magenta back to red, in steps that are finer where the eye tells hues apart better.
struct Wheel {
    std::vector<std::array<float, 3>> colours;
    Wheel() {
        const int steps[6] = {15, 6, 4, 11, 13, 6};
        // The channel that rises (+) or falls (-) along each segment, with the other two fixed.
        const std::array<float, 3> start[6] = {{255, 0, 0},   {255, 255, 0}, {0, 255, 0},
                                               {0, 255, 255}, {0, 0, 255},   {255, 0, 255}};
        const int channel[6] = {1, 0, 2, 1, 0, 2};
        const float sign[6] = {1, -1, 1, -1, 1, -1};
        for (int s = 0; s < 6; ++s)
            for (int i = 0; i < steps[s]; ++i) {
                std::array<float, 3> c = start[s];
                c[channel[s]] += sign[s] * std::floor(255.0f * float(i) / float(steps[s]));
                colours.push_back(c);
            }
    }
};

const Wheel& TheWheel() {
    static const Wheel wheel;
    return wheel;
}

bool IsFloatFlow(const DQImage* flow) {
    return flow && flow->data && flow->channels == 2 && flow->dataType == DQ_FLOAT &&
           flow->width > 0 && flow->height > 0;
}

bool IsByteFrame(const DQImage* image) {
    return image && image->data && image->channels == 4 && image->dataType == DQ_UCHAR &&
           image->width > 0 && image->height > 0;
}

void Plot(DQImage* dest, int x, int y, const uint8_t colour[4]) {
    if (x < 0 || y < 0 || x >= dest->width || y >= dest->height) return;
    uint8_t* p = dest->PixelAddress(x, y);
    for (int c = 0; c < 4; ++c)
        p[c] = colour[c];
}

void Line(DQImage* dest, float x0, float y0, float x1, float y1, const uint8_t colour[4]) {
    const float steps = std::ceil(std::max(std::fabs(x1 - x0), std::fabs(y1 - y0)));
    const int n = std::isfinite(steps) ? int(std::min(steps, 1e5f)) : 0;
    for (int i = 0; i <= n; ++i) {
        const float t = n ? float(i) / float(n) : 0.0f;
        Plot(dest, int(std::floor(x0 + t * (x1 - x0) + 0.5f)),
             int(std::floor(y0 + t * (y1 - y0) + 0.5f)), colour);
    }
}

} // namespace

void FlowColour(float u, float v, float largest, uint8_t rgb[3]) {
    const auto& colours = TheWheel().colours;
    const int count = int(colours.size());
    if (!std::isfinite(u) || !std::isfinite(v) || !(largest > 0.0f)) {
        rgb[0] = rgb[1] = rgb[2] = 0;
        return;
    }
    u /= largest;
    v /= largest;
    const float radius = std::sqrt(u * u + v * v);
    const float angle = std::atan2(-v, -u) / float(M_PI);
    // Once round the wheel from -pi to pi, so that both ends of the range meet at the first colour.
    float position = (angle + 1.0f) / 2.0f * float(count);
    if (!(position < float(count))) position = 0.0f;
    const int k0 = std::clamp(int(position), 0, count - 1);
    const int k1 = (k0 + 1) % count;
    const float f = position - float(k0);
    for (int c = 0; c < 3; ++c) {
        float value = ((1.0f - f) * colours[k0][c] + f * colours[k1][c]) / 255.0f;
        value = radius <= 1.0f ? 1.0f - radius * (1.0f - value) : value * 0.75f;
        rgb[c] = uint8_t(std::floor(255.0f * value + 0.5f));
    }
}

void DrawFlowColours(DQImage* dest, const DQImage* flow, float largest) {
    if (!IsFloatFlow(flow) || !IsByteFrame(dest) || dest->width != flow->width ||
        dest->height != flow->height)
        DQThrow(kDQErrBadArgument);
    if (!(largest > 0.0f)) {
        largest = 0.0f;
        for (int y = 0; y < flow->height; ++y) {
            const float* row = flow->Row<float>(y);
            for (int x = 0; x < flow->width; ++x) {
                const float length = std::hypot(row[2 * x], row[2 * x + 1]);
                if (std::isfinite(length)) largest = std::max(largest, length);
            }
        }
        if (largest == 0.0f) largest = 1.0f;
    }
    const int width = flow->width;
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* in = flow->Row<float>(y);
            uint8_t* out = dest->Row<uint8_t>(y);
            for (int x = 0; x < width; ++x) {
                FlowColour(in[2 * x], in[2 * x + 1], largest, out + 4 * x);
                out[4 * x + 3] = 255;
            }
        }
    });
}

void DrawFlowArrows(DQImage* dest, const DQImage* flow, int spacing, const uint8_t colour[4]) {
    if (!IsFloatFlow(flow) || !IsByteFrame(dest) || spacing < 2 || !colour)
        DQThrow(kDQErrBadArgument);
    // Frame pixels per flow pixel, by the ratio of the last indices.
    const float rx =
        flow->lastColumn > 0 ? float(dest->lastColumn) / float(flow->lastColumn) : 1.0f;
    const float ry = flow->lastRow > 0 ? float(dest->lastRow) / float(flow->lastRow) : 1.0f;
    for (int y = spacing / 2; y < dest->height; y += spacing)
        for (int x = spacing / 2; x < dest->width; x += spacing) {
            const int fx = std::min(int(float(x) / rx + 0.5f), flow->lastColumn);
            const int fy = std::min(int(float(y) / ry + 0.5f), flow->lastRow);
            const float* p = flow->Row<float>(fy) + 2 * fx;
            const float u = p[0] * rx, v = p[1] * ry;
            const float length = std::hypot(u, v);
            if (!(length >= 0.5f)) {
                Plot(dest, x, y, colour);
                continue;
            }
            const float ex = float(x) + u, ey = float(y) + v;
            Line(dest, float(x), float(y), ex, ey, colour);
            // Two strokes of the head, a quarter of the length (at most 6 pixels) long, 30 degrees
            // either side of the shaft.
            const float head = std::min(0.25f * length, 6.0f);
            const float bx = -u / length * head, by = -v / length * head;
            const float c = std::cos(0.5236f), s = std::sin(0.5236f);
            Line(dest, ex, ey, ex + c * bx - s * by, ey + s * bx + c * by, colour);
            Line(dest, ex, ey, ex + c * bx + s * by, ey - s * bx + c * by, colour);
        }
}
