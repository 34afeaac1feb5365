#include "ImageSequence.h"

#include "ChannelCopy.h"
#include "FileAttributes.h"
#include "FrameIntegrity.h"

#include <OpenImageIO/filesystem.h>
#include <OpenImageIO/imageio.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <cstdio>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <vector>

namespace quelmor::cli {
namespace fs = std::filesystem;
namespace oiio = OIIO;

namespace {

oiio::TypeDesc TypeOf(SampleType type) {
    switch (type) {
    case SampleType::U8:
        return oiio::TypeDesc::UINT8;
    case SampleType::U16:
        return oiio::TypeDesc::UINT16;
    case SampleType::Half:
        return oiio::TypeDesc::HALF;
    case SampleType::Float:
        return oiio::TypeDesc::FLOAT;
    }
    return oiio::TypeDesc::UNKNOWN;
}

SampleType SampleOf(oiio::TypeDesc type) {
    switch (type.basetype) {
    case oiio::TypeDesc::UINT8:
    case oiio::TypeDesc::INT8:
        return SampleType::U8;
    case oiio::TypeDesc::HALF:
        return SampleType::Half;
    case oiio::TypeDesc::FLOAT:
    case oiio::TypeDesc::DOUBLE:
        return SampleType::Float;
    default:
        return SampleType::U16; // 10, 12, 16 and 32 bit integers
    }
}

// Frames are read ahead and written on threads of the command's own, one frame a thread: the
// image libraries work on the calling thread instead of pools of their own, so that they take
// no cores from the engine and their time counts for the thread that asked.
void WorkOnCallingThreads() {
    static std::once_flag once;
    std::call_once(once, [] {
        oiio::attribute("threads", 1);
        oiio::attribute("exr_threads", -1);
    });
}

// The library's message, first line only: the rest repeats it as the codec's own chatter.
std::string Why(std::string text) {
    text = text.substr(0, text.find('\n'));
    return text.empty() ? "the file is damaged" : text;
}

// Channels of the picture in a file whose header is `header`: grey, grey and alpha, RGB or RGBA
// as they come; of more, the leading R, G, B and A when they are named so. The channels after
// the picture's are read too, as extra channels. Anything else is refused, since reading it as
// colour would make up a picture.
int PictureChannels(const oiio::ImageSpec& header, const std::string& path) {
    const int n = header.nchannels;
    auto refuse = [&](const char* what) {
        std::string text = "input frame " + path + " has " + std::to_string(n) + " channels (";
        for (std::size_t i = 0; i < header.channelnames.size(); ++i)
            text.append(i ? ", " : "").append(header.channelnames[i]);
        return MediaError(text.append(")").append(what));
    };
    // Two channels are grey and alpha only when the second says it is alpha (not R and G, nor
    // the two halves of a vector).
    if (n == 2 && header.alpha_channel != 1) throw refuse(" that are not grey and alpha");
    if (n <= 3) return n;
    // Of four or more, colour first and alpha fourth when the file marks it so (a fourth channel
    // such as depth is an extra channel); of more than four, only channels named R, G and B are
    // colour.
    const int read = header.alpha_channel == 3 ? 4 : 3;
    auto named = [&](int i, const char* name) {
        return i < int(header.channelnames.size()) && header.channelnames[size_t(i)] == name;
    };
    if (n == 4 || (named(0, "R") && named(1, "G") && named(2, "B"))) return read;
    throw refuse("; quelmor reads grey, grey and alpha, RGB and RGBA, or the leading R, G, B "
                 "(and A) of more");
}

// Whether a file's colour is straight (not multiplied by alpha): always in PNG, in TGA unless it
// says premultiplied, in TIFF when it says unassociated; EXR and the others premultiply.
bool StraightAlphaIn(const oiio::ImageSpec& header, const std::string& ext) {
    if (ext == "png") return true;
    if (ext == "tga") return header.get_int_attribute("targa:alpha_type", 3) != 4;
    if (ext == "tif" || ext == "tiff")
        return header.get_int_attribute("tiff:UnassociatedAlpha") != 0;
    return false;
}

// The convention of a file written with extension `ext` for a source of convention `source`:
// PNG and TGA hold straight colour, EXR premultiplied; TIFF and DPX hold either, as the source
// (straight, marked so, when it does not say).
AlphaConvention AlphaOut(const std::string& ext, AlphaConvention source) {
    if (ext == "png" || ext == "tga") return AlphaConvention::Straight;
    if (ext == "exr" || ext == "hdr") return AlphaConvention::Premultiplied;
    return source == AlphaConvention::Unsaid ? AlphaConvention::Straight : source;
}

// Multiplies colour by alpha (`straighten` false) or divides it (true), on float samples;
// colour under zero alpha becomes zero.
void ChangeAlphaConvention(MediaFrame& frame, bool straighten) {
    const MediaFormat f = frame.format;
    MediaFormat asFloat(f.width, f.height, f.channels, SampleType::Float);
    MediaFrame values;
    ConvertFrame(frame, asFloat, values);
    const int colours = f.channels - 1;
    float* p = values.Row<float>(0);
    const std::size_t pixels = std::size_t(f.width) * std::size_t(f.height);
    for (std::size_t i = 0; i < pixels; ++i, p += f.channels) {
        const float alpha = p[colours];
        for (int c = 0; c < colours; ++c)
            p[c] = straighten ? (alpha > 0.0f ? p[c] / alpha : 0.0f) : p[c] * alpha;
    }
    MediaFormat back(f.width, f.height, f.channels, f.sample);
    MediaFrame converted;
    ConvertFrame(values, back, converted);
    frame.pixels = std::move(converted.pixels);
}

MediaFormat ReadHeader(const std::string& path) {
    auto in = oiio::ImageInput::open(path);
    if (!in) throw MediaError("cannot read " + path + ": " + Why(oiio::geterror()));
    const oiio::ImageSpec& header = in->spec();
    MediaFormat f;
    f.width = header.width;
    f.height = header.height;
    f.x = header.x;
    f.y = header.y;
    f.displayX = header.full_x;
    f.displayY = header.full_y;
    f.displayWidth = header.full_width;
    f.displayHeight = header.full_height;
    f.channels = PictureChannels(header, path);
    f.sample = SampleOf(header.channelformat(0));
    for (int c = 0; c < header.nchannels; ++c) {
        const oiio::TypeDesc type = header.channelformat(c);
        const std::string name =
            c < int(header.channelnames.size()) ? header.channelnames[size_t(c)] : std::string();
        f.fileChannels.push_back({name, SampleOf(type), c, int(type.basetype)});
        if (c >= f.channels) f.extras.push_back(name);
    }
    // The picture's channels take one type: the widest of theirs.
    for (int c = 1; c < f.channels; ++c)
        if (SampleBytes(f.fileChannels[size_t(c)].sample) > SampleBytes(f.sample))
            f.sample = f.fileChannels[size_t(c)].sample;
    f.attributes = CarriedAttributes(header);
    if (f.HasAlpha())
        f.alpha = StraightAlphaIn(header, ExtensionOf(path)) ? AlphaConvention::Straight
                                                             : AlphaConvention::Premultiplied;
    return f;
}

bool SameDisplay(const MediaFormat& a, const MediaFormat& b) {
    return a.displayX == b.displayX && a.displayY == b.displayY &&
           a.displayWidth == b.displayWidth && a.displayHeight == b.displayHeight;
}

bool SameChannels(const MediaFormat& a, const MediaFormat& b) {
    if (a.channels != b.channels || a.fileChannels.size() != b.fileChannels.size()) return false;
    for (std::size_t c = 0; c < a.fileChannels.size(); ++c)
        if (a.fileChannels[c].name != b.fileChannels[c].name) return false;
    return true;
}

// Grows the data window of `into` to hold that of `f` too.
void UniteWindows(MediaFormat& into, const MediaFormat& f) {
    const int x0 = std::min(into.x, f.x), y0 = std::min(into.y, f.y);
    const int x1 = std::max(into.x + into.width, f.x + f.width);
    const int y1 = std::max(into.y + into.height, f.y + f.height);
    into.x = x0;
    into.y = y0;
    into.width = x1 - x0;
    into.height = y1 - y0;
}

// Refuses a frame whose damage shows without decoding it.
void CheckVisibleDamage(const std::string& path) {
    const std::string damage = VisibleDamage(path, ExtensionOf(path));
    if (!damage.empty()) throw MediaError("cannot read " + path + ": " + damage);
}

// Writes all of `bytes` to an open file and closes it; returns why it failed, or "".
std::string WriteAndClose(int fd, const std::vector<unsigned char>& bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            const std::string why = n < 0 ? std::strerror(errno) : "nothing written";
            close(fd);
            return why;
        }
        done += std::size_t(n);
    }
    if (close(fd) != 0) return std::strerror(errno);
    return "";
}

