#include "warp/LirpedTable.h"

#include "image/Error.h"
#include "image/Mem.h"

#include <cmath>

LirpedTable::LirpedTable(int count, Function function, float* storage, float firstArg,
                         float lastArg)
    : first(firstArg), last(lastArg) {
    if (count < 2 || !function || !(lastArg != firstArg)) DQThrow(kDQErrBadArgument);
    lastIndex = static_cast<float>(count - 1);
    perUnit = lastIndex / (last - first);
    if (storage) {
        values = storage;
    } else {
        values = static_cast<float*>(ZUMemAllocate(sizeof(float) * static_cast<size_t>(count)));
        ownsValues = 1;
    }
    for (int i = 0; i < count; ++i)
        values[i] = function(first + static_cast<float>(i) * (last - first) / lastIndex);
}

LirpedTable::~LirpedTable() {
    if (ownsValues) ZUMemRelease(values);
}

float LirpedTable::Lookup(float x) const {
    const float t = (x - first) * perUnit;
    if (!(t > 0.0f)) return values[0];
    const int i = static_cast<int>(t);
    if (lastIndex > static_cast<float>(i)) return values[i] + (values[i + 1] - values[i]) * (t - i);
    return values[static_cast<int>(lastIndex)];
}

namespace {
constexpr float kRadiansPerDegree = 0.017453292f;
float CosDegrees(float d) {
    return std::cos(d * kRadiansPerDegree);
}
float SinDegrees(float d) {
    return std::sin(d * kRadiansPerDegree);
}

float WrapDegrees(float x) {
    if (!(std::fabs(x) < 1.0e6f)) x = std::fmod(x, 360.0f); // NaN and huge angles
    while (x < 0.0f)
        x += 360.0f;
    while (x >= 360.0f)
        x -= 360.0f;
    return x;
}
} // namespace

CosTableInDegrees::CosTableInDegrees(int count)
    : LirpedTable(count, CosDegrees, nullptr, 0.0f, 360.0f) {}

float CosTableInDegrees::Lookup(float degrees) const {
    return LirpedTable::Lookup(WrapDegrees(degrees));
}

SinTableInDegrees::SinTableInDegrees(int count)
    : LirpedTable(count, SinDegrees, nullptr, 0.0f, 360.0f) {}

float SinTableInDegrees::Lookup(float degrees) const {
    return LirpedTable::Lookup(WrapDegrees(degrees));
}

float CubicBSplineKernel(float x) {
    const float a = std::fabs(x);
    if (a < 1.0f) return 0.5f * a * a * a - a * a + 2.0f / 3.0f;
    if (a < 2.0f) {
        const float b = 2.0f - a;
        return b * b * b / 6.0f;
    }
    return 0.0f;
}

const LirpedTable& CubicBSplineTable() {
    static const LirpedTable table(2049, CubicBSplineKernel, nullptr, 0.0f, 2.0f);
    return table;
}
