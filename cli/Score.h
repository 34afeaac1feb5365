// How close a rendered clip comes to the true frames: peak signal-to-noise ratio.
#pragma once

#include "Media.h"

namespace quelmor::cli {

// Mean squared difference of the colour channels on a 0 to 1 scale. Frames must have
// one size; samples of any type are compared by value.
double MeanSquaredError(const MediaFrame& a, const MediaFrame& b);
// Peak signal-to-noise ratio in dB of a mean squared error; 99 for identical pictures.
double PsnrOf(double meanSquaredError);
inline double Psnr(const MediaFrame& a, const MediaFrame& b) {
    return PsnrOf(MeanSquaredError(a, b));
}

struct ClipScore {
    int frames = 0;
    double psnr = 0; // of the mean squared error over all frames
    double worstPsnr = 0;
    int worstFrame = 0;
};

// Compares frame i of `result` with frame i of `truth` for the frames both hold.
ClipScore ScoreClips(MediaReader& result, MediaReader& truth);

} // namespace quelmor::cli