// Writes all of `bytes` to a new file `path`; returns why it failed, or "". The bytes go first
// into a file without a name in the same folder, which is named only once complete: a process
// killed while writing (a crash, a signal, the file size limit) leaves nothing behind. Where the
// file system has no unnamed files, `path` is written directly.
std::string WriteWholeFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    const std::string folder = fs::path(path).parent_path().string();
    const int unnamed =
        open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    if (unnamed >= 0) {
        std::string why = WriteAndClose(dup(unnamed), bytes);
        bool noProc = false;
        if (why.empty()) {
            // The file is complete: name it through its descriptor, over a name left behind.
            const std::string self = "/proc/self/fd/" + std::to_string(unnamed);
            unlink(path.c_str());
            if (linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) != 0) {
                noProc = errno == ENOENT;
                why = std::strerror(errno);
            }
        }
        close(unnamed);
        // Without /proc to name it by, the file is written again under its name.
        if (!noProc) return why;
    }
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return std::strerror(errno);
    return WriteAndClose(fd, bytes);
}

std::string Describe(const MediaFormat& f) {
    return std::to_string(f.width) + "x" + std::to_string(f.height) + ", " +
           std::to_string(f.channels) + " channels, " + SampleTypeName(f.sample);
}

class SequenceReader final : public MediaReader {
public:
    explicit SequenceReader(const SequencePattern& pattern) : pattern_(pattern) {
        WorkOnCallingThreads();
        const std::vector<int> frames = pattern.FindFrames();
        if (frames.empty()) throw MediaError("no input frames match " + pattern.Text());
        first_ = frames.front();
        count_ = int(frames.size());
        for (int i = 0; i < count_; ++i) {
            if (frames[i] != first_ + i)
                throw MediaError("input frame " + pattern.Path(first_ + i) +
                                 " is missing from the sequence");
        }
        // Every header is read now, and every frame checked for damage that shows without
        // decoding, so that a frame of another size or a truncated one stops the run before any
        // output.
        // Frames whose data window changes inside one display window (renders that crop to
        // what they drew) are read into the union of their windows, zero outside their own.
        format_ = ReadHeader(pattern.Path(first_));
        const MediaFormat firstFrame = format_;
        for (int i = 0; i < count_; ++i) {
            CheckVisibleDamage(pattern.Path(first_ + i));
            if (i == 0) continue;
            const MediaFormat f = ReadHeader(pattern.Path(first_ + i));
            const bool windowed =
                firstFrame.HasDisplayWindow() && SameDisplay(f, firstFrame) &&
                (!f.SameSize(firstFrame) || f.x != firstFrame.x || f.y != firstFrame.y);
            if ((!windowed &&
                 (!f.SameSize(firstFrame) || f.x != firstFrame.x || f.y != firstFrame.y)) ||
                !SameChannels(f, firstFrame))
                throw MediaError("input frame " + pattern.Path(first_ + i) + " is " + Describe(f) +
                                 " but the first frame is " + Describe(firstFrame) +
                                 ": all frames of a sequence must have one size");
            UniteWindows(format_, f);
        }
        rate_ = AttributeFrameRate(format_.attributes.get());
    }

