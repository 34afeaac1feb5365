// The host operations a plug-in calls, answered from the stand-in host's state. The worker
// operations sparkMpFork and sparkMpInfo live with the worker pool.
#include "host/Spark.h"
#include "sparkhost/HostState.h"
#include "sparkhost/PluginLoader.h"
#include "sparkhost/SetupFile.h"

#include <cstdio>

extern "C" {

float sparkAPIVersionInfo(void) {
    return SparkHost().apiVersion;
}

void sparkError(const char* text) {
    SparkHostState& state = SparkHost();
    state.lastError = text ? text : "";
    ++state.errorCount;
    fprintf(stderr, "%s\n", state.lastError.c_str());
}

void sparkMessage(const char* text) {
    SparkHostState& state = SparkHost();
    state.statusLine = text ? text : "";
    ++state.messageCount;
    if (state.echoMessages) printf("%s\n", state.statusLine.c_str());
}

const char* sparkProgramGetName(void) {
    return SparkHost().programName.c_str();
}

int sparkLoadSetup(const char* setupName) {
    const SparkHostState& state = SparkHost();
    if (!state.plugin || !setupName || !*setupName) return 0;
    return SparkLoadSetupFile(*state.plugin, SparkHostSetupPath(setupName)) ? 1 : 0;
}

int sparkSaveSetup(const char* setupName) {
    const SparkHostState& state = SparkHost();
    if (!state.plugin || !setupName || !*setupName) return 0;
    return SparkSaveSetupFile(*state.plugin, SparkHostSetupPath(setupName)) ? 1 : 0;
}

int sparkCallingEnv(void) {
    return SparkHost().callingEnv;
}

void sparkCursorBusy(void) {
    ++SparkHost().busyCursorCount;
}

void sparkViewingDraw(void) {
    ++SparkHost().redrawCount;
}

int sparkMemRegisterBuffer(void) {
    SparkHostState& state = SparkHost();
    const int id = state.nextTempBufferId++;
    SparkHostAllocateBuffer(state.buffers[id]);
    return id;
}

int sparkMemGetBuffer(int id, spark_membuf_struct* descriptor) {
    SparkHostBuffer* buffer = SparkHostGetBuffer(id);
    if (!buffer || !buffer->available || !descriptor) return 0;
    *descriptor = buffer->descriptor;
    return 1;
}

int sparkGetFrame(int clip, int frame, void* destination) {
    SparkHostState& state = SparkHost();
    if (clip < 0 || clip > 3 || !destination) return 0;
    ++state.fetchCount[size_t(clip)];
    SparkFrameSource* source = state.clips[size_t(clip)].get();
    if (!source) return 0;
    if (source->Width() != state.width || source->Height() != state.height ||
        source->Depth() != state.depth) {
        sparkError("sparkGetFrame: clip format differs from the frame format");
        return 0;
    }
    const size_t bytes = SparkHostFrameBytes(state.width, state.height, state.depth);
    return source->ReadFrame(frame, destination, bytes) ? 1 : 0;
}

float sparkGetCurveValue(int controlClass, int control, int frame) {
    return sparkGetCurveValuef(controlClass, control, float(frame));
}

float sparkGetCurveValuef(int /*controlClass*/, int control, float frame) {
    SparkHostState& state = SparkHost();
    ++state.curveReadCount;
    auto found = state.curves.find(control);
    if (found != state.curves.end() && found->second.HasKeys()) return found->second.ValueAt(frame);
    if (state.plugin) {
        if (const SparkPlugin::Record* record = state.plugin->FindNumber(control))
            return float(state.plugin->Value(*record).value_or(0.0));
    }
    return 0.0f;
}

} // extern "C"
