#include "cli/GeometryOverlay.h"

#include <algorithm>
#include <cmath>

#include "engine/Engine.h"

namespace quelmor::cli {

namespace {

// Half the length of a point's cross, in pixels.
constexpr int kCrossArm = 3;

struct Colour {
    unsigned char r, g, b;
};

template <class T>
void PutPixel(MediaFrame& frame, int x, int y, Colour colour, float white) {
    if (x < 0 || y < 0 || x >= frame.format.width || y >= frame.format.height) return;
    T* p = frame.Row<T>(y) + std::size_t(x) * 4;
    const float scale = white / 255.0f;
    const unsigned char rgb[3] = {colour.r, colour.g, colour.b};
    for (int c = 0; c < 3; ++c)
        p[c] = static_cast<T>(rgb[c] * scale + (white > 1.0f ? 0.5f : 0.0f));
    p[3] = static_cast<T>(white);
}

void Plot(MediaFrame& frame, int x, int y, Colour colour) {
    switch (frame.format.sample) {
    case SampleType::U8:
        PutPixel<std::uint8_t>(frame, x, y, colour, 255.0f);
        break;
    case SampleType::U16:
        PutPixel<std::uint16_t>(frame, x, y, colour, 65535.0f);
        break;
    default:
        PutPixel<float>(frame, x, y, colour, 1.0f);
    }
}

// The segment from (x0, y0) to (x1, y1), one pixel wide, at steps of at most half a pixel.
void Line(MediaFrame& frame, float x0, float y0, float x1, float y1, Colour colour) {
    // A segment with an end far outside the frame is not drawn.
    const float limit = 4.0f * float(frame.format.width + frame.format.height);
    for (float v : {x0, y0, x1, y1})
        if (!(std::fabs(v) < limit)) return;
    const float reach = std::max(std::fabs(x1 - x0), std::fabs(y1 - y0));
    const int steps = std::max(1, int(std::ceil(reach * 2.0f)));
    for (int i = 0; i <= steps; ++i) {
        const float t = float(i) / float(steps);
        Plot(frame, int(std::lround(x0 + (x1 - x0) * t)), int(std::lround(y0 + (y1 - y0) * t)),
             colour);
    }
}

// The points an engine lends for one geometry, given back however the drawing ends.
struct Lent {
    explicit Lent(ZUQuelmor4& engine) : engine(engine) {}
    ~Lent() {
        if (xA || yA || xB || yB) engine.ReleasePoints(xA, yA, xB, yB);
    }
    Lent(const Lent&) = delete;
    Lent& operator=(const Lent&) = delete;
    ZUQuelmor4& engine;
    unsigned long count = 0;
    float *xA = nullptr, *yA = nullptr, *xB = nullptr, *yB = nullptr;
};

} // namespace

void DrawGeometry(ZUQuelmor4& engine, float sourceTime, MediaFrame& frame) {
    const float a = std::floor(sourceTime);
    const float share = sourceTime - a;
    const float b = share > 0.0f ? a + 1.0f : a;
    const unsigned long count = engine.GetNumGeometries(0, a, b);
    for (unsigned long index = 0; index < count; ++index) {
        Lent points(engine);
        if (const int code = engine.GetGeometryPoints(0, index, a, b, &points.count, &points.xA,
                                                      &points.yA, &points.xB, &points.yB))
            throw MediaError("the geometry could not be read for drawing (error " +
                             std::to_string(code) + ")");
        if (!points.xA || !points.yA || !points.xB || !points.yB || points.count == 0) continue;
        Colour colour{255, 255, 255};
        engine.GetGeometryColor(0, index, &colour.r, &colour.g, &colour.b, sourceTime);
        const auto at = [&](unsigned long i, float* x, float* y) {
            *x = points.xA[i] + (points.xB[i] - points.xA[i]) * share;
            *y = points.yA[i] + (points.yB[i] - points.yA[i]) * share;
        };
        float x, y;
        at(0, &x, &y);
        if (points.count == 1) {
            Line(frame, x - kCrossArm, y, x + kCrossArm, y, colour);
            Line(frame, x, y - kCrossArm, x, y + kCrossArm, colour);
            continue;
        }
        for (unsigned long i = 1; i < points.count; ++i) {
            float nx, ny;
            at(i, &nx, &ny);
            Line(frame, x, y, nx, ny, colour);
            x = nx;
            y = ny;
        }
    }
}

} // namespace quelmor::cli