    const MediaFormat& Format() const override { return format_; }
    int FrameCount() const override { return count_; }
    int FirstNumber() const override { return first_; }
    double FrameRate() const override { return rate_; }

    void Read(int index, MediaFrame& frame) override {
        if (index < 0 || index >= count_)
            throw MediaError("no frame " + std::to_string(index) + " in the input");
        const std::string path = pattern_.Path(first_ + index);
        // Colours stay as stored: no premultiplication by alpha on the way in or out.
        oiio::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        auto in = oiio::ImageInput::open(path, &config);
        if (!in) throw MediaError("cannot read " + path + ": " + Why(oiio::geterror()));
        const oiio::ImageSpec& header = in->spec();
        const int left = header.x - format_.x, top = header.y - format_.y;
        if (left < 0 || top < 0 || left + header.width > format_.width ||
            top + header.height > format_.height ||
            header.nchannels != int(format_.fileChannels.size()) ||
            PictureChannels(header, path) != format_.channels)
            throw MediaError("input frame " + path + " changed its format while reading");
        CheckVisibleDamage(path);
        frame.Allocate(format_);
        // The frame's own data window inside the sequence's: rows of the sequence's stride.
        const std::size_t pixelBytes = std::size_t(format_.channels) * SampleBytes(format_.sample);
        std::uint8_t* picture = frame.pixels.data() + std::size_t(top) * format_.RowBytes() +
                                std::size_t(left) * pixelBytes;
        // Some readers report damage (a premature end of a JPEG, a short TIFF strip) only as an
        // error kept on the reader, with the missing rows zero and success returned.
        bool read = in->read_image(0, 0, 0, format_.channels, TypeOf(format_.sample), picture,
                                   oiio::stride_t(pixelBytes), oiio::stride_t(format_.RowBytes()));
        const std::size_t extras = format_.extras.size();
        if (read && extras > 0) {
            float* extra =
                frame.extra.data() +
                (std::size_t(top) * std::size_t(format_.width) + std::size_t(left)) * extras;
            read =
                in->read_image(0, 0, format_.channels, header.nchannels, oiio::TypeDesc::FLOAT,
                               extra, oiio::stride_t(extras * sizeof(float)),
                               oiio::stride_t(std::size_t(format_.width) * extras * sizeof(float)));
        }
        if (!read || in->has_error())
            throw MediaError("cannot read " + path + ": " + Why(in->geterror()));
    }

private:
    SequencePattern pattern_;
    MediaFormat format_;
    int first_ = 0;
    int count_ = 0;
    double rate_ = 0.0;
};

