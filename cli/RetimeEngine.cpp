#include "cli/RetimeEngine.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

namespace quelmor::cli {

namespace {

// Engine settings that the plug-in's driver passes as constants.
constexpr float kFrameRate = 29.97f;
constexpr float kMotionSensitivity = 70.0f / 100.0f;
constexpr long kHighQuality = 1;
constexpr long kFlowFromSequence = 1;
constexpr long kCacheLastMotion = 1;

int PixelTypeOf(SampleType sample) {
    switch (sample) {
    case SampleType::U8:
        return 0;
    case SampleType::U16:
        return 1;
    default:
        return 2;
    }
}

// An image handed to the engine, owning its pixels until it comes back.
class CliImage : public ZUImage {
public:
    explicit CliImage(const MediaFormat& format) : pixels(format.FrameBytes()) {
        if (ZUImageReset(this) != 0) throw std::bad_alloc();
        ZUImageInitRGBA(this, pixels.data(), format.width, format.height, int(format.RowBytes()), 1,
                        PixelTypeOf(format.sample), 1, 1, 0, 1, 2, 3);
    }
    std::vector<uint8_t> pixels;
};

} // namespace

MediaFormat WorkingFormat(const MediaFormat& source) {
    MediaFormat f = source;
    f.channels = 4;
    if (f.sample == SampleType::Half) f.sample = SampleType::Float;
    return f;
}

CliQuelmor::CliQuelmor(MediaReader& source, const Timing& timing, const SparkCurve* scenes,
                       StageClock* clock)
    : source_(source), timing_(timing), scenes_(scenes), working_(WorkingFormat(source.Format())),
      clock_(clock) {}

CliQuelmor::~CliQuelmor() = default;

const MediaFrame& CliQuelmor::WorkingFrame(int frame) {
    for (const auto& kept : kept_)
        if (kept.first == frame) return kept.second;
    {
        const auto timed = TimeStage(clock_, Stage::Decode);
        source_.Read(frame, decoded_);
    }
    const auto timed = TimeStage(clock_, Stage::ConvertIn);
    if (kept_.size() == 2) kept_.pop_front();
    kept_.emplace_back(frame, MediaFrame{});
    ConvertFrame(decoded_, working_, kept_.back().second);
    return kept_.back().second;
}

int CliQuelmor::GetToBeWarpedSequenceImage(ZUImage** image, int frame) {
    if (!image) return 5;
    *image = nullptr;
    try {
        // Times before the first or after the last frame hold the end frames.
        const int clamped = std::clamp(frame, 0, source_.FrameCount() - 1);
        const MediaFrame& pixels = WorkingFrame(clamped);
        const auto timed = TimeStage(clock_, Stage::ConvertIn);
        auto* out = new CliImage(working_);
        std::memcpy(out->pixels.data(), pixels.pixels.data(), out->pixels.size());
        *image = out;
        return 0;
    } catch (const MediaError& e) {
        std::fprintf(stderr, "quelmor: %s\n", e.what());
        return 7;
    } catch (...) {
        return 1;
    }
}

int CliQuelmor::GetTrackingSequenceImage(ZUImage** image, int frame) {
    return GetToBeWarpedSequenceImage(image, frame);
}

void CliQuelmor::CleanUpCheckedOutImage(ZUImage* image) {
    delete image;
}

int CliQuelmor::GetMatteLayerSequenceImage(ZUImage** image, int, int) {
    // The direct path has no matte clip.
    if (image) *image = nullptr;
    return 5;
}

void CliQuelmor::CleanUpCheckedOutMatteImage(ZUImage* image) {
    delete image;
}

int CliQuelmor::GetKeyframedTime(float* sourceTime, float outputTime) {
    if (!sourceTime) return 5;
    *sourceTime = timing_.SourceTime(outputTime);
    return 0;
}

int CliQuelmor::WhichScene(float time) {
    return SceneAt(scenes_, time);
}

void CliQuelmor::Render(int index, const EngineSettings& settings, MediaFrame& out) {
    if (Init() != 0) throw MediaError("out of memory");
    CliImage result(working_);
    float shrink[10] = {};
    float sensitivity[10];
    std::fill(std::begin(sensitivity), std::end(sensitivity), 1.0f);
    ZUIdleAndProgressClass progress;
    const int code = GetFrame(
        &result, nullptr, 0, 0, settings.vectorQuality, float(index), float(index + 1), kFrameRate,
        kFrameRate, settings.motionBlur, kMotionSensitivity, settings.interpolation, kHighQuality,
        kFlowFromSequence, kCacheLastMotion, 0, shrink, sensitivity, &progress, false);
    if (code != 0)
        throw MediaError("the engine failed on output frame " + std::to_string(index) +
                         " with error " + std::to_string(code));
    out.format = working_;
    out.pixels = std::move(result.pixels);
}

} // namespace quelmor::cli
