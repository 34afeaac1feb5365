// Changing the channel count of a frame whose sample type stays: RGB gains an opaque alpha,
// RGBA loses it, grey spreads to RGB. One pass over the pixels, loops the compiler vectorises;
// the general conversion (ConvertFrame) takes this road whenever it can.
#pragma once

#include "cli/MediaFrame.h"

namespace quelmor::cli {

// Writes `in` with `channels` channels into `out`; false, touching nothing, for a pair of channel
// counts it does not handle (anything but 1, 3 or 4 to 3 or 4, and equal counts).
bool CopyChannels(const MediaFrame& in, int channels, MediaFrame& out);

} // namespace quelmor::cli