class SequenceWriter final : public MediaWriter {
public:
    SequenceWriter(const SequencePattern& pattern, const MediaFormat& source,
                   const WriteOptions& options)
        : pattern_(pattern), options_(options) {
        WorkOnCallingThreads();
        format_ = source;
        format_.sample = OutputSampleFor(source.sample, ExtensionOf(pattern.Text()));
        const std::string ext = ExtensionOf(pattern.Text());
        if (ext == "jpg" || ext == "jpeg") format_.channels = format_.channels >= 3 ? 3 : 1;
        format_.alpha = AlphaOut(ext, source.alpha);
        changeAlpha_ = format_.HasAlpha() && source.HasAlpha() &&
                       source.alpha != AlphaConvention::Unsaid && format_.alpha != source.alpha;
        // EXR holds every channel of the source under its name and in its type; other formats
        // hold the picture only.
        everyChannel_ =
            ext == "exr" && !source.fileChannels.empty() &&
            source.fileChannels.size() == std::size_t(source.channels) + source.extras.size();
        if (everyChannel_) {
            for (FileChannel& c : format_.fileChannels)
                c.stored = int(ExrTypeOf(c, format_.channels).basetype);
            for (int c = 0; c < format_.channels; ++c)
                if (format_.fileChannels[size_t(c)].stored == oiio::TypeDesc::FLOAT)
                    format_.sample = SampleType::Float;
        } else {
            format_.fileChannels.clear();
            format_.extras.clear();
        }
    }

    // Frames not yet in place are removed; the ones of the same names stay as they were. A
    // resumed run fills gaps, replacing nothing, so the frames it finished go in place instead:
    // a later resume need not render them again.
    ~SequenceWriter() override {
        std::error_code ec;
        for (std::size_t i = placed_; i < written_.size(); ++i) {
            const int number = written_[i];
            if (options_.resume &&
                std::rename(pattern_.TempPath(number).c_str(), pattern_.Path(number).c_str()) == 0)
                continue;
            fs::remove(pattern_.TempPath(number), ec);
        }
    }

    const MediaFormat& Format() const override { return format_; }

    // Frames encode in memory of their own, so several threads may write at once.
    int ConcurrentWrites() const override { return 64; }

