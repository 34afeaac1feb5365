#pragma once
// Conversion between 16-bit half floats (1 sign, 5 exponent, 10 mantissa bits) and floats, by
// bit manipulation so that every host gets the same values. Narrowing rounds by adding at bit 12,
// without ties to even, and flushes values below the smallest denormal to an unsigned zero.
#include <bit>
#include <cstdint>

inline float MyHalfToFloat(uint16_t half) {
    uint32_t sign = uint32_t(half >> 15) << 31;
    int32_t exponent = (half >> 10) & 31;
    uint32_t mantissa = half & 0x3ff;
    uint32_t bits;
    if (exponent == 0) {
        if (mantissa == 0) {
            bits = sign;
        } else {
            while (!(mantissa & 0x400)) {
                mantissa <<= 1;
                exponent -= 1;
            }
            exponent += 1;
            mantissa &= ~0x400u;
            bits = sign | uint32_t(exponent + 112) << 23 | mantissa << 13;
        }
    } else if (exponent == 31) {
        bits = sign | 0x7f800000u | mantissa << 13;
    } else {
        bits = sign | uint32_t(exponent + 112) << 23 | mantissa << 13;
    }
    return std::bit_cast<float>(bits);
}

inline uint16_t MyFloatToHalf(float value) {
    uint32_t bits = std::bit_cast<uint32_t>(value);
    uint32_t sign = (bits >> 16) & 0x8000;
    int32_t exponent = int32_t((bits >> 23) & 0xff) - 112;
    uint32_t mantissa = bits & 0x7fffff;
    if (exponent < 1) {
        if (exponent < -10) return 0;
        uint32_t shifted = (mantissa | 0x800000) >> (1 - exponent);
        if (shifted & 0x1000) shifted += 0x2000;
        return uint16_t(sign | shifted >> 13);
    }
    if (exponent == 143) {
        if (mantissa == 0) return uint16_t(sign | 0x7c00);
        uint32_t payload = mantissa >> 13;
        return uint16_t(sign | 0x7c00 | (payload == 0 ? 1 : payload));
    }
    if (mantissa & 0x1000) {
        mantissa += 0x2000;
        if (mantissa & 0x800000) {
            mantissa = 0;
            exponent += 1;
        }
    }
    if (exponent < 31) return uint16_t(sign | uint32_t(exponent) << 10 | mantissa >> 13);
    return uint16_t(sign | 0x7c00);
}
