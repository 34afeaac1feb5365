// The shared object as the host sees it: loaded with dlopen into this process, which supplies the
// host operations from the stand-in host and also links its own copy of the core. Entry points
// and records are found by name and driven as the host drives them.
#include "image/Parallel.h"
#include "sparkhost/HostRun.h"
#include "sparkhost/HostState.h"
#include "sparkhost/PluginLoader.h"
#include "sparkhost/WorkerPool.h"
#include "tests/plugin/HostAllocation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <iterator>
#include <limits>
#include <map>
#include <set>
#include <sstream>
#include <tuple>

namespace {

constexpr int kWidth = 8;
constexpr int kHeight = 6;
constexpr int kFrames = 6;

SparkPlugin* gPlugin = nullptr;
// Record values as the plug-in was loaded, restored before every case.
std::map<std::string, double> gDefaults;

uint16_t Level(int frame) {
    return uint16_t(20 + 30 * frame);
}

class PluginTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        std::string error;
        static std::unique_ptr<SparkPlugin> plugin = SparkPlugin::Load(QUELMOR_SPARK_PATH, &error);
        ASSERT_NE(plugin, nullptr) << error;
        gPlugin = plugin.get();
        for (const auto& record : gPlugin->Records())
            if (auto value = gPlugin->Value(record)) gDefaults[record.name] = *value;
    }

    void SetUp() override {
        ASSERT_NE(gPlugin, nullptr);
        for (const auto& [name, value] : gDefaults)
            gPlugin->SetValue(name, value);
        SparkHostReset();
        SparkHost().plugin = gPlugin;
        SparkHost().setupDirectory = ::testing::TempDir();
        SparkHostSetWorkerCount(3);
        Prepare(24);
        info_ = SparkHostMakeInfo(0, kFrames, 0, "");
        ASSERT_EQ(gPlugin->Initialise(info_), 1);
        gPlugin->MemoryTempBuffers();
        ResetClipPanel();
    }

    void TearDown() override {
        gPlugin->UnInitialise(info_);
        SparkHostSetWorkerCount(1);
        SparkHostReset();
    }

    // Sets the host's format and a clip of solid frames in it.
    void Prepare(int depth) {
        SparkHostSetFrameFormat(kWidth, kHeight, depth);
        auto clip = std::make_shared<SparkMemoryFrameSource>(kWidth, kHeight, depth);
        for (int frame = 0; frame < kFrames; ++frame) {
            const uint16_t level = depth == 24 ? Level(frame) : uint16_t(Level(frame) << 4);
            const uint16_t rgb[3] = {level, level, level};
            clip->AddSolidFrame(rgb);
        }
        SparkHost().clips[0] = clip;
    }

    void ResetClipPanel() const {
        for (const char* name : {"SparkPup0", "SparkPup1", "SparkFloat3", "SparkPup4", "SparkPup5"})
            gPlugin->SetValue(name, 0); // Nearest, no motion vectors, no blur, no fields
        gPlugin->SetValue("SparkFloat2", 1.0);
        *gPlugin->AutoDuration() = 1;
    }

    spark_info_struct Info(int frame, unsigned total, unsigned char runMode) const {
        return SparkHostMakeInfo(frame, total, runMode, "");
    }

    static uint8_t* Result() { return SparkHostGetBuffer(kSparkResultBufferId)->storage.data(); }

    spark_info_struct info_{};
};