    void Write(int number, const MediaFrame& frame) override {
        MediaFrame converted;
        const MediaFrame* source = &frame;
        if (frame.format.sample != format_.sample || frame.format.channels != format_.channels) {
            ConvertFrame(frame, format_, converted);
            source = &converted;
        }
        if (changeAlpha_) {
            if (source != &converted) converted = frame;
            ChangeAlphaConvention(converted, format_.alpha == AlphaConvention::Straight);
            source = &converted;
        }
        const std::string final = pattern_.Path(number);
        const std::string temp = pattern_.TempPath(number);
        auto out = oiio::ImageOutput::create(final);
        if (!out) throw MediaError("cannot write " + final + ": unsupported image format");
        // Encoded in memory and written here, because the image libraries do not all
        // notice a short write; a full disk must fail the frame, not truncate it.
        std::vector<unsigned char> encoded;
        oiio::Filesystem::IOVecOutput memory(encoded);
        std::vector<float> all;
        if (everyChannel_) Interleave(*source, frame, all);
        bool ok = out->set_ioproxy(&memory) && out->open(final, Header(number)) &&
                  (everyChannel_ ? out->write_image(oiio::TypeDesc::FLOAT, all.data())
                                 : out->write_image(TypeOf(format_.sample), source->pixels.data()));
        ok = out->close() && ok;
        if (!ok) throw MediaError("cannot encode " + final + ": " + out->geterror());
        // The frame waits under its hidden name until the whole run has succeeded.
        const std::string why = WriteWholeFile(temp, encoded);
        if (!why.empty()) {
            std::error_code ec;
            fs::remove(temp, ec);
            throw MediaError("cannot write " + final + ": " + why);
        }
        std::lock_guard lock(writtenMutex_);
        written_.push_back(number);
    }

    // Renames every frame into place, in frame order, then removes the old frames that the new
    // sequence does not hold. A rename within one folder replaces its target at once and needs no
    // room on the disk, so the pass fails only when the folder changes under it.
    void Finish() override {
        std::sort(written_.begin(), written_.end());
        for (; placed_ < written_.size(); ++placed_) {
            const int number = written_[placed_];
            if (std::rename(pattern_.TempPath(number).c_str(), pattern_.Path(number).c_str()) !=
                0) {
                const std::string why = std::strerror(errno);
                throw MediaError("cannot put " + pattern_.Path(number) + " in place: " + why +
                                 (placed_ == 0 ? std::string()
                                               : "; " + pattern_.Path(written_.front()) + " to " +
                                                     pattern_.Path(written_[placed_ - 1]) +
                                                     " are new, the other frames as they were"));
            }
        }
        if (!options_.overwrite || !options_.whole) return;
        for (int frame : pattern_.FindFrames()) {
            if (options_.whole->Holds(frame)) continue;
            std::error_code ec;
            if (!fs::remove(pattern_.Path(frame), ec) && ec)
                throw MediaError("cannot remove the old frame " + pattern_.Path(frame) +
                                 " beyond the new sequence: " + ec.message());
        }
    }

private:
    // The type an EXR channel is written in: halves and floats as they were, 32-bit integers
    // (object ids) as such; other integers as halves in the picture and floats beside it.
    static oiio::TypeDesc ExrTypeOf(const FileChannel& c, int pictureChannels) {
        switch (c.stored) {
        case oiio::TypeDesc::HALF:
        case oiio::TypeDesc::FLOAT:
            return oiio::TypeDesc(oiio::TypeDesc::BASETYPE(c.stored));
        case oiio::TypeDesc::UINT:
        case oiio::TypeDesc::INT:
            return oiio::TypeDesc::UINT;
        default:
            return c.slot < pictureChannels ? oiio::TypeDesc::HALF : oiio::TypeDesc::FLOAT;
        }
    }

