#pragma once
// Helpers of the flow benchmarks: the shared data folder, the worker set-up, PNG reading and the
// engine's two flows of a pair.
#include "flow/Flow.h"
#include "image/Parallel.h"
#include "sparkhost/DirectWorkers.h"
#include "warp/Warp.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <thread>
#include <vector>

#ifdef QUELMOR_HAVE_OIIO
#include <OpenImageIO/imageio.h>
#endif

namespace quelmor::bench {

using Owned = std::unique_ptr<DQImage>;

inline std::filesystem::path DataDir() {
    for (const char* dir : {QUELMOR_DATA_DIR, "/work/shared/data"})
        if (std::filesystem::exists(dir)) return dir;
    return {};
}

inline void SetWorkers(int width, int height) {
    const int workers = std::max(1u, std::min(64u, std::thread::hardware_concurrency()));
    SparkHostUseWorkersDirect(workers, width, height);
}

// Reads an image as 8-bit RGBA; null when it cannot be read.
inline Owned ReadRGBA(const std::filesystem::path& path) {
#ifdef QUELMOR_HAVE_OIIO
    auto input = OIIO::ImageInput::open(path.string());
    if (!input) return nullptr;
    const OIIO::ImageSpec& header = input->spec_dimensions(0);
    std::vector<uint8_t> pixels(static_cast<size_t>(header.width) * header.height *
                                header.nchannels);
    if (!input->read_image(0, 0, 0, header.nchannels, OIIO::TypeDesc::UINT8, pixels.data()))
        return nullptr;
    Owned image(new DQImage(header.width, header.height, 4, DQ_UCHAR, 0));
    for (int y = 0; y < header.height; ++y)
        for (int x = 0; x < header.width; ++x) {
            const uint8_t* in =
                &pixels[(static_cast<size_t>(y) * header.width + x) * header.nchannels];
            uint8_t* out = image->Row<uint8_t>(y) + 4 * x;
            for (int c = 0; c < 3; ++c)
                out[c] = in[header.nchannels >= 3 ? c : 0];
            out[3] = header.nchannels == 4 ? in[3] : 255;
        }
    return image;
#else
    (void)path;
    return nullptr;
#endif
}

// The engine's two flows of a pair: A to B, then B to A from the swapped pyramids.
inline void TwoFlows(DQOpticalFlowUChar& flow, DQImage* a, DQImage* b, DQImage* forward,
                     DQImage* backward) {
    flow.ComputeFlow(forward, a, b, 1, 1, 0, nullptr);
    flow.SwapImages();
    flow.SolveLoadedFlow(backward, 1, 0, nullptr);
    flow.SwapImages();
}

} // namespace quelmor::bench
