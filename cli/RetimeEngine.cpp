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

// Four float channels of the working size: extra channels or pixel positions.
static MediaFormat ExtraFormat(const MediaFormat& working) {
    return MediaFormat{working.width, working.height, 4, SampleType::Float};
}

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
              prepared.extra = std::move(decoded.extra);
          },
          clock) {
    for (const std::string& name : working_.extras)
        mixes_.push_back(DefaultChannelMix(name));
}

void CliQuelmor::SetChannelMix(std::vector<ChannelMix> mixes) {
    if (mixes.size() == mixes_.size()) mixes_ = std::move(mixes);
}

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
        if (feed_ == Feed::Picture) {
            copy.assign(pixels.pixels.begin(), pixels.pixels.end());
            *image = new CliImage(working_, std::move(copy));
            return 0;
        }
        if (feed_ == Feed::Positions && (float(frame) <= split_) == (side_ == 0))
            sideFrame_ = clamped;
        FillFeed(pixels, feed_ == Feed::Positions && sideFrame_ != clamped ? -1 : clamped, copy);
        *image = new CliImage(ExtraFormat(working_), std::move(copy));
        return 0;
    } catch (const MediaError& e) {
        if (readFailure_.empty()) readFailure_ = e.what();
        return 7;
    } catch (...) {
        return 1;
    }
}