    // Every channel of a frame as floats in the source file's order: the picture's from
    // `picture` (in the writer's format), the extra ones from `frame`.
    void Interleave(const MediaFrame& picture, const MediaFrame& frame,
                    std::vector<float>& all) const {
        const std::size_t pixels = std::size_t(format_.width) * std::size_t(format_.height);
        const std::size_t n = format_.fileChannels.size(), extras = format_.extras.size();
        const int colours = format_.channels;
        std::vector<float> colour(pixels * std::size_t(colours));
        oiio::convert_types(TypeOf(format_.sample), picture.pixels.data(), oiio::TypeDesc::FLOAT,
                            colour.data(), int(colour.size()));
        const bool haveExtras = frame.extra.size() == pixels * extras;
        all.assign(pixels * n, 0.0f);
        for (std::size_t c = 0; c < n; ++c) {
            const int slot = format_.fileChannels[c].slot;
            float* to = all.data() + c;
            if (slot < colours) {
                const float* from = colour.data() + slot;
                for (std::size_t i = 0; i < pixels; ++i)
                    to[i * n] = from[i * std::size_t(colours)];
            } else if (haveExtras) {
                const float* from = frame.extra.data() + (slot - colours);
                for (std::size_t i = 0; i < pixels; ++i)
                    to[i * n] = from[i * extras];
            }
        }
    }

    oiio::ImageSpec Header(int number) const {
        oiio::ImageSpec header(format_.width, format_.height, format_.channels,
                               TypeOf(format_.sample));
        if (everyChannel_) {
            header.nchannels = int(format_.fileChannels.size());
            header.channelnames.clear();
            header.channelformats.clear();
            for (const FileChannel& c : format_.fileChannels) {
                header.channelnames.push_back(c.name);
                header.channelformats.push_back(oiio::TypeDesc(oiio::TypeDesc::BASETYPE(c.stored)));
            }
        }
        // The picture keeps its place in the frame it belongs to.
        header.x = format_.x;
        header.y = format_.y;
        if (format_.HasDisplayWindow()) {
            header.full_x = format_.displayX;
            header.full_y = format_.displayY;
            header.full_width = format_.displayWidth;
            header.full_height = format_.displayHeight;
        }
        StampAttributes(format_.attributes.get(),
                        {.number = number,
                         .firstNumber = options_.whole ? options_.whole->first : number,
                         .rate = options_.frameRate,
                         .sourceRate = options_.sourceRate,
                         .captureRate = options_.captureRate},
                        header);
        const std::string ext = ExtensionOf(pattern_.Text());
        // Lossless in every case. PIZ wavelets take a quarter of the time of ZIP on camera
        // frames for files half the size; zlib level 1 under the TIFF predictor takes two fifths
        // of the time of the library's default level 6 for files an eighth larger.
        if (ext == "exr") header.attribute("compression", "piz");
        if (ext == "tif" || ext == "tiff") header.attribute("tiff:zipquality", 1);
        if (ext == "png") {
            // Run-length matching after the Paeth predictor: on camera footage about half the
            // time of zlib level 1 with the library's default filters, for files a tenth smaller.
            header.attribute("compression", "rle");
            header.attribute("png:filter", 0x80); // PNG_FILTER_PAETH
            header.attribute("png:compressionLevel", 1);
        }
        // Grey is named Y, so that readers take one channel for grey and two for grey and alpha.
        if (format_.channels == 1 && !everyChannel_) header.channelnames = {std::string("Y")};
        if (format_.channels == 2 && !everyChannel_)
            header.channelnames = {std::string("Y"), std::string("A")};
        if (format_.HasAlpha()) {
            header.alpha_channel = format_.channels - 1;
            if (format_.alpha == AlphaConvention::Straight)
                header.attribute("oiio:UnassociatedAlpha", 1);
        }
        return header;
    }

    SequencePattern pattern_;
    WriteOptions options_;
    MediaFormat format_;
    bool everyChannel_ = false; // every channel of the source, in its order and types
    bool changeAlpha_ = false;  // the output holds colour in the other alpha convention
    std::mutex writtenMutex_;
    std::vector<int> written_; // numbers of the frames written under their hidden names
    std::size_t placed_ = 0;   // how many of them are in place, in order
};

// The halves of every 8-bit or 16-bit value, as the library's own conversion rounds them.
const std::uint16_t* HalvesOf(SampleType sample) {
    auto table = [](int count, oiio::TypeDesc type) {
        const std::size_t n = std::size_t(count);
        std::vector<std::uint16_t> values(n), halves(n);
        for (int i = 0; i < count; ++i)
            values[std::size_t(i)] = std::uint16_t(i);
        std::vector<std::uint8_t> bytes(values.begin(), values.end());
        const void* from =
            type == oiio::TypeDesc::UINT8 ? static_cast<const void*>(bytes.data()) : values.data();
        oiio::convert_types(type, from, oiio::TypeDesc::HALF, halves.data(), count);
        return halves;
    };
    static const std::vector<std::uint16_t> of8 = table(256, oiio::TypeDesc::UINT8);
    static const std::vector<std::uint16_t> of16 = table(65536, oiio::TypeDesc::UINT16);
    return sample == SampleType::U8 ? of8.data() : of16.data();
}

} // namespace

