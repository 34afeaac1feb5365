#include "Media.h"

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <system_error>

#include "ImageSequence.h"
#include "SequencePattern.h"
#include "VideoFile.h"

namespace quelmor::cli {
namespace fs = std::filesystem;

namespace {
std::atomic<int> gCodecThreads{0};
} // namespace

void SetCodecThreads(int threads) {
    gCodecThreads.store(threads < 0 ? 0 : threads);
}

int CodecThreads() {
    return gCodecThreads.load();
}

bool IsVideoPath(const std::string& path) {
    return IsVideoExtension(ExtensionOf(path));
}

int LastFrameNumber(int first, std::int64_t count) {
    const std::int64_t last = std::int64_t(first) + count - 1;
    if (last > kLargestFrameNumber)
        throw MediaError("the " + std::to_string(count) + " output frames from frame " +
                         std::to_string(first) + " would end at frame " + std::to_string(last) +
                         ", past " + std::to_string(kLargestFrameNumber) +
                         ", the largest frame number");
    return int(last);
}

std::unique_ptr<MediaReader> OpenMedia(const std::string& path) {
    if (auto pattern = SequencePattern::Parse(path)) {
        if (!IsImageExtension(ExtensionOf(path)))
            throw MediaError("unsupported image format \"" + ExtensionOf(path) + "\" in " + path);
        return OpenSequence(*pattern);
    }
    std::error_code ec;
    if (!fs::exists(path, ec)) throw MediaError("input " + path + " does not exist");
    if (fs::is_directory(path, ec))
        throw MediaError("input " + path + " is a folder; name its frames, as in " +
                         (fs::path(path) / "name.%04d.png").string());
    if (access(path.c_str(), R_OK) != 0) throw MediaError("input " + path + " is not readable");
    if (IsImageExtension(ExtensionOf(path)))
        throw MediaError(
            "input " + path +
            " is a single image; name a sequence with a frame field such as %04d or ####");
    return OpenVideo(path);
}

void CheckOutput(const std::string& path, int first, int last, const WriteOptions& options) {
    const auto pattern = SequencePattern::Parse(path);
    const std::string ext = ExtensionOf(path);
    if (pattern ? !IsImageExtension(ext) : !CanWriteVideo(ext))
        throw MediaError(
            "unsupported output format \"" + ext + "\" for " + path +
            (pattern ? "" : "; use an image sequence (name.%04d.png) or a .mov or .mp4 file"));
    const fs::path folder =
        pattern ? fs::path(pattern->Folder()) : fs::absolute(path).parent_path();
    std::error_code ec;
    if (!fs::is_directory(folder, ec))
        throw MediaError("output folder " + folder.string() + " does not exist");
    if (access(folder.c_str(), W_OK | X_OK) != 0)
        throw MediaError("output folder " + folder.string() + " is not writable");
    if (options.overwrite) return;
    if (!pattern) {
        if (fs::exists(path, ec))
            throw MediaError("output " + path + " already exists; use --overwrite to replace it");
        return;
    }
    for (int frame : pattern->FindFrames()) {
        if (frame >= first && frame <= last && !options.resume)
            throw MediaError("output " + pattern->Path(frame) +
                             " already exists; use --overwrite to replace it");
        if (options.whole && !options.whole->Holds(frame))
            throw MediaError(
                "output " + pattern->Path(frame) + " already exists outside the frames " +
                pattern->Path(options.whole->first) + " to " + pattern->Path(options.whole->last) +
                " that this run makes; use --overwrite to replace the sequence");
    }
}

std::vector<std::string> OutputInTheWay(const std::string& path, int first, int last,
                                        const WriteOptions& options) {
    std::vector<std::string> inTheWay;
    if (const auto pattern = SequencePattern::Parse(path)) {
        for (int frame : pattern->FindFrames())
            if ((frame >= first && frame <= last && !options.resume) ||
                (options.whole && !options.whole->Holds(frame)))
                inTheWay.push_back(pattern->Path(frame));
    } else {
        std::error_code ec;
        if (fs::exists(path, ec)) inTheWay.push_back(path);
    }
    return inTheWay;
}

std::unique_ptr<MediaWriter> CreateMedia(const std::string& path, const MediaFormat& format,
                                         const WriteOptions& options) {
    if (auto pattern = SequencePattern::Parse(path))
        return CreateSequence(*pattern, format, options);
    return CreateVideo(path, format, options);
}

} // namespace quelmor::cli
