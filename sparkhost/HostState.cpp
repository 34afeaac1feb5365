#include "sparkhost/HostState.h"

#include "sparkhost/PluginLoader.h"
#include "sparkhost/WorkerPool.h"

#include <cstring>

SparkHostState& SparkHost() {
    static SparkHostState state;
    return state;
}

void SparkHostReset() {
    SparkHost() = SparkHostState{};
}

void SparkHostAllocateBuffer(SparkHostBuffer& buffer) {
    const SparkHostState& state = SparkHost();
    buffer.storage.assign(SparkHostFrameBytes(state.width, state.height, state.depth), 0);
    buffer.descriptor.Buffer = buffer.storage.empty() ? nullptr : buffer.storage.data();
    buffer.descriptor.BufState = SPARK_MEMBUF_LOCKED;
    buffer.descriptor.BufWidth = state.width;
    buffer.descriptor.BufHeight = state.height;
    buffer.descriptor.BufDepth = state.depth;
}

void SparkHostSetFrameFormat(int width, int height, int depth) {
    SparkHostState& state = SparkHost();
    state.width = width;
    state.height = height;
    state.depth = depth;
    for (int id : {kSparkResultBufferId, kSparkFrontBufferId, kSparkBackBufferId})
        state.buffers[id];
    for (auto& [id, buffer] : state.buffers)
        SparkHostAllocateBuffer(buffer);
    SparkHostSetFrameSize(width, height);
}

SparkHostBuffer* SparkHostGetBuffer(int id) {
    auto found = SparkHost().buffers.find(id);
    return found == SparkHost().buffers.end() ? nullptr : &found->second;
}

spark_info_struct SparkHostMakeInfo(int frameNo, unsigned int totalFrames, unsigned char runMode,
                                    const char* setupName) {
    const SparkHostState& state = SparkHost();
    spark_info_struct info{};
    strncpy(info.SetupName, setupName ? setupName : "", SPARK_SETUP_NAME_SIZE - 1);
    info.FrameBytes = int(SparkHostFrameBytes(state.width, state.height, state.depth));
    info.RunMode = runMode;
    info.NumCpus = static_cast<signed char>(SparkHostWorkerCount());
    info.FrameNo = frameNo;
    info.TotalFrameNo = totalFrames;
    info.FrameDepth = state.depth;
    return info;
}

SparkCurve& SparkHostCurve(int control) {
    SparkHostState& state = SparkHost();
    auto found = state.curves.find(control);
    if (found != state.curves.end()) return found->second;
    SparkCurve::Mode mode = SparkCurve::Mode::Linear;
    if (state.plugin) {
        const SparkPlugin::Record* record = state.plugin->FindNumber(control);
        if (record && record->kind == SparkPlugin::RecordKind::Int) mode = SparkCurve::Mode::Held;
    }
    return state.curves.emplace(control, SparkCurve(mode)).first->second;
}

std::string SparkHostSetupPath(const char* setupName) {
    std::string path = SparkHost().setupDirectory;
    if (!path.empty() && path.back() != '/') path += '/';
    return path + (setupName ? setupName : "") + ".setup";
}
