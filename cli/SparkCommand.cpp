// quelmor spark: runs the plug-in as its host does, with the stand-in host.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <unistd.h>

#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/EngineOptions.h"
#include "cli/HostFrames.h"
#include "cli/Keyframes.h"
#include "cli/Media.h"
#include "cli/OutputRun.h"
#include "cli/Progress.h"
#include "cli/RetimeEngine.h"
#include "cli/StageClock.h"
#include "cli/Threads.h"
#include "cli/Timing.h"
#include "sparkhost/HostState.h"
#include "sparkhost/PluginLoader.h"
#include "sparkhost/SetupFile.h"
#include "sparkhost/WorkerPool.h"

namespace quelmor::cli {

namespace {
namespace fs = std::filesystem;

constexpr const char* kFields[] = {"none", "lower", "upper"};
constexpr OptionSpec kSparkOptions[] = {
    kSpeedOption,
    kInterpolationOption,
    kQualityOption,
    kMotionBlurOption,
    {.name = "fields-in", .takesValue = true, .choices = kFields},
    {.name = "fields-out", .takesValue = true, .choices = kFields},
    {"setup", true},
    {"speed-curve", true},
    {"scenes", true},
    {"plugin", true},
    kRateOption,
    {"overwrite", false},
    {"quiet", false},
    {"timing", false},
    {"threads", true},
};
// Panel numbers of the animated controls read in curve mode.
constexpr int kSceneControl = 15;
constexpr int kSpeedControl = 32;

// The plug-in built beside this executable, unless --plugin names another.
std::string DefaultPluginPath() {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
#ifdef QUELMOR_PLUGIN_PATH
    if (fs::exists(QUELMOR_PLUGIN_PATH, ec)) return QUELMOR_PLUGIN_PATH;
#endif
    return (self.parent_path() / "quelmor_spark.so").string();
}

// A folder for the panel setup when none is named, removed at the end of the run.
class ScratchFolder {
public:
    ScratchFolder() {
        path_ = fs::temp_directory_path() / ("quelmor_spark_" + std::to_string(getpid()));
        fs::create_directories(path_);
    }
    ~ScratchFolder() {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    const fs::path& Path() const { return path_; }

private:
    fs::path path_;
};

// The plug-in's session: initialised on construction, saved and closed on destruction. A run
// that fails saves its panel into `scratch` instead, leaving the user's setup as it was.
class PluginSession {
public:
    PluginSession(const SparkPlugin& plugin, spark_info_struct info, std::string scratch)
        : plugin_(plugin), info_(info), scratch_(std::move(scratch)) {
        plugin_.Initialise(info_);
    }
    ~PluginSession() {
        if (std::uncaught_exceptions() > exceptions_) SparkHost().setupDirectory = scratch_;
        plugin_.UnInitialise(info_);
    }
    PluginSession(const PluginSession&) = delete;
    PluginSession& operator=(const PluginSession&) = delete;

private:
    const SparkPlugin& plugin_;
    spark_info_struct info_;
    std::string scratch_;
    int exceptions_ = std::uncaught_exceptions();
};

// Empties the stand-in host on construction and again on destruction, so that nothing of a run
// (clips with their readers, the plug-in's address) stays in the host's globals after it.
class HostGuard {
public:
    HostGuard() { SparkHostReset(); }
    ~HostGuard() { SparkHostReset(); }
    HostGuard(const HostGuard&) = delete;
    HostGuard& operator=(const HostGuard&) = delete;
};

// The setup is read at the start and saved over at the end: refuses, before anything runs, a
// setup that would not load whole (and be lost when saved over) or could not be saved.
void CheckSetup(const fs::path& setup) {
    std::error_code ec;
    const fs::path folder = setup.parent_path();
    if (!fs::is_directory(folder, ec))
        throw MediaError("the folder of --setup " + setup.string() + " does not exist");
    if (!fs::exists(setup, ec)) {
        if (access(folder.c_str(), W_OK | X_OK) != 0)
            throw MediaError("the folder of --setup " + setup.string() +
                             " is not writable; the setup could not be saved");
        return;
    }
    if (!fs::is_regular_file(setup, ec))
        throw MediaError("--setup " + setup.string() + " is not a file");
    if (access(setup.c_str(), R_OK | W_OK) != 0)
        throw MediaError("--setup " + setup.string() + " cannot be read and saved over");
    if (const std::string problem = SparkSetupFileProblem(setup.string()); !problem.empty())
        throw MediaError("--setup " + setup.string() + " is not a setup: " + problem);
}

void SetRecord(const SparkPlugin& plugin, const char* name, double value) {
    if (!plugin.SetValue(name, value))
        throw MediaError(std::string("the plug-in has no record ") + name);
}

} // namespace

int RunSpark(std::span<const std::string> args) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const CommandLine line = ParseCommandLine("spark", args, kSparkOptions);
    if (line.files.size() != 2)
        throw UsageError("quelmor spark wants an input and an output, such as in.mov out.mov");
    const std::string input = line.files[0], output = line.files[1];
    if (input == output) throw UsageError("the output must not be the input");
    const int threads = ThreadsOption(line);
    SetCodecThreads(threads);
    const std::optional<double> speed = line.Number("speed");
    // Every value is read now, so that a wrong one stops the run before the plug-in loads.
    const std::optional<int> interpolation = line.Choice("interpolation");
    const std::optional<int> quality = line.Choice("quality");
    const std::optional<double> motionBlur = line.Number("motion-blur");
    const std::optional<int> fieldsIn = line.Choice("fields-in");
    const std::optional<int> fieldsOut = line.Choice("fields-out");
    const std::optional<double> rate = line.Number("rate");
    const bool curveMode = line.Has("speed-curve") || line.Has("scenes");
    if (line.Has("speed-curve") && speed)
        throw UsageError("give only one of --speed and --speed-curve");
    std::optional<fs::path> setup;
    if (auto v = line.Value("setup")) {
        setup = fs::absolute(*v);
        if (setup->extension() != ".setup")
            throw UsageError("--setup wants a file name ending in .setup, got " + *v);
        CheckSetup(*setup);
    }

