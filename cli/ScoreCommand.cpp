#include <cstdio>

#include "CommandLine.h"
#include "Commands.h"
#include "Media.h"
#include "Score.h"

namespace quelmor::cli {

int RunScore(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("score", args, {});
    if (line.files.size() != 2) throw UsageError("quelmor score wants two clips: RESULT TRUTH");
    auto result = OpenMedia(line.files[0]);
    auto truth = OpenMedia(line.files[1]);
    const ClipScore score = ScoreClips(*result, *truth);
    std::printf("PSNR %.2f dB over %d frames, worst frame %d at %.2f dB\n", score.psnr,
                score.frames, score.worstFrame, score.worstPsnr);
    return 0;
}

} // namespace quelmor::cli
