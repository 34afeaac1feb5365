// The engine driven straight from a clip on disk: source frames come from a media
// reader, time from a Timing, scenes from a key curve. Every setting that the
// plug-in fixes as a constant is fixed here the same way, so that both paths
// make the same pictures.
#pragma once

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "cli/ChannelMix.h"
#include "cli/Media.h"
#include "cli/PointTracks.h"
#include "cli/ReadAhead.h"
#include "cli/StageClock.h"
#include "cli/Timing.h"
#include "cli/VectorFiles.h"
#include "engine/Engine.h"

namespace quelmor::cli {

struct EngineSettings {
    int interpolation = 1; // 0 nearest, 1 blend, 2 weighted energy blend
    int vectorQuality = 4; // 0 none to 4 best
    float motionBlur = 0.0f;
    int warping = 0; // 0 inverse, 1 smart, 2 forward, 3 forward alone: UsesWhichWarping
    // Foreground layers in front of the background, each grown by matteShrink pixels and tracked
    // with layerSensitivity; draw 0 all layers, 1 the foreground alone, 2 the background alone.
    int foregroundLayers = 0;
    float matteShrink = 0.0f;
    float layerSensitivity = 1.0f;
    int draw = 0;
};

// Correspondences given by hand and what the engine does with them.
struct GeometryUse {
    const PointTracks* tracks = nullptr; // none: no geometry
    int firstNumber = 0;                 // input frame number of the engine's frame 0
    bool only = false;                   // the tracks are the only motion: no optical flow
    bool show = false;                   // draw them over every output frame
};

// Working format of the engine for a source: four channels of 8 bits, 16 bits or float.
MediaFormat WorkingFormat(const MediaFormat& source);

// Throws MediaError, saying why, when the engine cannot hold frames of this source at this vector
// quality: an image of the working format, or one the flow makes, would pass 2 GiB.
void CheckEngineFrameSize(const MediaFormat& source, int vectorQuality);

class CliQuelmor final : public ZUQuelmor4 {
public:
    // `scenes` and `clock` may be null; the reader, timing, curve and clock must outlive the
    // object. The clock gets the decoding and converting of source frames.
    CliQuelmor(MediaReader& source, const Timing& timing, const SparkCurve* scenes,
               StageClock* clock = nullptr);
    ~CliQuelmor() override;

    // Geometry from now on; the tracks must outlive the object.
    void UseGeometry(const GeometryUse& use) { geometry_ = use; }
    // The matte of each foreground layer, frontmost first: a reader of a matte clip (its first
    // channel is the matte), or null for the alpha of the source itself. The readers must outlive
    // the object and have the source's frame size.
    void SetMattes(std::vector<MediaReader*> mattes) { mattes_ = std::move(mattes); }

    // How each extra channel of the source is mixed; by default as its name says.
    void SetChannelMix(std::vector<ChannelMix> mixes);
    // Whether Render makes the extra channels (on by default); off for outputs that hold none.
    void KeepExtraChannels(bool keep) { keepExtras_ = keep; }

    // Motion read from vector files instead of computed: engine frame i is the file numbered
    // firstNumber + i, and every vector is multiplied by scaleX, scaleY. The reader must outlive
    // the object.
    void UseVectors(VectorReader* vectors, int firstNumber, float scaleX, float scaleY);

    // Renders output frame `index` (counted from 0) into `out`, in the working format, with the
    // source's extra channels. Throws MediaError when a source frame cannot be read (with the
    // reader's message) or the engine fails.
    void Render(int index, const EngineSettings& settings, MediaFrame& out);

    int GetToBeWarpedSequenceImage(ZUImage** image, int frame) override;
    int GetTrackingSequenceImage(ZUImage** image, int frame) override;
    int CleanUpCheckedOutImage(ZUImage* image) override;
    int GetMatteLayerSequenceImage(ZUImage** image, int frame, int layer) override;
    int CleanUpCheckedOutMatteImage(ZUImage* image) override;
    int GetKeyframedTime(float* sourceTime, float outputTime) override;
    int WhichScene(float time) override;
    int UsesWhichWarping() override;
    int GetDrawStartLayer() override;
    int GetDrawEndLayer() override;

