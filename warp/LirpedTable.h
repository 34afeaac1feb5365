#pragma once
// Tables of a function sampled at equal steps and read back with linear interpolation.
#include <cstdint>

class LirpedTable {
public:
    using Function = float (*)(float);

    // `count` entries of function(first + i * (last - first) / (count - 1)). With null `values`
    // the table allocates and owns its array; otherwise it fills and borrows the caller's.
    // A count below 2 throws DQErr 5.
    LirpedTable(int count, Function function, float* values, float first, float last);
    virtual ~LirpedTable();
    LirpedTable(const LirpedTable&) = delete;
    LirpedTable& operator=(const LirpedTable&) = delete;

    // The interpolated value at x. Arguments outside first..last are the caller's concern; they
    // read the nearest end entry.
    virtual float Lookup(float x) const;

    float* values = nullptr;
    float first = 0.0f;
    float last = 0.0f;
    float lastIndex = 0.0f;
    float perUnit = 0.0f;
    int32_t ownsValues = 0;
};

// cos and sin of an angle in degrees; any angle is first brought into 0..360.
class CosTableInDegrees : public LirpedTable {
public:
    explicit CosTableInDegrees(int count = 3601);
    float Lookup(float degrees) const override;
};

class SinTableInDegrees : public LirpedTable {
public:
    explicit SinTableInDegrees(int count = 3601);
    float Lookup(float degrees) const override;
};

// The cubic B-spline kernel: 0.5 a^3 - a^2 + 2/3 below 1, (2 - a)^3 / 6 below 2, 0 beyond.
float CubicBSplineKernel(float x);

// The process's one table of the cubic B-spline over 0..2, made on first use and released at
// exit.
const LirpedTable& CubicBSplineTable();
