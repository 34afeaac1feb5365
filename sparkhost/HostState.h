#pragma once
// The stand-in host's side of the Spark interface: the state behind the host operations of
// host/Spark.h, which a driver (the command, a test) configures and inspects. One per process.
#include "host/Spark.h"
#include "sparkhost/Curve.h"
#include "sparkhost/FrameSource.h"

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

class SparkPlugin;

// Ids of the host's frame buffers; temporary buffers get ids from kSparkFirstTempBufferId on.
enum SparkHostBufferId : int {
    kSparkResultBufferId = 1,
    kSparkFrontBufferId = 2,
    kSparkBackBufferId = 3,
    kSparkFirstTempBufferId = 6,
};

// One frame buffer: its storage and the descriptor sparkMemGetBuffer hands out. Tests may change
// the descriptor (clear the locked bit, null the pointer) to play a misbehaving host.
struct SparkHostBuffer {
    std::vector<uint8_t> storage;
    spark_membuf_struct descriptor{};
    bool available = true; // false: sparkMemGetBuffer fails for this id
};

struct SparkHostState {
    // What the host answers.
    float apiVersion = 5.0f;
    std::string programName = "sparkhost";
    int callingEnv = 0;
    std::string setupDirectory; // where setups are stored; empty: the current directory
    bool echoMessages = false;  // also print sparkMessage lines on standard output

    // What the plug-in did.
    std::string statusLine;
    int messageCount = 0;
    std::string lastError;
    int errorCount = 0;
    int busyCursorCount = 0;
    int redrawCount = 0;
    int curveReadCount = 0;
    std::array<int, 4> fetchCount{};

    // Frames and buffers, in the format set by SparkHostSetFrameFormat.
    int width = 0, height = 0, depth = 0;
    std::map<int, SparkHostBuffer> buffers;
    int nextTempBufferId = kSparkFirstTempBufferId;
    std::array<std::shared_ptr<SparkFrameSource>, 4> clips;

    // Animation curves by control number; a control without keys reads its record's value.
    std::map<int, SparkCurve> curves;

    // The loaded plug-in whose records the setups and curves refer to; may be null.
    const SparkPlugin* plugin = nullptr;
};

SparkHostState& SparkHost();
// Back to a fresh host: default answers, no buffers, clips, curves or plug-in.
void SparkHostReset();
// Sets the frame format, (re)allocates the result, front, back and registered temporary buffers,
// locked and zeroed, and slices the workers' frame by the result buffer's size.
void SparkHostSetFrameFormat(int width, int height, int depth);
// (Re)allocates a buffer for the current format, zeroed and locked.
void SparkHostAllocateBuffer(SparkHostBuffer& buffer);
// The descriptor of buffer `id`, or null.
SparkHostBuffer* SparkHostGetBuffer(int id);
// A host record for a call: the current format, the workers, the setup name.
spark_info_struct SparkHostMakeInfo(int frameNo, unsigned int totalFrames, unsigned char runMode,
                                    const char* setupName = "quelmor");
// The curve of a control, made on first use: held for integer records (such as the scene
// field), linear otherwise.
SparkCurve& SparkHostCurve(int control);
// Setup file of a name: setupDirectory/name.setup.
std::string SparkHostSetupPath(const char* setupName);