    // The tracks of the file that have positions in both frames, one geometry each.
    unsigned long GetNumGeometries(int layer, float timeA, float timeB) override;
    int GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                          unsigned long* count, float** xA, float** yA, float** xB,
                          float** yB) override;
    void ReleasePoints(float* xA, float* yA, float* xB, float* yB) override;
    void GetGeometryColor(int layer, unsigned long index, unsigned char* red, unsigned char* green,
                          unsigned char* blue, float time) override;
    void GetBackgroundLayerDoOpticalFlow(bool* doFlow, float time) override;
    void GetDoOpticalFlow(bool* doFlow, int layer, float time) override;

    // The vectors of UseVectors, as four float channels (x, y, 0, 1) of the frame's size. A frame
    // whose neighbour lies beyond the clip, and so is the frame itself, has zero motion.
    int UsesExternalVectors() override;
    int GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame) override;
    int GetNextFrameVectors(ZUImage** vectors, float* scale, int frame) override;
    int ReleasePreviousFrameVectors(ZUImage* vectors) override;
    int ReleaseNextFrameVectors(ZUImage* vectors) override;
    int GetVectorScaleXY(float* scaleX, float* scaleY, int frame) override;

private:
    // Hands out the vectors of engine frame `frame` towards `step` (+1 or -1): 0, 5 when the
    // files hold none, 7 when they cannot be read.
    int LendVectors(ZUImage** vectors, float* scale, int frame, int step);

    // What the engine is fed as the frames to warp: the picture; four extra channels to blend;
    // or the positions of the pixels of the earlier (side 0) or later (side 1) source frame,
    // from which the nearest source sample of every output pixel follows.
    enum class Feed { Picture, Extras, Positions };

    // One run of the engine for output frame `index` into `result`.
    void RunEngine(int index, const EngineSettings& settings, long flowFromSequence,
                   ZUImage* result);
    void RenderExtras(int index, const EngineSettings& settings, MediaFrame& out);
    // The image of the frames to warp for the extra passes, in the memory of `bytes`.
    void FillFeed(const MediaFrame& source, int frame, std::vector<uint8_t>& bytes);

    // A source frame in the working format; the two most recent are kept, since
    // consecutive in-between frames ask for the same pair.
    const MediaFrame& WorkingFrame(int frame);
    // The tracks between the engine's frames at timeA and timeB.
    std::vector<const PointTracks::Track*> TracksBetween(float timeA, float timeB) const;
    bool LayerTakesTracks(int layer) const;

    MediaReader& source_;
    const Timing& timing_;
    const SparkCurve* scenes_;
    StageClock* clock_;
    MediaFormat working_;
    // Source frames decoded and converted to the working format one ahead.
    ReadAhead frames_;
    std::deque<std::pair<int, MediaFrame>> kept_;
    // Pixel memory of frames the engine gave back, for the next ones it checks out.
    std::vector<std::vector<uint8_t>> spare_;
    // Why the source frame of the frame in hand could not be read: the message Render throws.
    std::string readFailure_;
    GeometryUse geometry_;
    // Warping of the frame being rendered.
    int warping_ = 0;
    std::vector<MediaReader*> mattes_;
    int draw_ = 0;

    std::vector<ChannelMix> mixes_; // one per extra channel
    bool keepExtras_ = true;
    Feed feed_ = Feed::Picture;
    std::vector<int> group_; // the extra channels of an Extras pass, up to four
    int side_ = 0;           // the side of a Positions pass
    float split_ = 0.0f;     // source frames up to this time are the earlier side
    int sideFrame_ = -1;     // the source frame whose positions a Positions pass handed out

    VectorReader* vectors_ = nullptr; // motion from files, or null: computed
    int vectorFirst_ = 0;
    float vectorScale_[2] = {1.0f, 1.0f};
};

} // namespace quelmor::cli