    std::optional<Keyframes> speedKeys, sceneKeys;
    if (auto v = line.Value("speed-curve")) speedKeys = Keyframes::Load(*v);
    if (auto v = line.Value("scenes")) sceneKeys = Keyframes::Load(*v);

    std::string why;
    const std::string pluginPath = line.Value("plugin").value_or(DefaultPluginPath());
    auto plugin = SparkPlugin::Load(pluginPath, &why);
    if (!plugin) throw MediaError("cannot load the plug-in " + pluginPath + ": " + why);

    // The host's state outlives this function; the guard empties it on every way out, after the
    // plug-in's session has closed and before the clock that the frame source reports to goes.
    StageClock clock;
    const HostGuard hostGuard;
    SparkHostState& host = SparkHost();
    auto frames = std::make_shared<MediaFrameSource>(OpenMedia(input), &clock);
    const MediaReader* source = &frames->Reader();
    const MediaFormat& format = source->Format();
    // The plug-in's qualities make no flow image larger than the frame itself.
    CheckEngineFrameSize(format, 0);
    ScratchFolder scratch;
    host.setupDirectory = setup ? setup->parent_path().string() : scratch.Path().string();
    host.plugin = plugin.get();
    host.clips[0] = frames;
    SparkHostSetFrameFormat(format.width, format.height, frames->Depth());
    SparkHostSetWorkerCount(threads);
    const std::string setupName = setup ? setup->stem().string() : std::string("quelmor");
    const unsigned total = unsigned(source->FrameCount());
    const unsigned char runMode = curveMode ? 1 : 0;

    if (!plugin->IsInputFormatSupported(frames->Depth()))
        throw MediaError("the plug-in does not take frames of depth " +
                         std::to_string(frames->Depth()));
    PluginSession session(*plugin, SparkHostMakeInfo(0, total, runMode, setupName.c_str()),
                          scratch.Path().string());
    // Options override what the setup holds.
    if (speed) SetRecord(*plugin, "SparkFloat2", *speed);
    if (interpolation) SetRecord(*plugin, "SparkPup0", *interpolation);
    if (quality) SetRecord(*plugin, "SparkPup1", *quality);
    if (motionBlur) SetRecord(*plugin, "SparkFloat3", *motionBlur);
    if (fieldsIn) SetRecord(*plugin, "SparkPup4", *fieldsIn);
    if (fieldsOut) SetRecord(*plugin, "SparkPup5", *fieldsOut);
    plugin->MemoryTempBuffers();
    plugin->Clips();

