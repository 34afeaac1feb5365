#pragma once
// The two stored forms of a flow image: float vectors as they are, or 16-bit words around 32767
// scaled by a range (the larger image side unless given), and the per-pixel converters.
#include "image/Mem.h"

#include <cstdint>

// stored = trunc(clamp(v * 32767 / range, -32767, 32767) + 32767 + 0.5)
uint16_t DQEncodeShortFlow(float value, int range);
// v = (stored - 32767) / 32767 * range; takes a float so interpolated words decode too.
float DQDecodeShortFlow(float stored, int range);

class ConvertImagePixel : public ZUMem {
public:
    virtual ~ConvertImagePixel() = default;
    virtual void ConvertPixel(void* destination, const void* source) = 0;
};

// Two floats in, two short-flow words out.
class ConvertFloatFlow2ShortFlow : public ConvertImagePixel {
public:
    explicit ConvertFloatFlow2ShortFlow(int range) : range(range) {}
    void ConvertPixel(void* destination, const void* source) override;
    int32_t range;
};

// Two short-flow words in, two floats out.
class ConvertShortFlow2FloatFlow : public ConvertImagePixel {
public:
    explicit ConvertShortFlow2FloatFlow(int range) : range(range) {}
    void ConvertPixel(void* destination, const void* source) override;
    int32_t range;
};