bool IsImageExtension(const std::string& ext) {
    static const char* const known[] = {"png", "tif", "tiff", "jpg", "jpeg",
                                        "exr", "dpx", "bmp",  "tga", "hdr"};
    for (const char* k : known)
        if (ext == k) return true;
    return false;
}

SampleType OutputSampleFor(SampleType in, const std::string& ext) {
    const bool isFloat = in == SampleType::Half || in == SampleType::Float;
    if (ext == "exr") return SampleType::Half;
    if (ext == "jpg" || ext == "jpeg" || ext == "bmp" || ext == "tga") return SampleType::U8;
    if (ext == "tif" || ext == "tiff") return isFloat ? SampleType::Float : in;
    if (ext == "hdr") return SampleType::Float;
    // PNG, DPX and video: integers only.
    return in == SampleType::U8 ? SampleType::U8 : SampleType::U16;
}

std::unique_ptr<MediaReader> OpenSequence(const SequencePattern& pattern) {
    return std::make_unique<SequenceReader>(pattern);
}

std::unique_ptr<MediaWriter> CreateSequence(const SequencePattern& pattern,
                                            const MediaFormat& format,
                                            const WriteOptions& options) {
    return std::make_unique<SequenceWriter>(pattern, format, options);
}

void ConvertFrame(const MediaFrame& in, const MediaFormat& to, MediaFrame& out) {
    if (in.format.SameSize(to)) {
        if (in.format.sample == to.sample && CopyChannels(in, to.channels, out)) return;
        if (to.sample == SampleType::Half &&
            IntegersToHalves(in, to.channels, HalvesOf(in.format.sample), out))
            return;
    }
    out.Allocate(to);
    const MediaFormat& from = in.format;
    const oiio::TypeDesc srcType = TypeOf(from.sample), dstType = TypeOf(to.sample);
    const oiio::stride_t srcPixel = from.channels * SampleBytes(from.sample);
    const oiio::stride_t dstPixel = to.channels * SampleBytes(to.sample);
    auto copyChannels = [&](int srcChannel, int dstChannel, int count) {
        oiio::convert_image(count, to.width, to.height, 1,
                            in.pixels.data() + srcChannel * SampleBytes(from.sample), srcType,
                            srcPixel, oiio::stride_t(from.RowBytes()), oiio::AutoStride,
                            out.pixels.data() + dstChannel * SampleBytes(to.sample), dstType,
                            dstPixel, oiio::stride_t(to.RowBytes()), oiio::AutoStride);
    };
    // Colour: as many channels as both have, grey repeated into RGB, red kept as grey.
    const int fromColours = from.channels >= 3 ? 3 : 1, toColours = to.channels >= 3 ? 3 : 1;
    if (fromColours == toColours || toColours == 1) {
        copyChannels(0, 0, toColours);
    } else {
        for (int c = 0; c < toColours; ++c)
            copyChannels(0, c, 1);
    }
    // Alpha, last in both layouts that have it (grey and alpha, RGBA).
    const bool fromAlpha = from.channels == 2 || from.channels == 4;
    const bool toAlpha = to.channels == 2 || to.channels == 4;
    if (fromAlpha && toAlpha) copyChannels(from.channels - 1, to.channels - 1, 1);
    if (toAlpha && !fromAlpha) {
        // Opaque alpha in the destination's own units.
        const float one = 1.0f;
        for (int y = 0; y < to.height; ++y)
            oiio::convert_image(1, to.width, 1, 1, &one, oiio::TypeDesc::FLOAT, 0, 0, 0,
                                out.pixels.data() + y * to.RowBytes() +
                                    (to.channels - 1) * SampleBytes(to.sample),
                                dstType, dstPixel, oiio::AutoStride, oiio::AutoStride);
    }
}

} // namespace quelmor::cli
