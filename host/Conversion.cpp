#include "host/Conversion.h"

#include "host/HostFormat.h"

#include <cstdio>
#include <cstring>

int gCombineMode = 0;

namespace {

const void* gConvSrc = nullptr;
void* gConvDst = nullptr;
void* gConvAux = nullptr;
int gConvChannel = 0;

// The run of pixels that the calling worker owns.
struct PixelRun {
    unsigned long first = 0;
    unsigned long count = 0;
};

PixelRun WorkerRun() {
    PixelRun run;
    sparkMpInfo(&run.first, &run.count);
    return run;
}

template <class H>
void Combine4Run(PixelRun run, int mode) {
    using I = typename H::Image;
    auto* dst = static_cast<I*>(gConvDst) + run.first * 4;
    auto* src = static_cast<const typename H::Host*>(gConvSrc) + run.first * 3;
    bool white = mode == 1 && std::is_same_v<H, MyHost12>;
    for (unsigned long i = 0; i < run.count; ++i, dst += 4, src += 3) {
        for (int c = 0; c < 3; ++c)
            dst[c] = white ? H::kWhite : H::Widen(src[c]);
        dst[3] = H::kWhite;
    }
}

void Combine4Worker(void* argument) {
    auto* info = static_cast<spark_info_struct*>(argument);
    if (!info) return;
    PixelRun run = WorkerRun();
    if (!gConvDst || !gConvSrc) return;
    if (gCombineMode == 1 && !gConvAux) return;
    MyDispatchHostDepth(info->FrameDepth, [&]<class H>() { Combine4Run<H>(run, gCombineMode); });
}

template <class H>
void Combine1Run(PixelRun run, int channel, bool invert) {
    using I = typename H::Image;
    auto* dst = static_cast<I*>(gConvDst) + run.first;
    auto* src = static_cast<const typename H::Host*>(gConvSrc) + run.first * 3 + channel;
    for (unsigned long i = 0; i < run.count; ++i, src += 3) {
        I value = H::Widen(*src);
        dst[i] = invert ? H::Invert(value) : value;
    }
}

void Combine1Worker(void* argument) {
    auto* info = static_cast<spark_info_struct*>(argument);
    if (!info) return;
    PixelRun run = WorkerRun();
    int channel = gConvChannel;
    bool invert = false;
    if (channel > 3) {
        channel = -4;
        invert = true;
    }
    // Only R, G and B select anything; every other selector leaves the image alone.
    if (!gConvDst || !gConvSrc || channel < 0 || channel > 2) return;
    MyDispatchHostDepth(info->FrameDepth, [&]<class H>() { Combine1Run<H>(run, channel, invert); });
}

template <class H>
void UnCombine4Run(PixelRun run) {
    using I = typename H::Image;
    using Host = typename H::Host;
    auto* host = static_cast<Host*>(gConvDst) + run.first * 3;
    auto* matte = static_cast<Host*>(gConvAux) + run.first * 3;
    auto* src = static_cast<const I*>(gConvSrc) + run.first * 4;
    for (unsigned long i = 0; i < run.count; ++i, host += 3, matte += 3, src += 4) {
        for (int c = 0; c < 3; ++c)
            host[c] = H::Narrow(src[c], host[c]);
        for (int c = 0; c < 3; ++c)
            matte[c] = H::Narrow(src[3], matte[c]);
    }
}

void UnCombine4Worker(void* argument) {
    auto* info = static_cast<spark_info_struct*>(argument);
    if (!info) return;
    PixelRun run = WorkerRun();
    if (!gConvDst || !gConvSrc || !gConvAux) {
        printf("uncombine 4 pixel %d offset %d MISSING BUFFER  \n", int(run.count), int(run.first));
        return;
    }
    MyDispatchHostDepth(info->FrameDepth, [&]<class H>() { UnCombine4Run<H>(run); });
}

template <class H>
void UnCombine1Run(PixelRun run) {
    using I = typename H::Image;
    using Host = typename H::Host;
    auto* host = static_cast<Host*>(gConvDst) + run.first * 3;
    auto* src = static_cast<const I*>(gConvSrc) + run.first;
    for (unsigned long i = 0; i < run.count; ++i, host += 3) {
        I value = src[i];
        if constexpr (std::is_same_v<H, MyHost12>) {
            // The value goes through a float; the other two words copy the first one's top bits.
            host[0] = H::Narrow(I(int(float(value))), host[0]);
            host[1] = Host((host[1] & 15) | (host[0] & 0xfff0));
            host[2] = Host((host[2] & 15) | (host[0] & 0xfff0));
        } else {
            for (int c = 0; c < 3; ++c)
                host[c] = H::Narrow(value, host[c]);
        }
    }
}

void UnCombine1Worker(void* argument) {
    auto* info = static_cast<spark_info_struct*>(argument);
    if (!info) return;
    PixelRun run = WorkerRun();
    if (!gConvDst || !gConvSrc) return;
    MyDispatchHostDepth(info->FrameDepth, [&]<class H>() { UnCombine1Run<H>(run); });
}

void ClearFrame(const spark_info_struct* info, void* buffer) {
    if (info && buffer && info->FrameBytes > 0) memset(buffer, 0, size_t(info->FrameBytes));
}

} // namespace

int sparkCombine4Buffers(spark_info_struct* info, void* image, void* hostFrame, void* aux,
                         int mode) {
    gConvDst = image;
    gConvSrc = hostFrame;
    gConvAux = aux;
    gCombineMode = mode;
    ClearFrame(info, image);
    sparkMpFork(Combine4Worker, 1, info);
    return 1;
}

int sparkCombine1Buffers(spark_info_struct* info, void* image, void* hostFrame, int channel) {
    gConvDst = image;
    gConvSrc = hostFrame;
    gConvChannel = channel;
    sparkMpFork(Combine1Worker, 1, info);
    return 1;
}

int sparkUnCombine4Buffers(spark_info_struct* info, void* hostFrame, void* image,
                           void* matteFrame) {
    gConvDst = hostFrame;
    gConvSrc = image;
    gConvAux = matteFrame;
    ClearFrame(info, hostFrame);
    sparkMpFork(UnCombine4Worker, 1, info);
    return 1;
}

int sparkUnCombine1Buffers(spark_info_struct* info, void* hostFrame, void* image) {
    gConvDst = hostFrame;
    gConvSrc = image;
    sparkMpFork(UnCombine1Worker, 1, info);
    return 1;
}
