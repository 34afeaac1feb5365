// The track file of the Shake compositor's trackers (Save Track File), which other trackers
// export too. One block per track:
//
//   TrackName NAME
//      Frame             X             Y   Correlation
//      1.00        462.000       210.000         1.000
//      2.00        405.000       192.000         1.000
//
// Blank lines part the blocks; the column header is optional and the correlation column may be
// left out (it is read and not used). Frames are whole numbers, 1 for the clip's first frame.
// Positions are in pixels with (0, 0) the lower-left corner of the frame and y running up, so a
// pixel's centre lies at half-pixel positions.
#pragma once

#include <string>

namespace quelmor::cli {

// Whether the first line that is not blank starts with "TrackName".
bool LooksLikeShakeTracks(const std::string& text);

} // namespace quelmor::cli
