#include "cli/VectorFiles.h"

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include "cli/CommandLine.h"
#include "flow/FlowFile.h"

namespace quelmor::cli {

namespace fs = std::filesystem;

namespace {

constexpr FlowDirection kDirections[] = {FlowDirection::Forward, FlowDirection::Backward};

const char* NameOf(FlowDirection direction) {
    return direction == FlowDirection::Forward ? "forward" : "backward";
}

std::string SizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// The size in the header of a .flo file, without reading its data.
bool FloFileSize(const std::string& path, int* width, int* height, std::string* reason) {
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                         &std::fclose);
    uint8_t header[12];
    if (!file) {
        *reason = "cannot open it";
        return false;
    }
    if (std::fread(header, 1, sizeof header, file.get()) != sizeof header ||
        std::memcmp(header, "PIEH", 4) != 0) {
        *reason = "not a .flo file (it does not start with PIEH)";
        return false;
    }
    int32_t w = 0, h = 0;
    for (int i = 3; i >= 0; --i) {
        w = int32_t(uint32_t(w) << 8 | header[4 + i]);
        h = int32_t(uint32_t(h) << 8 | header[8 + i]);
    }
    *width = w;
    *height = h;
    return true;
}

} // namespace

VectorSequence::VectorSequence(const std::string& pattern, const std::string& what)
    : text_(pattern) {
    const std::string ext = ExtensionOf(pattern);
    const auto parsed = SequencePattern::Parse(pattern);
    if (!parsed || (ext != "exr" && ext != "flo"))
        throw UsageError(what +
                         " wants numbered vector files, name.%04d.exr or name.%04d.flo, "
                         "got \"" +
                         pattern + "\"");
    exr_ = ext == "exr";
    if (exr_) {
        patterns_.push_back(*parsed);
        return;
    }
    const std::string stem = pattern.substr(0, pattern.size() - 4); // without ".flo"
    for (FlowDirection direction : kDirections)
        patterns_.push_back(*SequencePattern::Parse(stem + "." + NameOf(direction) + ".flo"));
}

std::string VectorSequence::Path(int number, FlowDirection direction) const {
    return patterns_[exr_ || direction == FlowDirection::Forward ? 0 : 1].Path(number);
}

std::vector<std::string> VectorSequence::Files(int number) const {
    std::vector<std::string> files;
    for (const SequencePattern& pattern : patterns_)
        files.push_back(pattern.Path(number));
    return files;
}

void VectorSequence::CheckCovers(int first, int last, int width, int height) const {
    std::error_code ec;
    for (int number = first; number <= last; ++number)
        for (const std::string& file : Files(number)) {
            if (!fs::exists(file, ec)) continue;
            int w = 0, h = 0;
            std::string reason;
            const bool read =
                exr_ ? ImageFileSize(file, &w, &h, &reason) : FloFileSize(file, &w, &h, &reason);
            if (!read) throw MediaError("cannot read the vector file " + file + ": " + reason);
            if (w != width || h != height)
                throw MediaError("the vector file " + file + " is " + SizeText(w, h) +
                                 ", the input " + SizeText(width, height));
        }
    for (int number = first; number < last; ++number) {
        const std::string forward = Path(number, FlowDirection::Forward);
        const std::string backward = Path(number + 1, FlowDirection::Backward);
        if (!fs::exists(forward, ec) && !fs::exists(backward, ec))
            throw MediaError("no vectors between frames " + std::to_string(number) + " and " +
                             std::to_string(number + 1) + ": neither " + forward + " nor " +
                             backward + " is there");
    }
}

void VectorReader::Check(const DQImage& flow, const std::string& path) const {
    if (flow.width != width_ || flow.height != height_)
        throw MediaError("the vector file " + path + " is " + SizeText(flow.width, flow.height) +
                         ", the input " + SizeText(width_, height_));
    for (int y = 0; y < flow.height; ++y) {
        const float* row = flow.Row<float>(y);
        for (int i = 0; i < 2 * flow.width; ++i)
            if (!std::isfinite(row[i]))
                throw MediaError("the vector file " + path + " is damaged: the vector at " +
                                 std::to_string(i / 2) + "," + std::to_string(y) +
                                 " is not a number");
    }
}

