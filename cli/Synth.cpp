#include "Synth.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "Media.h"

namespace quelmor::cli {

namespace {

struct Rgb {
    float r, g, b;
};

Rgb Mix(Rgb a, Rgb b, float t) {
    return {a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

float Hash(int x, int y, int seed) {
    std::uint32_t h = std::uint32_t(x) * 374761393u + std::uint32_t(y) * 668265263u +
                      std::uint32_t(seed) * 2246822519u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return float((h ^ (h >> 16)) & 0xffffu) / 65535.0f;
}

// Smooth value noise in [0, 1].
float Noise(float x, float y, int seed) {
    const float fx = std::floor(x), fy = std::floor(y);
    const int ix = int(fx), iy = int(fy);
    float tx = x - fx, ty = y - fy;
    tx = tx * tx * (3 - 2 * tx);
    ty = ty * ty * (3 - 2 * ty);
    const float a = Hash(ix, iy, seed), b = Hash(ix + 1, iy, seed);
    const float c = Hash(ix, iy + 1, seed), d = Hash(ix + 1, iy + 1, seed);
    return (a + (b - a) * tx) + ((c + (d - c) * tx) - (a + (b - a) * tx)) * ty;
}

float Fractal(float x, float y, int seed) {
    float sum = 0, amplitude = 0.5f;
    for (int octave = 0; octave < 4; ++octave) {
        sum += amplitude * Noise(x, y, seed + octave);
        x *= 2.03f;
        y *= 2.03f;
        amplitude *= 0.5f;
    }
    return sum / 0.9375f;
}

enum class Shape { Rectangle, Disc, Star };

// One object: its shape in its own coordinates (units of the frame height), a
// texture fixed to it, and a path in time.
struct Body {
    Shape shape;
    float halfW, halfH;   // extent of the shape
    float x0, y0, vx, vy; // centre at time 0 and per frame, in frame heights
    float angle0, spin;   // radians and radians per frame
    Rgb dark, light;
    int seed;
    float grain; // texture features per frame height
};

// Front to back: the first body that covers a point is the one seen.
const std::array<Body, 4> kBodies = {{
    {Shape::Star,
     0.13f,
     0.13f,
     0.30f,
     0.80f,
     0.045f,
     -0.022f,
     0.0f,
     0.09f,
     {0.80f, 0.15f, 0.10f},
     {1.0f, 0.85f, 0.25f},
     31,
     14.0f},
    {Shape::Disc,
     0.20f,
     0.20f,
     1.45f,
     0.45f,
     -0.050f,
     0.010f,
     0.0f,
     -0.05f,
     {0.05f, 0.25f, 0.55f},
     {0.55f, 0.85f, 1.0f},
     17,
     10.0f},
    {Shape::Rectangle,
     0.30f,
     0.17f,
     0.45f,
     0.40f,
     0.030f,
     0.012f,
     0.3f,
     0.035f,
     {0.15f, 0.40f, 0.10f},
     {0.80f, 0.95f, 0.45f},
     7,
     9.0f},
    {Shape::Rectangle,
     0.18f,
     0.28f,
     1.30f,
     0.62f,
     -0.015f,
     -0.008f,
     -0.2f,
     -0.02f,
     {0.45f, 0.20f, 0.40f},
     {0.95f, 0.70f, 0.85f},
     23,
     12.0f},
}};

bool Inside(const Body& body, float u, float v) {
    switch (body.shape) {
    case Shape::Rectangle:
        return std::fabs(u) <= body.halfW && std::fabs(v) <= body.halfH;
    case Shape::Disc:
        return u * u + v * v <= body.halfW * body.halfW;
    case Shape::Star: {
        const float r = std::sqrt(u * u + v * v);
        const float edge = body.halfW * (0.6f + 0.4f * std::cos(5.0f * std::atan2(v, u)));
        return r <= edge;
    }
    }
    return false;
}

Rgb Texture(const Body& body, float u, float v) {
    float n = Fractal(u * body.grain + 50.0f, v * body.grain + 50.0f, body.seed);
    // Stripes give the solver straight edges as well as blotches.
    n = 0.75f * n + 0.25f * (0.5f + 0.5f * std::sin((u + 0.5f * v) * body.grain * 2.2f));
    return Mix(body.dark, body.light, n);
}

Rgb Background(float x, float y, float time) {
    const float px = x + 0.012f * time, py = y + 0.004f * time;
    const float n = Fractal(px * 7.0f, py * 7.0f, 101);
    const float checks =
        (int(std::floor(px * 6.0f)) + int(std::floor(py * 6.0f))) & 1 ? 0.08f : 0.0f;
    return Mix({0.30f, 0.28f, 0.22f}, {0.75f, 0.70f, 0.62f}, std::clamp(n + checks, 0.0f, 1.0f));
}

// Index of the frontmost body that covers (x, y) at `time`, with the point in its own
// coordinates, or -1 for the background.
int Frontmost(float x, float y, float time, float& u, float& v) {
    for (int i = 0; i < int(kBodies.size()); ++i) {
        const Body& body = kBodies[size_t(i)];
        const float cx = body.x0 + body.vx * time, cy = body.y0 + body.vy * time;
        const float angle = body.angle0 + body.spin * time;
        const float c = std::cos(angle), s = std::sin(angle);
        const float dx = x - cx, dy = y - cy;
        u = c * dx + s * dy;
        v = -s * dx + c * dy;
        if (Inside(body, u, v)) return i;
    }
    return -1;
}

Rgb Sample(float x, float y, float time) {
    float u = 0.0f, v = 0.0f;
    const int body = Frontmost(x, y, time, u, v);
    return body < 0 ? Background(x, y, time) : Texture(kBodies[size_t(body)], u, v);
}

static_assert(kBodies.size() == kSynthObjects);

} // namespace

void RenderSynthLabels(const SynthSettings& settings, double time, MediaFrame& out) {
    out.Allocate({settings.width, settings.height, 1, SampleType::U8});
    const float scale = 1.0f / float(settings.height);
    for (int y = 0; y < settings.height; ++y) {
        std::uint8_t* row = out.Row<std::uint8_t>(y);
        for (int x = 0; x < settings.width; ++x) {
            float u = 0.0f, v = 0.0f;
            row[x] = std::uint8_t(1 + Frontmost((float(x) + 0.5f) * scale,
                                                (float(y) + 0.5f) * scale, float(time), u, v));
        }
    }
}

void RenderSynthFrame(const SynthSettings& settings, double time, MediaFrame& out) {
    MediaFormat linear{settings.width, settings.height, 3, SampleType::Float};
    MediaFrame rendered;
    rendered.Allocate(linear);
    const float scale = 1.0f / float(settings.height); // positions in frame heights
    const float t = float(time);
    constexpr int kSub = 3; // samples per pixel along each axis
    for (int y = 0; y < settings.height; ++y) {
        float* row = rendered.Row<float>(y);
        for (int x = 0; x < settings.width; ++x) {
            Rgb sum{0, 0, 0};
            for (int sy = 0; sy < kSub; ++sy)
                for (int sx = 0; sx < kSub; ++sx) {
                    const Rgb c = Sample((x + (sx + 0.5f) / kSub) * scale,
                                         (y + (sy + 0.5f) / kSub) * scale, t);
                    sum = {sum.r + c.r, sum.g + c.g, sum.b + c.b};
                }
            const float w = 1.0f / (kSub * kSub);
            row[3 * x] = sum.r * w;
            row[3 * x + 1] = sum.g * w;
            row[3 * x + 2] = sum.b * w;
        }
    }
    MediaFormat target = linear;
    target.sample = settings.sample;
    if (target.sample == SampleType::Float) {
        out = std::move(rendered);
        return;
    }
    ConvertFrame(rendered, target, out);
}

} // namespace quelmor::cli
