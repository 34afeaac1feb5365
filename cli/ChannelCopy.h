// Changing the channel count of a frame whose sample type stays, or whose integers become halves,
// between grey (1), grey and alpha (2), RGB (3) and RGBA (4): alpha is kept where both have it and
// opaque where only the destination has it, grey spreads to RGB, and RGB becomes grey by its red
// (grey sources stay R = G = B through the engine). One pass over the pixels; the
// general conversion (ConvertFrame) takes this road whenever it can.
#pragma once

#include <cstdint>

#include "cli/MediaFrame.h"

namespace quelmor::cli {

// Writes `in` with `channels` channels into `out`; false, touching nothing, for a pair of channel
// counts it does not handle (anything outside 1 to 4).
bool CopyChannels(const MediaFrame& in, int channels, MediaFrame& out);

// The same for 8-bit or 16-bit samples turned into halves: `halfOf` holds the bits of the half
// of every integer value (256 or 65536 entries), as the general conversion would round it. False,
// touching nothing, for other sample types and the pairs of counts above.
bool IntegersToHalves(const MediaFrame& in, int channels, const std::uint16_t* halfOf,
                      MediaFrame& out);

} // namespace quelmor::cli
