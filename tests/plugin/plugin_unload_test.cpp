// A host that loads the plug-in for a setup and unloads it afterwards, again and again, must get
// its memory back each time: the engine's object, the source frames it keeps and the working
// blocks that wait for the next frame. The shared object is opened and closed with dlopen and
// dlclose, so this suite keeps no other handle on it.
#include "sparkhost/HostState.h"
#include "sparkhost/PluginLoader.h"
#include "sparkhost/WorkerPool.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__)
// The address sanitizer's count of live heap bytes (its allocator replaces malloc's statistics).
extern "C" size_t __sanitizer_get_current_allocated_bytes(void);
#endif

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kFrames = 3;
constexpr size_t kMiB = size_t(1) << 20;

// Bytes the process has allocated and not freed.
size_t HeapInUse() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#else
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
#endif
}

bool IsLoaded() {
    void* handle = dlopen(QUELMOR_SPARK_PATH, RTLD_NOW | RTLD_NOLOAD);
    if (!handle) return false;
    dlclose(handle);
    return true;
}

// One setup: load, initialise, render an in-between frame (flows and working images of the full
// size), optionally uninitialise, unload.
void RunOneSetup(bool unInitialise) {
    std::string error;
    std::unique_ptr<SparkPlugin> plugin = SparkPlugin::Load(QUELMOR_SPARK_PATH, &error);
    ASSERT_NE(plugin, nullptr) << error;
    SparkHostReset();
    SparkHost().plugin = plugin.get();
    SparkHost().setupDirectory = ::testing::TempDir();
    SparkHostSetFrameFormat(kWidth, kHeight, 24);
    auto clip = std::make_shared<SparkMemoryFrameSource>(kWidth, kHeight, 24);
    for (int frame = 0; frame < kFrames; ++frame) {
        const uint16_t rgb[3] = {uint16_t(40 + 60 * frame), 90, 200};
        clip->AddSolidFrame(rgb);
    }
    SparkHost().clips[0] = clip;

    const spark_info_struct info = SparkHostMakeInfo(0, kFrames, 0, "unload");
    ASSERT_EQ(plugin->Initialise(info), 1);
    plugin->MemoryTempBuffers();
    plugin->SetValue("SparkPup0", 1);     // Blend
    plugin->SetValue("SparkPup1", 1);     // Sloppy vectors
    plugin->SetValue("SparkFloat2", 0.5); // half speed: output frame 1 lies between sources
    ASSERT_EQ(plugin->ProcessStart(info), 1);
    for (int output = 0; output < 2; ++output)
        ASSERT_NE(plugin->Process(info), nullptr) << "output " << output;
    if (unInitialise) plugin->UnInitialise(info);

    SparkHostReset();
    plugin.reset();
}

class PluginUnloadTest : public ::testing::Test {
protected:
    void SetUp() override { SparkHostSetWorkerCount(2); }
    void TearDown() override {
        SparkHostSetWorkerCount(1);
        SparkHostReset();
    }
};

TEST_F(PluginUnloadTest, EveryLoadGivesItsMemoryBack) {
    constexpr int kSetups = 5;
    for (bool unInitialise : {true, false}) {
        SCOPED_TRACE(unInitialise ? "with SparkUnInitialise" : "unloaded without it");
        // The first setup warms up what the process keeps for good (the loader's own tables,
        // the host's workers, the stand-in host's buffers).
        RunOneSetup(unInitialise);
        ASSERT_FALSE(IsLoaded()) << "dlclose must unload the plug-in for this test to see leaks";
        const size_t before = HeapInUse();
        for (int setup = 1; setup < kSetups; ++setup) {
            RunOneSetup(unInitialise);
            if (HasFatalFailure()) return;
        }
        const size_t after = HeapInUse();
        const double grownMiB = (double(after) - double(before)) / double(kMiB);
        // One 640 x 480 working image alone is more than a mebibyte: anything kept across an
        // unload shows many times over.
        EXPECT_LT(grownMiB, 0.5) << "the heap grew by " << grownMiB << " MiB over " << kSetups - 1
                                 << " setups";
    }
}

} // namespace