std::string CapturedStdout() {
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

TEST_F(PluginTest, OutputCountsOfAStep) {
    const char* empty = "SparkProcessStart: Error total clip length <= 0\n";
    const struct {
        float speed;
        unsigned total;
        int frame;
        unsigned char runMode;
        int expected;
        const char* printed = "";
    } cases[] = {
        {1.0f, 100, 37, 0, 1},   {2.0f, 100, 98, 0, 0},     {2.0f, 100, 99, 0, 50},
        {0.5f, 100, 99, 0, 101}, {10.0f, 5, 4, 0, 0},       {1.00005f, 100, 99, 0, 99},
        {2.0f, 100, 99, 1, 0},   {1.0f, 0, 0, 0, 1, empty}, {1.0f, 0, 0, 1, 1, empty},
    };
    for (const auto& c : cases) {
        gPlugin->SetValue("SparkFloat2", c.speed);
        ::testing::internal::CaptureStdout();
        EXPECT_EQ(gPlugin->ProcessStart(Info(c.frame, c.total, c.runMode)), c.expected)
            << c.speed << " over " << c.total << ", frame " << c.frame << ", mode " << +c.runMode;
        EXPECT_EQ(CapturedStdout(), c.printed) << c.speed << " over " << c.total;
    }
    *gPlugin->AutoDuration() = 0;
    gPlugin->SetValue("SparkFloat2", 2.0);
    EXPECT_EQ(gPlugin->ProcessStart(Info(0, 100, 0)), 1) << "the host decides the length";
}

TEST_F(PluginTest, SpeedUpShowsProgressOnTheStatusLine) {
    gPlugin->SetValue("SparkFloat2", 2.0);
    const spark_info_struct last = Info(kFrames - 1, kFrames, 0);
    ASSERT_EQ(gPlugin->ProcessStart(last), 3);
    for (int output = 0; output < 3; ++output) {
        ASSERT_NE(gPlugin->Process(last), nullptr);
        EXPECT_EQ(SparkHost().statusLine,
                  "3 Frames, Processing Frame " + std::to_string(output + 1) + ".");
        // Nearest at source time 2 x output shows source frame 2 x output.
        EXPECT_EQ(Result()[0], Level(2 * output)) << "output " << output;
    }
    // A speed close to 1 shows no message.
    const int messages = SparkHost().messageCount;
    for (float speed : {1.0f, 1.00005f}) {
        gPlugin->SetValue("SparkFloat2", speed);
        gPlugin->ProcessStart(Info(1, kFrames, 0));
        gPlugin->Process(Info(1, kFrames, 0));
    }
    EXPECT_EQ(SparkHost().messageCount, messages) << SparkHost().statusLine;
}

TEST_F(PluginTest, SourceFramesComeBackUnchangedInEveryDepth) {
    for (int depth : {24, 25, 48, 64}) {
        Prepare(depth);
        for (int frame : {0, 3}) {
            const spark_info_struct info = Info(frame, kFrames, 0);
            ASSERT_EQ(gPlugin->ProcessStart(info), 1);
            uint8_t* result = static_cast<uint8_t*>(gPlugin->Process(info));
            ASSERT_EQ(result, Result()) << depth;
            std::vector<uint8_t> expected(size_t(info.FrameBytes));
            SparkHost().clips[0]->ReadFrame(frame, expected.data(), expected.size());
            EXPECT_EQ(0, memcmp(result, expected.data(), expected.size()))
                << "depth " << depth << " frame " << frame;
        }
    }
}

TEST_F(PluginTest, CurveModeTakesTimeFromTheCurvesNotTheClipPanel) {
    gPlugin->SetValue("SparkFloat2", 2.0);  // clip mode would show source frame 4
    gPlugin->SetValue("SparkFloat32", 1.0); // the speed curve's value without keys
    const spark_info_struct info = Info(2, kFrames, 1);
    EXPECT_EQ(gPlugin->ProcessStart(info), 0);
    ASSERT_NE(gPlugin->Process(info), nullptr);
    EXPECT_EQ(Result()[0], Level(2));
    EXPECT_EQ(SparkHost().messageCount, 0);

    SparkHostCurve(32).SetKey(1, 0.5f);
    ASSERT_NE(gPlugin->Process(Info(4, kFrames, 1)), nullptr);
    EXPECT_EQ(Result()[0], Level(2)) << "four frames at speed 0.5";
}

TEST_F(PluginTest, HostLoopsDeliverEveryAnnouncedFrameInOrder) {
    for (bool curveMode : {false, true}) {
        gPlugin->SetValue("SparkFloat2", 0.5f);
        std::vector<int> indices, levels;
        auto sink = [&](int index, const void* frame) {
            indices.push_back(index);
            levels.push_back(static_cast<const uint8_t*>(frame)[0]);
            return true;
        };
        const int delivered = curveMode ? SparkHostRunCurve(*gPlugin, 4, kFrames, sink)
                                        : SparkHostRunClip(*gPlugin, kFrames, sink);
        ASSERT_EQ(delivered, curveMode ? 4 : 2 * kFrames) << curveMode;
        for (int i = 0; i < delivered; ++i) {
            EXPECT_EQ(indices[size_t(i)], i) << curveMode;
            if (curveMode || i % 2 == 0) { // whole source times show their source frame exactly
                EXPECT_EQ(levels[size_t(i)], Level(curveMode ? i : i / 2)) << curveMode << " " << i;
            }
        }
    }
    int seen = 0;
    EXPECT_EQ(SparkHostRunClip(*gPlugin, kFrames, [&](int, const void*) { return ++seen < 2; }), 2)
        << "the sink stops the run";
    SparkHost().callingEnv = 2;
    EXPECT_EQ(SparkHostRunClip(*gPlugin, kFrames, [](int, const void*) { return true; }), -1);
}

TEST_F(PluginTest, CallingEnvironmentTwoRendersNothing) {
    SparkHost().callingEnv = 2;
    Result()[0] = 99;
    EXPECT_EQ(gPlugin->Process(Info(1, kFrames, 0)), nullptr);
    EXPECT_EQ(SparkHost().busyCursorCount, 0);
    EXPECT_EQ(Result()[0], 99);
}

TEST_F(PluginTest, BufferFailuresAreReportedOnTheirStreams) {
    enum class Fault { Missing, Unlocked, NullPointer };
    const int temp = kSparkFirstTempBufferId;
    const struct {
        const char* name;
        int id;
        Fault fault;
        bool onStderr;
        const char* message;
    } cases[] = {
        {"result missing", 1, Fault::Missing, false, "Error: Can't get result clip buffer\n"},
        {"temp missing", temp, Fault::Missing, false, "Error: Can't get tmp clip buffer\n"},
        {"front unlocked", 2, Fault::Unlocked, false, "Error: front clip buffer not locked\n"},
        {"temp unlocked", temp, Fault::Unlocked, false, "Error: tmp1 clip buffer not locked\n"},
        {"front null", 2, Fault::NullPointer, true, "Error: null buffer pointer result("},
        {"back null", 3, Fault::NullPointer, true, "Error: null buffer pointer back(0)\n"},
    };
    for (const auto& c : cases) {
        SparkHostSetFrameFormat(kWidth, kHeight, 24);
        SparkHostBuffer* buffer = SparkHostGetBuffer(c.id);
        ASSERT_NE(buffer, nullptr) << c.name;
        const SparkHostBuffer saved = *buffer;
        if (c.fault == Fault::Missing) buffer->available = false;
        if (c.fault == Fault::Unlocked) buffer->descriptor.BufState &= ~SPARK_MEMBUF_LOCKED;
        if (c.fault == Fault::NullPointer) buffer->descriptor.Buffer = nullptr;
        ::testing::internal::CaptureStdout();
        ::testing::internal::CaptureStderr();
        void* result = gPlugin->Process(Info(1, kFrames, 0));
        const std::string out = CapturedStdout();
        const std::string err = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(result, nullptr) << c.name;
        const std::string& stream = c.onStderr ? err : out;
        EXPECT_EQ(stream.rfind(c.message, 0), 0u) << c.name << ": " << stream;
        EXPECT_TRUE((c.onStderr ? out : err).empty()) << c.name;
        *buffer = saved;
        buffer->descriptor.Buffer = buffer->storage.data();
    }
}

TEST_F(PluginTest, FailedFramesComeBackBlackWithTheirMessage) {
    // The result image is allocated first, the second field's image next, both of the working
    // size: four channels of one, two or four bytes by depth.
    const char* resultFailure = "Cannot process image due to result image buffer allocation error";
    const char* fieldFailure = "Cannot process image due to image buffer allocation error";
    const struct {
        const char* name;
        int depth;
        int elementBytes; // of the allocation made to fail; 0: none
        int passes;       // allocations of that size let through before the failing one
        const char* message;
        std::function<void(spark_membuf_struct&)> result = [](spark_membuf_struct&) {};
    } cases[] = {
        {"result, 8 bits", 24, 1, 0, resultFailure},
        {"result, half float", 49, 4, 0, resultFailure},
        {"second field, 8 bits", 24, 1, 1,
         "Cannot process image due to tmp image buffer allocation error"},
        {"second field, 12 bits", 48, 2, 1, fieldFailure},
        {"second field, half float", 49, 4, 1, fieldFailure},
        // A result buffer that claims a frame far too large to allocate working images for.
        {"result too large to allocate", 24, 0, 0, resultFailure,
         [](spark_membuf_struct& r) { r.BufWidth = r.BufHeight = 1 << 20, r.BufDepth = 49; }},
        // A depth the engine cannot work in: no images, a failed run.
        {"unsupported depth", 24, 0, 0, "", [](spark_membuf_struct& r) { r.BufDepth = 30; }},
    };
    for (const auto& c : cases) {
        Prepare(c.depth);
        gPlugin->SetValue("SparkPup5", 1); // fields out: a second field image is needed
        SparkHost().statusLine.clear();
        SparkHostBuffer* result = SparkHostGetBuffer(kSparkResultBufferId);
        std::fill(result->storage.begin(), result->storage.end(), 0x5a);
        c.result(result->descriptor);
        if (c.elementBytes)
            HostFailAllocation(size_t(kWidth) * kHeight * 4 * c.elementBytes, c.passes);
        void* pixels = gPlugin->Process(Info(1, kFrames, 0));
        if (c.elementBytes) {
            ASSERT_TRUE(HostAllocationFaultStruck()) << c.name;
        }
        EXPECT_EQ(pixels, result->storage.data()) << c.name;
        EXPECT_EQ(SparkHost().statusLine, c.message) << c.name;
        EXPECT_EQ(std::count(result->storage.begin(), result->storage.end(), 0),
                  std::ptrdiff_t(result->storage.size()))
            << c.name << ": a failed frame comes back black";
    }
    // Without the fault the same frame renders and shows no message.
    Prepare(24);
    SparkHost().statusLine.clear();
    const size_t bytes = SparkHostGetBuffer(kSparkResultBufferId)->storage.size();
    ASSERT_EQ(gPlugin->ProcessStart(Info(1, kFrames, 0)), 1);
    const uint8_t* pixels = static_cast<const uint8_t*>(gPlugin->Process(Info(1, kFrames, 0)));
    ASSERT_NE(pixels, nullptr);
    EXPECT_TRUE(SparkHost().statusLine.empty()) << SparkHost().statusLine;
    EXPECT_EQ(std::count(pixels, pixels + bytes, 0), 0) << "every source level is above 0";
}

TEST_F(PluginTest, SpeedThatIsNoFiniteNumberGivesABlackFrame) {
    // The host's record holds whatever was typed or animated; such a speed names no source
    // frame, so the frame fails and comes back black instead of showing some frame.
    const float speeds[] = {std::numeric_limits<float>::quiet_NaN(),
                            std::numeric_limits<float>::infinity(),
                            -std::numeric_limits<float>::infinity()};
    for (float speed : speeds) {
        gPlugin->SetValue("SparkFloat2", speed);
        SparkHostBuffer* result = SparkHostGetBuffer(kSparkResultBufferId);
        std::fill(result->storage.begin(), result->storage.end(), 0x5a);
        gPlugin->ProcessStart(Info(2, kFrames, 0));
        EXPECT_EQ(gPlugin->Process(Info(2, kFrames, 0)), result->storage.data()) << speed;
        EXPECT_EQ(std::count(result->storage.begin(), result->storage.end(), 0),
                  std::ptrdiff_t(result->storage.size()))
            << "speed " << speed;
    }
}

TEST_F(PluginTest, FrameSizeStaysThePluginsOwn) {
    Width = 12345; // this process's own core
    Height = 3;
    gPlugin->Process(Info(0, kFrames, 0));
    EXPECT_EQ(*gPlugin->Width(), kWidth);
    EXPECT_EQ(*gPlugin->Height(), kHeight);
    EXPECT_EQ(Width, 12345) << "the plug-in's frame size must not reach the loading process";
    Width = Height = 0;
}

TEST_F(PluginTest, CallbacksRenderOneFrameWhenTheValueChanged) {
    const struct {
        const char* record;
        int why;
        bool renders;
    } cases[] = {
        {"SparkPup4", 1, true},  {"SparkPup4", 0, false},  {"SparkBoolean18", 2, false},
        {"SparkPup29", 1, true}, {"SparkPup13", 1, false}, {"SparkFloat2", 1, false},
    };
    for (const auto& c : cases) {
        const int busy = SparkHost().busyCursorCount;
        const int redraws = SparkHost().redrawCount;
        void* result = gPlugin->CallCallback(c.record, c.why, Info(1, kFrames, 0));
        EXPECT_EQ(result != nullptr, c.renders) << c.record << " why " << c.why;
        EXPECT_EQ(SparkHost().busyCursorCount - busy, c.renders ? 1 : 0) << c.record;
        EXPECT_EQ(SparkHost().redrawCount - redraws, c.renders ? 1 : 0) << c.record;
    }
}

TEST_F(PluginTest, ResetWritesItsValuesWhateverWhySays) {
    const std::tuple<const char*, double, double> records[] = {
        // name, changed, after the reset
        {"SparkBoolean36", 1, 0}, {"SparkPup27", 0, 1},     {"SparkPup28", 1, 4},
        {"SparkPup31", 0, 1},     {"SparkPup16", 2, 0},     {"SparkPup17", 1, 0},
        {"SparkPup43", 3, 0},     {"SparkBoolean18", 1, 0}, {"SparkFloat42", 2.5, 0},
        {"SparkFloat32", 3, 1},   {"SparkFloat44", 5, 70},  {"SparkFloat26", 6, 70},
        {"SparkBoolean19", 0, 1}, {"SparkFloat25", 40, 1},  {"SparkFloat45", 1, 0},
        {"SparkPup29", 2, 2},     {"SparkPup30", 1, 1},     {"SparkPup13", 3, 3},
        {"SparkPup14", 4, 4},     {"SparkInt15", 3, 3},     {"SparkInt8", 4, 4},
        {"SparkPup0", 2, 2},
    };
    for (int why : {0, 1}) {
        for (const auto& [name, changed, reset] : records)
            ASSERT_TRUE(gPlugin->SetValue(name, changed));
        const int busy = SparkHost().busyCursorCount;
        void* result = gPlugin->CallCallback("SparkPush34", why, Info(1, kFrames, 0));
        EXPECT_EQ(result != nullptr, why == 1);
        EXPECT_EQ(SparkHost().busyCursorCount - busy, why == 1 ? 1 : 0);
        for (const auto& [name, changed, reset] : records)
            EXPECT_FLOAT_EQ(*gPlugin->Value(name), reset) << name << " after why " << why;
    }
}

TEST_F(PluginTest, ForegroundMatteCannotBeTurnedOn) {
    gPlugin->SetValue("SparkBoolean36", 1);
    EXPECT_EQ(gPlugin->CallCallback("SparkBoolean36", 0, Info(1, kFrames, 0)), nullptr);
    EXPECT_EQ(SparkHost().messageCount, 0) << "no message without a change";
    EXPECT_NE(gPlugin->CallCallback("SparkBoolean36", 1, Info(1, kFrames, 0)), nullptr);
    EXPECT_EQ(SparkHost().statusLine, "Cannot turn FG Matte on, no Matte clip");
    EXPECT_EQ(*gPlugin->Value("SparkBoolean36"), 1) << "the value is not cleared";
    gPlugin->SetValue("SparkBoolean36", 0);
    const int messages = SparkHost().messageCount;
    EXPECT_NE(gPlugin->CallCallback("SparkBoolean36", 1, Info(1, kFrames, 0)), nullptr);
    EXPECT_EQ(SparkHost().messageCount, messages) << "turning it off shows nothing";
}

TEST_F(PluginTest, PanelCallbacksAreExportedUnderTheirNames) {
    // The host finds a control's callback by name: each record's pointer must be the function
    // the plug-in exports under that name.
    const struct {
        const char* callback;
        std::vector<const char*> records;
    } cases[] = {
        {"sparkCallback",
         {"SparkPup4", "SparkPup5", "SparkInt8", "SparkInt15", "SparkPup16", "SparkPup17",
          "SparkBoolean19", "SparkFloat25", "SparkFloat26", "SparkPup27", "SparkPup28",
          "SparkPup29", "SparkPup30", "SparkFloat32", "SparkFloat42", "SparkPup43", "SparkFloat44",
          "SparkFloat45"}},
        {"sparkAltMotionCallback", {"SparkBoolean18"}},
        {"sparkFGMaskCallback", {"SparkBoolean36"}},
        {"sparkResetCallback", {"SparkPush34"}},
        {"sparkTimeCallback", {"SparkPup13"}},
        {"sparkSceneCutCallback", {"SparkPup14"}},
        {"sparkFrameSpeedInteract", {"SparkPup31"}},
    };
    for (const auto& c : cases) {
        void* exported = gPlugin->Symbol(c.callback);
        EXPECT_NE(exported, nullptr) << c.callback << " is not exported";
        for (const char* record : c.records)
            EXPECT_EQ(reinterpret_cast<void*>(gPlugin->Callback(record)), exported)
                << record << " should call " << c.callback;
    }
    // Exported by name, the callback renders as the record's pointer does.
    auto callback = reinterpret_cast<SparkCallbackFunction>(gPlugin->Symbol("sparkCallback"));
    ASSERT_NE(callback, nullptr);
    EXPECT_EQ(callback(1, Info(1, kFrames, 0)), Result());
}

// The dynamic symbols of a shared object, defined and undefined, without the versioned names of
// system libraries. False when nm fails.
bool DynamicSymbols(const std::string& path, std::set<std::string>* defined,
                    std::set<std::string>* undefined) {
    FILE* pipe = popen(("nm -D --format=posix '" + path + "'").c_str(), "r");
    if (!pipe) return false;
    char line[512];
    while (fgets(line, sizeof line, pipe)) {
        std::istringstream fields(line);
        std::string name, type;
        fields >> name >> type;
        if (name.find('@') != std::string::npos) continue; // versioned: system libraries
        if (type == "U")
            undefined->insert(name);
        else if (type != "w" && type != "v")
            defined->insert(name);
    }
    return pclose(pipe) == 0;
}

#if defined(__SANITIZE_ADDRESS__)
extern "C" void __asan_init();
#endif

// What the address sanitizer's run-time library defines. In such a build the plug-in takes
// malloc, memcpy, operator new and the like from it, by unversioned names, and calls its checks.
std::set<std::string> SanitizerRuntimeNames() {
    std::set<std::string> defined, undefined;
#if defined(__SANITIZE_ADDRESS__)
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&__asan_init), &info) && info.dli_fname)
        EXPECT_TRUE(DynamicSymbols(info.dli_fname, &defined, &undefined)) << info.dli_fname;
