// The options of the engine's settings that quelmor retime and quelmor spark share, each declared
// once with its limits: both commands take the same values and refuse the same ones.
#pragma once

#include "cli/CommandLine.h"

namespace quelmor::cli {

inline constexpr const char* kInterpolationNames[] = {"nearest", "blend", "weighted"};
inline constexpr const char* kQualityNames[] = {"none", "sloppy", "medium", "high", "best"};
// The warping menu: "Inverse", "Inverse + Smart Blend" and "Forward", then the forward warp with
// its holes left empty, which the menu does not offer.
inline constexpr const char* kWarpingNames[] = {"inverse", "smart", "forward", "forward-alone"};

inline constexpr OptionSpec kSpeedOption{
    .name = "speed", .takesValue = true, .min = 0, .minExcluded = true};
inline constexpr OptionSpec kInterpolationOption{
    .name = "interpolation", .takesValue = true, .choices = kInterpolationNames};
inline constexpr OptionSpec kQualityOption{
    .name = "quality", .takesValue = true, .choices = kQualityNames};
inline constexpr OptionSpec kWarpingOption{
    .name = "warping", .takesValue = true, .choices = kWarpingNames};
// Motion blur along the vectors, in frames of motion; the engine's panel stops at 5.
inline constexpr OptionSpec kMotionBlurOption{
    .name = "motion-blur", .takesValue = true, .min = 0, .max = 5};
// Frames per second of a video output.
inline constexpr OptionSpec kRateOption{
    .name = "rate", .takesValue = true, .min = 0, .minExcluded = true, .max = 1000};

} // namespace quelmor::cli
