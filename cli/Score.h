// How close a rendered clip comes to the true frames: peak signal-to-noise ratio.
#pragma once

#include "Media.h"

namespace quelmor::cli {

// PSNR in dB of the colour channels on a 0 to 1 scale; 99 for identical frames.
// Frames must have one size; samples of any type are compared by value.
double Psnr(const MediaFrame& a, const MediaFrame& b);

struct ClipScore {
    int frames = 0;
    double meanPsnr = 0;
    double worstPsnr = 0;
    int worstFrame = 0;
};

// Compares frame i of `result` with frame i of `truth` for the frames both hold.
ClipScore ScoreClips(MediaReader& result, MediaReader& truth);

} // namespace quelmor::cli
