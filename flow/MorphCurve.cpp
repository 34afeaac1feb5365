// Even resampling of polylines: a walk that steps a fixed distance along the segments, repeated on
// its own output until the steps agree in length.
#include "flow/MorphFlow.h"

#include <cmath>
#include <cstdio>

namespace {

float Distance(float x0, float y0, float x1, float y1) {
    const float dx = x1 - x0, dy = y1 - y0;
    return std::sqrt(dx * dx + dy * dy);
}

float CurveLength(int n, const float* x, const float* y) {
    float length = 0.0f;
    for (int i = 0; i + 1 < n; ++i)
        length += Distance(x[i], y[i], x[i + 1], y[i + 1]);
    return length;
}

// Up to kMaxCurvePoints floats on the stack, more from the library heap.
class CurveTemp {
public:
    explicit CurveTemp(int count)
        : heap_(count > DQMorphFlow::kMaxCurvePoints
                    ? static_cast<float*>(ZUMemAllocate(sizeof(float) * size_t(count)))
                    : nullptr) {}
    ~CurveTemp() { ZUMemRelease(heap_); }
    CurveTemp(const CurveTemp&) = delete;
    CurveTemp& operator=(const CurveTemp&) = delete;
    float* data() { return heap_ ? heap_ : stack_; }

private:
    float* heap_;
    float stack_[DQMorphFlow::kMaxCurvePoints];
};

} // namespace

int DQWalkCurve(int n, const float* xIn, const float* yIn, int m, float* xOut, float* yOut) {
    if (n < 2 || m < 2) return 0;
    const float step = CurveLength(n, xIn, yIn) / static_cast<float>(m - 1);
    xOut[0] = xIn[0];
    yOut[0] = yIn[0];
    float cx = xIn[0], cy = yIn[0];
    int segment = 0; // the walk is between input points segment and segment + 1
    int out = 1;     // the next output to write
    float rest = step;
    int ending = 0;
    while (ending == 0) {
        const float nx = xIn[segment + 1], ny = yIn[segment + 1];
        const float d = Distance(cx, cy, nx, ny);
        if (d > rest) {
            const float t = rest / d;
            if (out == m - 1) {
                xOut[out] = xIn[n - 1];
                yOut[out] = yIn[n - 1];
                ending = 1;
                break;
            }
            xOut[out] = cx + (nx - cx) * t;
            yOut[out] = cy + (ny - cy) * t;
            cx = xOut[out];
            cy = yOut[out];
            ++out;
            rest = step;
        } else if (d == rest) {
            ++segment;
            xOut[out] = nx;
            yOut[out] = ny;
            if (segment == n - 1 || out == m - 1) {
                ending = 2;
                break;
            }
            cx = nx;
            cy = ny;
            ++out;
            rest = step;
        } else {
            ++segment;
            if (segment == n - 1) {
                xOut[out] = nx;
                yOut[out] = ny;
                ending = 3;
                break;
            }
            cx = nx;
            cy = ny;
            rest -= d;
        }
    }
    // Outputs the walk did not reach (the input ran out early) hold the last point, so that no
    // reader meets an unset value; the check below still reports the early end.
    const int reached = out;
    for (int i = out + 1; i < m; ++i) {
        xOut[i] = xIn[n - 1];
        yOut[i] = yIn[n - 1];
    }
    if (reached != m - 1 || xOut[m - 1] != xIn[n - 1] || yOut[m - 1] != yIn[n - 1]) {
        std::fprintf(stderr, "%s|resample: logic error #%d\n", "blah2", ending);
        std::fprintf(stderr, "ocurve[%d]: (%f %f), rcurve[%d]: (%f %f)\n", n - 1,
                     double(xIn[n - 1]), double(yIn[n - 1]), reached, double(xOut[reached]),
                     double(yOut[reached]));
    }
    return ending;
}

int DQResampleCurve(int n, const float* xIn, const float* yIn, int m, float* xOut, float* yOut,
                    float tolerance) {
    if (n < 1 || m < 1) return -1;
    if (CurveLength(n, xIn, yIn) < 0.001f) {
        for (int i = 0; i < m; ++i) {
            xOut[i] = xIn[0];
            yOut[i] = yIn[0];
        }
        return 1;
    }
    if (m == 1) {
        xOut[0] = xIn[0];
        yOut[0] = yIn[0];
        return 1;
    }
    if (m == 2) {
        xOut[0] = xIn[0];
        yOut[0] = yIn[0];
        xOut[1] = n < 2 ? xIn[0] : xIn[n - 1];
        yOut[1] = n < 2 ? yIn[0] : yIn[n - 1];
        return 1;
    }
    DQWalkCurve(n, xIn, yIn, m, xOut, yOut);
    CurveTemp tempX(m), tempY(m);
    for (int round = 1; round <= 99; ++round) {
        float least = 0.0f, greatest = 0.0f;
        for (int i = 0; i + 1 < m; ++i) {
            const float dx = xOut[i + 1] - xOut[i], dy = yOut[i + 1] - yOut[i];
            const float squared = dx * dx + dy * dy;
            if (i == 0 || squared < least) least = squared;
            if (i == 0 || squared > greatest) greatest = squared;
        }
        const float quality = greatest < 0.001f ? -1.0f : std::sqrt(least) / std::sqrt(greatest);
        if (quality >= tolerance) return round;
        if (quality < 0.0f) return 1;
        float* x = tempX.data();
        float* y = tempY.data();
        for (int i = 0; i < m; ++i) {
            x[i] = xOut[i];
            y[i] = yOut[i];
        }
        DQWalkCurve(m, x, y, m, xOut, yOut);
    }
    return -1;
}
