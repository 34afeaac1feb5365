#include "sparkhost/HostRun.h"

#include "sparkhost/HostState.h"

namespace {
// One process call; false when the plug-in gave no frame or the sink wants no more.
bool ProcessOne(const SparkPlugin& plugin, const spark_info_struct& info, int index,
                const SparkHostFrameSink& sink, bool* failed) {
    const void* frame = plugin.Process(info);
    if (!frame) {
        *failed = true;
        return false;
    }
    return sink(index, frame);
}
} // namespace

int SparkHostRunClip(const SparkPlugin& plugin, unsigned int totalFrames,
                     const SparkHostFrameSink& sink, const char* setupName) {
    int delivered = 0;
    bool failed = false;
    for (unsigned int input = 0; input < totalFrames; ++input) {
        const spark_info_struct info = SparkHostMakeInfo(int(input), totalFrames, 0, setupName);
        const int count = plugin.ProcessStart(info);
        for (int i = 0; i < count; ++i) {
            if (!ProcessOne(plugin, info, delivered, sink, &failed))
                return failed ? -1 : delivered + 1;
            ++delivered;
        }
    }
    return delivered;
}

int SparkHostRunCurve(const SparkPlugin& plugin, int outputFrames, unsigned int totalFrames,
                      const SparkHostFrameSink& sink, const char* setupName) {
    bool failed = false;
    for (int output = 0; output < outputFrames; ++output) {
        const spark_info_struct info = SparkHostMakeInfo(output, totalFrames, 1, setupName);
        plugin.ProcessStart(info);
        if (!ProcessOne(plugin, info, output, sink, &failed)) return failed ? -1 : output + 1;
    }
    return outputFrames;
}