    // Output length: the plug-in's own rule in clip mode, the speed curve's in curve mode.
    const double clipSpeed = plugin->Value("SparkFloat2").value_or(1.0);
    if (!curveMode && !(clipSpeed > 0)) throw MediaError("the setup's speed must be above 0");
    // A setup's motion blur is held to the option's limits as well.
    const double blur = plugin->Value("SparkFloat3").value_or(0.0);
    if (!(blur >= kMotionBlurOption.min && blur <= kMotionBlurOption.max))
        throw MediaError("the setup's motion blur must lie between 0 and 5, got " +
                         std::to_string(blur));
    std::optional<Timing> timing;
    if (speedKeys) {
        timing = Timing::SpeedCurve(*speedKeys);
        host.curves[kSpeedControl] = *timing->Curve();
    } else if (curveMode) {
        timing = Timing::Constant(speed.value_or(1.0));
        SetRecord(*plugin, "SparkFloat32", speed.value_or(1.0));
    }
    if (sceneKeys) host.curves[kSceneControl] = SceneCurve(*sceneKeys);
    const int count = timing ? timing->OutputFrameCount(int(total))
                             : Timing::Constant(clipSpeed).OutputFrameCount(int(total));
    if (count <= 0)
        throw MediaError("this speed makes no output frame from the " + std::to_string(total) +
                         " input frames");

    const int first = source->FirstNumber();
    const int last = LastFrameNumber(first, count);
    OutputPlan plan{input, output, {first, last}, {first, last}, line.Has("overwrite")};
    plan.frameRate = rate ? *rate : source->FrameRate() > 0 ? source->FrameRate() : 25.0;
    // The host's frames are RGB, so a source's alpha cannot pass through the plug-in: the output
    // has none, rather than an opaque one the source never had, and the user is told.
    MediaFormat outputFormat = format;
    const bool dropsAlpha = outputFormat.channels == 2 || outputFormat.channels == 4;
    if (dropsAlpha) --outputFormat.channels;
    // Nor do they carry channels beyond the picture.
    outputFormat.fileChannels.clear();
    outputFormat.extras.clear();
    OutputRun out(plan, outputFormat, &clock, threads);
    if (dropsAlpha)
        std::fprintf(stderr,
                     "quelmor: the host's frames carry no alpha; %s is written without the "
                     "source's alpha (quelmor retime keeps it)\n",
                     output.c_str());
    Progress progress("spark", count, Progress::StyleFor(stderr, line.Has("quiet")));
    SparkHostBuffer* result = SparkHostGetBuffer(kSparkResultBufferId);
    int written = 0;
    auto deliver = [&](const spark_info_struct& info) {
        const void* pixels = nullptr;
        {
            const auto timed = TimeStage(&clock, Stage::Engine);
            pixels = plugin->Process(info);
        }
        // The plug-in makes a frame even when a source frame failed to come: a failed read
        // stops the run as it stops the direct path.
        if (const std::string failure = frames->Failure(); !failure.empty())
            throw MediaError(failure);
        if (!pixels || !result)
            throw MediaError("the plug-in returned no frame for output frame " +
                             std::to_string(written));
        MediaFrame frame;
        {
            const auto timed = TimeStage(&clock, Stage::ConvertOut);
            UnpackHostFrame(pixels, format.width, format.height, frames->Depth(), frame);
        }
        out.Write(first + written++, std::move(frame));
        progress.FrameDone();
    };
    clock.Add(Stage::Start, std::chrono::duration<double>(Clock::now() - started).count());
    if (curveMode) {
        // The host asks for each output frame by number.
        for (int n = 0; n < count; ++n) {
            const spark_info_struct info = SparkHostMakeInfo(n, total, 1, setupName.c_str());
            plugin->ProcessStart(info);
            deliver(info);
        }
    } else {
        // The host walks the input; each step yields as many frames as the plug-in says.
        for (unsigned f = 0; f < total; ++f) {
            const spark_info_struct info = SparkHostMakeInfo(int(f), total, 0, setupName.c_str());
            const int yields = plugin->ProcessStart(info);
            for (int k = 0; k < yields && written < count; ++k)
                deliver(info);
        }
    }
    if (written != count)
        throw MediaError("the plug-in made " + std::to_string(written) + " frames, not " +
                         std::to_string(count));
    out.Finish();
    progress.Finish();
    const StageClock::Totals totals{
        count, std::chrono::duration<double>(Clock::now() - started).count(), ProcessCpuSeconds()};
    if (!line.Has("quiet"))
        std::fputs(clock.Summary("spark", totals, "the plug-in").c_str(), stderr);
    if (line.Has("timing"))
        std::fputs(clock.Report(totals, "plug-in (engine, its conversions)").c_str(), stderr);
    return 0;
}

} // namespace quelmor::cli