const DQImage* VectorReader::Get(int number, FlowDirection direction) {
    const auto pick = [&](const ExrMotion& m) {
        return (direction == FlowDirection::Forward ? m.forward : m.backward).get();
    };
    for (const Frame& frame : kept_)
        if (frame.number == number) return pick(frame.motion);
    Frame frame{number, {}};
    std::error_code ec;
    if (sequence_.IsExr()) {
        // A frame without a file has vectors in neither direction; its neighbours' may do.
        const std::string path = sequence_.Path(number, direction);
        std::string reason;
        if (fs::exists(path, ec) && !ReadExrMotion(path, &frame.motion, &reason))
            throw MediaError("cannot read the vector file " + path + ": " + reason);
        for (const DQImage* flow : {frame.motion.forward.get(), frame.motion.backward.get()})
            if (flow) Check(*flow, path);
    } else {
        for (FlowDirection d : kDirections) {
            const std::string path = sequence_.Path(number, d);
            if (!fs::exists(path, ec)) continue;
            std::string reason;
            DQImagePtr flow = ReadFloFile(path, &reason);
            if (!flow) throw MediaError("cannot read the vector file " + path + ": " + reason);
            Check(*flow, path);
            (d == FlowDirection::Forward ? frame.motion.forward : frame.motion.backward) =
                std::move(flow);
        }
    }
    if (kept_.size() == 2) kept_.pop_front();
    kept_.push_back(std::move(frame));
    return pick(kept_.back().motion);
}

VectorWriter::VectorWriter(VectorSequence sequence, int first, int last, bool overwrite)
    : sequence_(std::move(sequence)) {
    const fs::path folder = fs::path(sequence_.Path(first, FlowDirection::Forward)).parent_path();
    const fs::path where = folder.empty() ? fs::path(".") : folder;
    std::error_code ec;
    if (!fs::is_directory(where, ec))
        throw MediaError("output folder " + where.string() + " does not exist");
    if (access(where.c_str(), W_OK | X_OK) != 0)
        throw MediaError("output folder " + where.string() + " is not writable");
    if (overwrite) return;
    for (int number = first; number <= last; ++number)
        for (const std::string& file : sequence_.Files(number))
            if (fs::exists(file, ec))
                throw MediaError("output " + file +
                                 " already exists; use --overwrite to replace it");
}

VectorWriter::~VectorWriter() {
    std::error_code ec;
    for (std::size_t i = placed_; i < written_.size(); ++i)
        fs::remove(PartPath(written_[i]), ec);
}

void VectorWriter::WriteOne(const std::string& path, const DQImage* forward,
                            const DQImage* backward) {
    const std::string part = PartPath(path);
    std::string reason;
    const int code = sequence_.IsExr()
                         ? WriteExrMotion(forward, backward, part, &reason)
                         : WriteFloFile(forward ? *forward : *backward, part, &reason);
    if (code != 0) {
        std::error_code ec;
        fs::remove(part, ec);
        throw MediaError("cannot write " + path + ": " + reason);
    }
    written_.push_back(path);
}

void VectorWriter::Write(int number, const DQImage* forward, const DQImage* backward) {
    if (sequence_.IsExr()) {
        if (forward || backward)
            WriteOne(sequence_.Path(number, FlowDirection::Forward), forward, backward);
        return;
    }
    if (forward) WriteOne(sequence_.Path(number, FlowDirection::Forward), forward, nullptr);
    if (backward) WriteOne(sequence_.Path(number, FlowDirection::Backward), nullptr, backward);
}

void VectorWriter::Finish() {
    for (; placed_ < written_.size(); ++placed_) {
        const std::string& path = written_[placed_];
        if (std::rename(PartPath(path).c_str(), path.c_str()) != 0)
            throw MediaError("cannot put " + path + " in place: " + std::strerror(errno));
    }
}

} // namespace quelmor::cli