// Motion is measured on the picture, whatever is warped.
int CliQuelmor::GetTrackingSequenceImage(ZUImage** image, int frame) {
    const Feed feed = feed_;
    feed_ = Feed::Picture;
    const int code = GetToBeWarpedSequenceImage(image, frame);
    feed_ = feed;
    return code;
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

void CliQuelmor::RunEngine(int index, const EngineSettings& settings, long flowFromSequence,
                           ZUImage* result) {
    warping_ = settings.warping;
    draw_ = settings.draw;
    float shrink[10];
    float sensitivity[10];
    std::fill(std::begin(shrink), std::end(shrink), settings.matteShrink);
    std::fill(std::begin(sensitivity), std::end(sensitivity), settings.layerSensitivity);
    ZUIdleAndProgressClass progress;
    const int code =
        GetFrame(result, nullptr, 0, 0, settings.vectorQuality, float(index), float(index + 1),
                 kFrameRate, kFrameRate, settings.motionBlur, kMotionSensitivity,
                 settings.interpolation, kHighQuality, flowFromSequence, kCacheLastMotion,
                 int(mattes_.size()), shrink, sensitivity, &progress, false);
    if (!readFailure_.empty()) throw MediaError(readFailure_);
    if (code != 0)
        throw MediaError("the engine failed on output frame " + std::to_string(index) +
                         " with error " + std::to_string(code));
}

void CliQuelmor::Render(int index, const EngineSettings& settings, MediaFrame& out) {
    if (Init() != 0) throw MediaError("out of memory");
    readFailure_.clear();
    feed_ = Feed::Picture;
    CliImage result(working_, std::vector<uint8_t>(working_.FrameBytes()));
    RunEngine(index, settings, kFlowFromSequence, &result);
    out.format = working_;
    out.pixels = std::move(result.pixels);
    out.extra.clear();
    if (keepExtras_ && !working_.extras.empty()) RenderExtras(index, settings, out);
    if (geometry_.show && geometry_.tracks)
        DrawGeometry(*this, timing_.SourceTime(float(index)), out);
}

void CliQuelmor::FillFeed(const MediaFrame& source, int frame, std::vector<uint8_t>& bytes) {
    const MediaFormat format = ExtraFormat(working_);
    bytes.resize(format.FrameBytes());
    float* to = reinterpret_cast<float*>(bytes.data());
    const std::size_t pixels = std::size_t(format.width) * std::size_t(format.height);
    if (feed_ == Feed::Extras) {
        const std::size_t extras = working_.extras.size();
        for (std::size_t i = 0; i < pixels; ++i)
            for (std::size_t k = 0; k < 4; ++k)
                to[i * 4 + k] =
                    k < group_.size() ? source.extra[i * extras + std::size_t(group_[k])] : 0.0f;
        return;
    }
    // Positions: x, y and a weight of one on the side asked for, nothing on the other.
    const bool mine = frame >= 0;
    for (int y = 0; y < format.height; ++y)
        for (int x = 0; x < format.width; ++x, to += 4) {
            to[0] = mine ? float(x) : 0.0f;
            to[1] = mine ? float(y) : 0.0f;
            to[2] = mine ? 1.0f : 0.0f;
            to[3] = 0.0f;
        }
}

// Extra channels to blend go through the engine four at a time in place of the picture. With
// the settings and source frames of the picture's run the engine keeps the flows it computed
// for the picture (it keeps the last motion), so a pass costs a warp and a mix, and its pixels
// are exactly what the picture's channels would have been. Channels that must not be mixed take
// the sample of one source frame at the place where the engine found the output pixel to come
// from: two passes warp the pixel positions of the earlier and of the later frame, each weighted
// by how much of its frame the engine took; the side with more weight gives the sample, at the
// nearest pixel to its position.
void CliQuelmor::RenderExtras(int index, const EngineSettings& settings, MediaFrame& out) {
    const MediaFormat format = ExtraFormat(working_);
    const std::size_t pixels = std::size_t(format.width) * std::size_t(format.height);
    const std::size_t extras = working_.extras.size();
    out.extra.assign(pixels * extras, 0.0f);
    std::vector<int> blend, nearest;
    for (std::size_t k = 0; k < extras; ++k)
        (mixes_[k] == ChannelMix::Nearest ? nearest : blend).push_back(int(k));

    CliImage result(format, std::vector<uint8_t>(format.FrameBytes()));
    const float* values = reinterpret_cast<const float*>(result.pixels.data());
    for (std::size_t first = 0; first < blend.size(); first += 4) {
        feed_ = Feed::Extras;
        group_.assign(blend.begin() + std::ptrdiff_t(first),
                      blend.begin() + std::ptrdiff_t(std::min(first + 4, blend.size())));
        RunEngine(index, settings, 0, &result);
        for (std::size_t i = 0; i < pixels; ++i)
            for (std::size_t k = 0; k < group_.size(); ++k)
                out.extra[i * extras + std::size_t(group_[k])] = values[i * 4 + k];
    }
    if (!nearest.empty()) {
        split_ = std::floor(timing_.SourceTime(float(index)));
        std::vector<float> positions[2];
        int frames[2];
        for (int side = 0; side < 2; ++side) {
            feed_ = Feed::Positions;
            side_ = side;
            sideFrame_ = -1;
            RunEngine(index, settings, 0, &result);
            positions[side].assign(values, values + pixels * 4);
            frames[side] = sideFrame_;
        }
        // Which side each pixel takes: the one of more weight; where neither has any, the
        // pixel's own place in the earlier frame.
        std::vector<std::uint8_t> later(pixels, 0);
        for (std::size_t i = 0; i < pixels; ++i)
            later[i] = frames[1] >= 0 && positions[1][i * 4 + 2] > positions[0][i * 4 + 2];
        for (int side = 0; side < 2; ++side) {
            const int frame = frames[side] >= 0 ? frames[side] : frames[1 - side];
            if (frame < 0) continue;
            const MediaFrame& source = WorkingFrame(frame);
            const float* at = positions[side].data();
            for (int y = 0; y < format.height; ++y)
                for (int x = 0; x < format.width; ++x, at += 4) {
                    const std::size_t i =
                        std::size_t(y) * std::size_t(format.width) + std::size_t(x);
                    if (later[i] != side) continue;
                    int sx = x, sy = y;
                    if (at[2] > 0.0f) {
                        sx = std::clamp(int(std::lround(at[0] / at[2])), 0, format.width - 1);
                        sy = std::clamp(int(std::lround(at[1] / at[2])), 0, format.height - 1);
                    }
                    const float* from =
                        source.extra.data() +
                        (std::size_t(sy) * std::size_t(format.width) + std::size_t(sx)) * extras;
                    for (int k : nearest)
                        out.extra[i * extras + std::size_t(k)] = from[k];
                }
        }
    }
    feed_ = Feed::Picture;
}

std::vector<const PointTracks::Track*> CliQuelmor::TracksBetween(float timeA, float timeB) const {
    if (!geometry_.tracks || !std::isfinite(timeA) || !std::isfinite(timeB)) return {};
    // The engine asks about whole frames; its frame 0 is the input's first number.
    const int a = int(std::lround(timeA)) + geometry_.firstNumber;
    const int b = int(std::lround(timeB)) + geometry_.firstNumber;
    return geometry_.tracks->Between(a, b);
}

// The tracks belong to no layer of their own: as seeds they steer the front layer's flow; as the
// only motion every layer moves by them.
bool CliQuelmor::LayerTakesTracks(int layer) const {
    return layer == 0 || (geometry_.only && geometry_.tracks);
}

unsigned long CliQuelmor::GetNumGeometries(int layer, float timeA, float timeB) {
    return LayerTakesTracks(layer) ? TracksBetween(timeA, timeB).size() : 0;
}

int CliQuelmor::GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                                  unsigned long* count, float** xA, float** yA, float** xB,
                                  float** yB) {
    if (!count || !xA || !yA || !xB || !yB) return 5;
    *count = 0;
    *xA = *yA = *xB = *yB = nullptr;
    const auto tracks = TracksBetween(timeA, timeB);
    if (!LayerTakesTracks(layer) || index >= tracks.size()) return 5;
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

void CliQuelmor::GetDoOpticalFlow(bool* doFlow, int, float) {
    *doFlow = !(geometry_.only && geometry_.tracks);
}

} // namespace quelmor::cli