#endif
    return defined;
}

TEST(PluginSymbols, ExportsExactlyTheHostInterface) {
    std::set<std::string> defined, undefined;
    ASSERT_TRUE(DynamicSymbols(QUELMOR_SPARK_PATH, &defined, &undefined));
    for (const std::string& name : SanitizerRuntimeNames())
        undefined.erase(name);
    // A sanitizer build's checks call into the run-time libraries under reserved names.
    std::erase_if(undefined, [](const std::string& name) {
        return name.starts_with("__asan") || name.starts_with("__ubsan") ||
               name.starts_with("__sanitizer");
    });
    auto words = [](const char* text) {
        std::istringstream in(text);
        return std::set<std::string>(std::istream_iterator<std::string>(in), {});
    };
    std::set<std::string> expectedDefined =
        words("SparkInitialise SparkUnInitialise SparkMemoryTempBuffers SparkClips "
              "SparkIsInputFormatSupported SparkProcessStart SparkProcess AutoDuration Width "
              "Height _Cache1 _Cache2 sparkCallback sparkAltMotionCallback sparkFGMaskCallback "
              "sparkResetCallback sparkTimeCallback sparkSceneCutCallback "
              "sparkFrameSpeedInteract");
    const std::pair<std::string, std::vector<int>> records[] = {
        {"SparkPup", {0, 1, 4, 5, 13, 14, 16, 17, 27, 28, 29, 30, 31, 43}},
        {"SparkFloat", {2, 3, 25, 26, 32, 42, 44, 45}},
        {"SparkInt", {8, 15}},
        {"SparkBoolean", {18, 19, 36}},
        {"SparkPush", {6, 7, 9, 10, 20, 21, 22, 23, 24, 34, 35}}};
    for (const auto& [kind, numbers] : records)
        for (int n : numbers)
            expectedDefined.insert(kind + std::to_string(n));
    EXPECT_EQ(defined, expectedDefined);
    const std::set<std::string> hostOperations =
        words("sparkAPIVersionInfo sparkError sparkMessage sparkProgramGetName sparkLoadSetup "
              "sparkSaveSetup sparkCallingEnv sparkCursorBusy sparkMemRegisterBuffer "
              "sparkMemGetBuffer sparkGetFrame sparkGetCurveValue sparkGetCurveValuef sparkMpFork "
              "sparkMpInfo sparkViewingDraw");
    EXPECT_EQ(undefined, hostOperations);
}

TEST(PluginLoader, ReportsWhatIsMissing) {
    std::string error;
    EXPECT_EQ(SparkPlugin::Load("/nonexistent/quelmor_spark.so", &error), nullptr);
    EXPECT_FALSE(error.empty());
}

} // namespace
