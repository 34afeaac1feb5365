#include "image/ShortFlow.h"

#include <algorithm>
#include <cstring>

uint16_t DQEncodeShortFlow(float value, int range) {
    const float quotient = static_cast<float>(static_cast<double>(value) * 32767.0 / range);
    const double clamped = std::clamp(static_cast<double>(quotient), -32767.0, 32767.0);
    return static_cast<uint16_t>(static_cast<int>(clamped + 32767.0 + 0.5));
}

float DQDecodeShortFlow(float stored, int range) {
    return static_cast<float>((stored - 32767.0) / 32767.0 * range);
}

void ConvertFloatFlow2ShortFlow::ConvertPixel(void* destination, const void* source) {
    float in[2];
    std::memcpy(in, source, sizeof in);
    const uint16_t out[2] = {DQEncodeShortFlow(in[0], range), DQEncodeShortFlow(in[1], range)};
    std::memcpy(destination, out, sizeof out);
}

void ConvertShortFlow2FloatFlow::ConvertPixel(void* destination, const void* source) {
    uint16_t in[2];
    std::memcpy(in, source, sizeof in);
    const float out[2] = {DQDecodeShortFlow(in[0], range), DQDecodeShortFlow(in[1], range)};
    std::memcpy(destination, out, sizeof out);
}
