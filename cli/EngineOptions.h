// The options of the engine's settings that quelmor retime and quelmor spark share, each declared
// once with its limits: both commands take the same values and refuse the same ones.
#pragma once

#include <cstddef>

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
// The commands that drive the engine directly also offer vectors at the frame's own size, which
// the panel does not.
inline constexpr const char* kDirectQualityNames[] = {"none", "sloppy", "medium",
                                                      "high", "best",   "full"};
inline constexpr OptionSpec kDirectQualityOption{
    .name = "quality", .takesValue = true, .choices = kDirectQualityNames};
inline constexpr OptionSpec kWarpingOption{
    .name = "warping", .takesValue = true, .choices = kWarpingNames};
// Motion blur along the vectors, in frames of motion; the engine's panel stops at 5.
inline constexpr OptionSpec kMotionBlurOption{
    .name = "motion-blur", .takesValue = true, .min = 0, .max = 5};
// Frames per second of a video output.
inline constexpr OptionSpec kRateOption{
    .name = "rate", .takesValue = true, .min = 0, .minExcluded = true, .max = 1000};

// Foreground layers of quelmor retime: how far each matte is grown around its object, the
// layers' motion sensitivity and which layers are drawn.
inline constexpr std::size_t kMostForegroundLayers = 9;
inline constexpr const char* kDrawNames[] = {"all", "foreground", "background"};
inline constexpr OptionSpec kMatteShrinkOption{
    .name = "matte-shrink", .takesValue = true, .min = 0, .max = 100};
inline constexpr OptionSpec kLayerSensitivityOption{
    .name = "layer-sensitivity", .takesValue = true, .min = 0, .max = 1};
inline constexpr OptionSpec kDrawOption{.name = "draw", .takesValue = true, .choices = kDrawNames};

} // namespace quelmor::cli
