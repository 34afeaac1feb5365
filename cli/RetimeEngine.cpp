#include "cli/RetimeEngine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <vector>

#include "cli/GeometryOverlay.h"

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
    // `bytes` holds the frame's pixels, FrameBytes of `format`.
    CliImage(const MediaFormat& format, std::vector<uint8_t> bytes) : pixels(std::move(bytes)) {
        if (ZUImageReset(this) != 0) throw std::bad_alloc();
        ZUImageInitRGBA(this, pixels.data(), format.width, format.height, int(format.RowBytes()), 1,
                        PixelTypeOf(format.sample), 1, 1, 0, 1, 2, 3);
    }
    std::vector<uint8_t> pixels;
};

// A matte handed to the engine: one channel of the working sample type.
class MatteImage : public ZUImage {
public:
    MatteImage(const MediaFormat& format, std::vector<uint8_t> bytes) : pixels(std::move(bytes)) {
        if (ZUImageReset(this) != 0) throw std::bad_alloc();
        ZUImageInitGray(this, pixels.data(), format.width, format.height, int(format.RowBytes()), 1,
                        PixelTypeOf(format.sample));
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

void CheckEngineFrameSize(const MediaFormat& source, int vectorQuality) {
    const MediaFormat working = WorkingFormat(source);
    const int pixelBytes = working.channels * int(SampleBytes(working.sample));
    if (ZUQuelmor4::FrameFits(working.width, working.height, pixelBytes, vectorQuality,
                              kHighQuality))
        return;
    throw MediaError("frames of " + std::to_string(source.width) + "x" +
                     std::to_string(source.height) +
                     " are too large: the engine holds a frame as one image of at most 2 GiB");
}

CliQuelmor::CliQuelmor(MediaReader& source, const Timing& timing, const SparkCurve* scenes,
                       StageClock* clock)
    : source_(source), timing_(timing), scenes_(scenes), clock_(clock),
      working_(WorkingFormat(source.Format())),
      frames_(
          source,
          [working = working_](MediaFrame&& decoded, MediaFrame& prepared) {
              ConvertFrame(decoded, working, prepared);
          },
          clock) {}

CliQuelmor::~CliQuelmor() = default;

const MediaFrame& CliQuelmor::WorkingFrame(int frame) {
    for (const auto& kept : kept_)
        if (kept.first == frame) return kept.second;
    MediaFrame slot; // the oldest frame's memory, reused
    if (kept_.size() == 2) {
        slot = std::move(kept_.front().second);
        kept_.pop_front();
    }
    frames_.Get(frame, slot);
    kept_.emplace_back(frame, std::move(slot));
    return kept_.back().second;
}

int CliQuelmor::GetToBeWarpedSequenceImage(ZUImage** image, int frame) {
    if (!image) return 5;
    *image = nullptr;
    try {
        // Times before the first or after the last frame hold the end frames.
        const int clamped = std::clamp(frame, 0, source_.FrameCount() - 1);
        const MediaFrame& pixels = WorkingFrame(clamped);
        // The engine may change the frame it checks out: it gets a copy, in the memory of a
        // frame given back before, whose pages are in place already.
        const auto timed = TimeStage(clock_, Stage::ConvertIn);
        std::vector<uint8_t> copy;
        if (!spare_.empty()) {
            copy = std::move(spare_.back());
            spare_.pop_back();
        }
        copy.assign(pixels.pixels.begin(), pixels.pixels.end());
        *image = new CliImage(working_, std::move(copy));
        return 0;
    } catch (const MediaError& e) {
        if (readFailure_.empty()) readFailure_ = e.what();
        return 7;
    } catch (...) {
        return 1;
    }
}

int CliQuelmor::GetTrackingSequenceImage(ZUImage** image, int frame) {
    return GetToBeWarpedSequenceImage(image, frame);
}

int CliQuelmor::CleanUpCheckedOutImage(ZUImage* image) {
    // Only CliImage objects are handed out.
    auto* mine = static_cast<CliImage*>(image);
    if (mine && spare_.size() < 4) spare_.push_back(std::move(mine->pixels));
    delete mine;
    return 0;
}

int CliQuelmor::GetMatteLayerSequenceImage(ZUImage** image, int frame, int layer) {
    if (!image) return 5;
    *image = nullptr;
    if (layer < 0 || layer >= int(mattes_.size())) return 5;
    try {
        const int clamped = std::clamp(frame, 0, source_.FrameCount() - 1);
        const MediaFormat one{working_.width, working_.height, 1, working_.sample};
        std::vector<uint8_t> pixels(one.FrameBytes());
        if (MediaReader* clip = mattes_[std::size_t(layer)]) {
            if (clamped >= clip->FrameCount())
                throw MediaError("the matte of layer " + std::to_string(layer) + " has no frame " +
                                 std::to_string(clamped));
            MediaFrame decoded, converted;
            clip->Read(clamped, decoded);
            if (!decoded.format.SameSize(working_))
                throw MediaError("the matte of layer " + std::to_string(layer) +
                                 " is not the size of the input");
            ConvertFrame(decoded, one, converted);
            pixels = std::move(converted.pixels);
        } else {
            // The source's own alpha, channel 3 of the working frame.
            const MediaFrame& whole = WorkingFrame(clamped);
            const std::size_t bytes = SampleBytes(working_.sample);
            const std::size_t count = std::size_t(working_.width) * std::size_t(working_.height);
            for (std::size_t i = 0; i < count; ++i)
                std::memcpy(&pixels[i * bytes], &whole.pixels[(i * 4 + 3) * bytes], bytes);
        }
        *image = new MatteImage(one, std::move(pixels));
        return 0;
    } catch (const MediaError& e) {
        if (readFailure_.empty()) readFailure_ = e.what();
        return 7;
    } catch (...) {
        return 1;
    }
}

int CliQuelmor::CleanUpCheckedOutMatteImage(ZUImage* image) {
    // Only MatteImage objects are handed out as mattes.
    delete static_cast<MatteImage*>(image);
    return 0;
}

int CliQuelmor::GetDrawStartLayer() {
    const int layers = int(mattes_.size()) + 1;
    return draw_ == 1 ? 0 : layers - 1;
}

int CliQuelmor::GetDrawEndLayer() {
    const int layers = int(mattes_.size()) + 1;
    return draw_ == 2 ? layers - 1 : 0;
}

int CliQuelmor::GetKeyframedTime(float* sourceTime, float outputTime) {
    if (!sourceTime) return 5;
    *sourceTime = timing_.SourceTime(outputTime);
    return 0;
}

int CliQuelmor::WhichScene(float time) {
    return SceneAt(scenes_, time);
}

int CliQuelmor::UsesWhichWarping() {
    return warping_;
}

void CliQuelmor::Render(int index, const EngineSettings& settings, MediaFrame& out) {
    if (Init() != 0) throw MediaError("out of memory");
    readFailure_.clear();
    warping_ = settings.warping;
    draw_ = settings.draw;
    CliImage result(working_, std::vector<uint8_t>(working_.FrameBytes()));
    float shrink[10];
    float sensitivity[10];
    std::fill(std::begin(shrink), std::end(shrink), settings.matteShrink);
    std::fill(std::begin(sensitivity), std::end(sensitivity), settings.layerSensitivity);
    ZUIdleAndProgressClass progress;
    const int code =
        GetFrame(&result, nullptr, 0, 0, settings.vectorQuality, float(index), float(index + 1),
                 kFrameRate, kFrameRate, settings.motionBlur, kMotionSensitivity,
                 settings.interpolation, kHighQuality, kFlowFromSequence, kCacheLastMotion,
                 int(mattes_.size()), shrink, sensitivity, &progress, false);
    if (!readFailure_.empty()) throw MediaError(readFailure_);
    if (code != 0)
        throw MediaError("the engine failed on output frame " + std::to_string(index) +
                         " with error " + std::to_string(code));
    out.format = working_;
    out.pixels = std::move(result.pixels);
    if (geometry_.show && geometry_.tracks)
        DrawGeometry(*this, timing_.SourceTime(float(index)), out);
}

std::vector<const PointTracks::Track*> CliQuelmor::TracksBetween(float timeA, float timeB) const {
    if (!geometry_.tracks || !std::isfinite(timeA) || !std::isfinite(timeB)) return {};
    // The engine asks about whole frames; its frame 0 is the input's first number.
    const int a = int(std::lround(timeA)) + geometry_.firstNumber;
    const int b = int(std::lround(timeB)) + geometry_.firstNumber;
    return geometry_.tracks->Between(a, b);
}

unsigned long CliQuelmor::GetNumGeometries(int layer, float timeA, float timeB) {
    return layer == 0 ? TracksBetween(timeA, timeB).size() : 0;
}

int CliQuelmor::GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                                  unsigned long* count, float** xA, float** yA, float** xB,
                                  float** yB) {
    if (!count || !xA || !yA || !xB || !yB) return 5;
    *count = 0;
    *xA = *yA = *xB = *yB = nullptr;
    const auto tracks = TracksBetween(timeA, timeB);
    if (layer != 0 || index >= tracks.size()) return 5;
    try {
        std::vector<float> pairs[4];
        TrackPairs(*tracks[index], int(std::lround(timeA)) + geometry_.firstNumber,
                   int(std::lround(timeB)) + geometry_.firstNumber, pairs[0], pairs[1], pairs[2],
                   pairs[3]);
        float** out[4] = {xA, yA, xB, yB};
        for (int k = 0; k < 4; ++k) {
            *out[k] = new float[pairs[k].size()];
            std::copy(pairs[k].begin(), pairs[k].end(), *out[k]);
        }
        *count = pairs[0].size();
        return 0;
    } catch (...) {
        ReleasePoints(*xA, *yA, *xB, *yB);
        *xA = *yA = *xB = *yB = nullptr;
        return 1;
    }
}

void CliQuelmor::ReleasePoints(float* xA, float* yA, float* xB, float* yB) {
    for (float* points : {xA, yA, xB, yB})
        delete[] points;
}

void CliQuelmor::GetGeometryColor(int layer, unsigned long index, unsigned char* red,
                                  unsigned char* green, unsigned char* blue, float time) {
    // One colour per track, kept from frame to frame: its place in the file picks it.
    static constexpr unsigned char kPalette[][3] = {{255, 230, 0}, {0, 230, 255}, {255, 64, 200},
                                                    {90, 255, 90}, {255, 140, 0}, {160, 120, 255}};
    ZUQuelmor4::GetGeometryColor(layer, index, red, green, blue, time);
    const float a = std::floor(time);
    const auto tracks = TracksBetween(a, time > a ? a + 1.0f : a);
    if (index >= tracks.size()) return;
    const size_t place = size_t(tracks[index] - geometry_.tracks->Tracks().data());
    const unsigned char* colour = kPalette[place % std::size(kPalette)];
    *red = colour[0];
    *green = colour[1];
    *blue = colour[2];
}

void CliQuelmor::GetBackgroundLayerDoOpticalFlow(bool* doFlow, float) {
    *doFlow = !(geometry_.only && geometry_.tracks);
}

} // namespace quelmor::cli
