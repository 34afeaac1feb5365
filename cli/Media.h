// Reading and writing clips: numbered image files or a video file, chosen by the name.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "MediaFrame.h"

namespace quelmor::cli {

class MediaReader {
public:
    virtual ~MediaReader() = default;
    virtual const MediaFormat& Format() const = 0;
    virtual int FrameCount() const = 0;
    // Number of the first frame in the file names; 0 for a video file.
    virtual int FirstNumber() const = 0;
    // Frames per second, 0 when the source does not say.
    virtual double FrameRate() const = 0;
    // Reads frame `index` (from 0) in the reader's own format.
    virtual void Read(int index, MediaFrame& frame) = 0;
};

// Writers keep the existing output whole until the run has succeeded: frames go to hidden files
// beside it and take their places only in Finish.
class MediaWriter {
public:
    // A writer destroyed before Finish removes everything it wrote and leaves the existing
    // output as it was.
    virtual ~MediaWriter() = default;
    virtual const MediaFormat& Format() const = 0;
    // Writes one frame; `number` names the file of an image sequence. Frames come in order to a
    // writer that takes one at a time.
    virtual void Write(int number, const MediaFrame& frame) = 0;
    // How many frames Write may take at once from different threads, in any order.
    virtual int ConcurrentWrites() const { return 1; }
    // Puts every frame written in place, replacing the files of the same names, and with
    // `overwrite` removes the sequence's files outside the whole output.
    virtual void Finish() = 0;
};

// Frame numbers `first` to `last`, both included.
struct FrameSpan {
    int first = 0;
    int last = -1;
    bool Holds(int number) const { return number >= first && number <= last; }
};

struct WriteOptions {
    bool overwrite = false;
    // Continuing an image sequence: the frames already there are kept and are not in the way,
    // and a run that fails keeps the frames it finished, which are complete since each one is
    // renamed into place only once written.
    bool resume = false;
    double frameRate = 25.0;
    // Frames per second of the source, which its timecode counts; 0 when it does not say.
    double sourceRate = 0.0;
    // Moments per second of the source's time that the output shows (its rate over the speed);
    // 0 when the speed changes over the clip.
    double captureRate = 0.0;
    // A video file whose sound a video output carries as it is, or "".
    std::string audioFrom;
    // Frame numbers of the whole output of the run's timing, where known. A file of an image
    // sequence outside them belongs to no run of this timing: without `overwrite` it stops the
    // run, as the folder would hold a sequence that no run made; with it, a finished run removes
    // the file.
    std::optional<FrameSpan> whole;
};

// The longest run: more output frames than this are taken for a mistake of timing.
inline constexpr std::int64_t kMostFramesPerRun = 10'000'000;
// Frame numbers in file names have at most nine digits.
inline constexpr std::int64_t kLargestFrameNumber = 999'999'999;

// Number of the last of `count` frames numbered from `first`; throws MediaError, with the
// numbers, when it needs more than nine digits.
int LastFrameNumber(int first, std::int64_t count);

bool IsVideoPath(const std::string& path);

// Threads that a video decoder or encoder opened after this call may use; 0, the default, lets
// the codec take one per core. Image files are read and written on the caller's thread.
void SetCodecThreads(int threads);
int CodecThreads();

// Throws MediaError with a message for the user when the input cannot be used.
std::unique_ptr<MediaReader> OpenMedia(const std::string& path);

// Sample type written for a source of type `in` into a file with extension `ext`:
// 8-bit stays 8-bit, 16-bit stays 16-bit where the format can hold it, half and
// float become half in EXR.
SampleType OutputSampleFor(SampleType in, const std::string& ext);

// Checks, before anything is rendered, that the output can be written: a known
// format, an existing writable folder, and no file in the way of frames `first`
// to `last` unless overwriting. Throws MediaError and touches nothing.
void CheckOutput(const std::string& path, int first, int last, const WriteOptions& options);

// Existing files that a run writing frames `first` to `last` to `path` would replace or, for an
// image sequence, leave beside its frames outside `options.whole`.
std::vector<std::string> OutputInTheWay(const std::string& path, int first, int last,
                                        const WriteOptions& options);

// `format` is the source's format; the writer picks its own sample type and channels.
std::unique_ptr<MediaWriter> CreateMedia(const std::string& path, const MediaFormat& format,
                                         const WriteOptions& options);

// Converts samples and channel count between grey, grey and alpha, RGB and RGBA: grey spreads to
// R = G = B, RGB becomes grey by its red, alpha is kept where both have it and a missing alpha
// becomes opaque.
void ConvertFrame(const MediaFrame& in, const MediaFormat& to, MediaFrame& out);

} // namespace quelmor::cli
