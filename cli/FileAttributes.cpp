#include "cli/FileAttributes.h"

#include <cmath>
#include <cstring>
#include <string_view>

namespace quelmor::cli {

namespace oiio = OIIO;

namespace {

// Attributes that describe how the source file was encoded, not the picture: the writer decides
// them for its own file.
bool DescribesEncoding(std::string_view name) {
    static constexpr std::string_view exact[] = {"compression",
                                                 "planarconfig",
                                                 "tiledesc",
                                                 "openexr:chunkCount",
                                                 "openexr:lineOrder",
                                                 "openexr:dwaCompressionLevel",
                                                 "tiff:Compression",
                                                 "tiff:PhotometricInterpretation",
                                                 "tiff:PlanarConfiguration",
                                                 "tiff:RowsPerStrip",
                                                 "tiff:zipquality",
                                                 "dpx:Packing",
                                                 "dpx:Encoding",
                                                 "dpx:EndOfLinePadding",
                                                 "dpx:EndOfImagePadding",
                                                 "dpx:DataOffset",
                                                 "BitsPerSample",
                                                 "png:compressionLevel",
                                                 "png:filter",
                                                 "jpeg:subsampling",
                                                 "Orientation",
                                                 "tiff:UnassociatedAlpha",
                                                 "targa:alpha_type"};
    for (std::string_view e : exact)
        if (name == e) return true;
    // The library's own notes on the file it read, apart from the colour space.
    return name.starts_with("oiio:") && name != "oiio:ColorSpace";
}

bool IsFrameNumber(std::string_view name) {
    return name.size() == 5 && (name[0] == 'f' || name[0] == 'F') && name.substr(1) == "rame";
}

// What the retime rewrites, whatever the source said.
bool Rewritten(std::string_view name) {
    return name == "smpte:TimeCode" || name == "FramesPerSecond" || name == "captureRate" ||
           name == "Software" || IsFrameNumber(name);
}

int WholeRate(double rate) {
    const int whole = int(std::lround(rate));
    return whole > 0 ? whole : 1;
}

int Bcd(int value) {
    return (value / 10) << 4 | (value % 10);
}

int FromBcd(std::uint32_t bits) {
    return int((bits >> 4) & 0xf) * 10 + int(bits & 0xf);
}

// A rate as the numerator and denominator of a rational attribute: whole rates over 1, the
// NTSC family over 1001.
void RationalOf(double rate, int& num, int& den) {
    const double ntsc = rate * 1001.0 / 1000.0;
    if (std::fabs(rate - std::round(rate)) > 1e-6 && std::fabs(ntsc - std::round(ntsc)) < 1e-3) {
        num = int(std::lround(ntsc)) * 1000;
        den = 1001;
    } else if (std::fabs(rate - std::round(rate)) < 1e-6) {
        num = int(std::lround(rate));
        den = 1;
    } else {
        num = int(std::lround(rate * 1000.0));
        den = 1000;
    }
}

} // namespace

std::shared_ptr<const FileAttributes> CarriedAttributes(const oiio::ImageSpec& header) {
    auto carried = std::make_shared<FileAttributes>();
    for (const oiio::ParamValue& value : header.extra_attribs)
        if (!DescribesEncoding(value.name().string())) carried->values.push_back(value);
    if (carried->values.empty()) return nullptr;
    return carried;
}

double AttributeFrameRate(const FileAttributes* attributes) {
    if (!attributes) return 0.0;
    for (const oiio::ParamValue& value : attributes->values) {
        if (value.name() != "FramesPerSecond") continue;
        const oiio::TypeDesc type = value.type();
        if (type == oiio::TypeRational) {
            const int* r = static_cast<const int*>(value.data());
            return r[1] > 0 && r[0] > 0 ? double(r[0]) / double(r[1]) : 0.0;
        }
        if (type == oiio::TypeFloat) return double(*static_cast<const float*>(value.data()));
        if (type == oiio::TypeString) {
            // "24/1" or "24"
            const std::string text = value.get_string();
            const auto slash = text.find('/');
            const double num = std::atof(text.substr(0, slash).c_str());
            const double den =
                slash == std::string::npos ? 1.0 : std::atof(text.c_str() + slash + 1);
            return num > 0 && den > 0 ? num / den : 0.0;
        }
    }
    return 0.0;
}

Timecode UnpackTimecode(std::uint32_t packed) {
    Timecode t;
    t.frames = FromBcd(packed & 0x3f);
    t.dropFrame = (packed >> 6) & 1;
    t.seconds = FromBcd((packed >> 8) & 0x7f);
    t.minutes = FromBcd((packed >> 16) & 0x7f);
    t.hours = FromBcd((packed >> 24) & 0x3f);
    return t;
}

std::uint32_t PackTimecode(const Timecode& t) {
    return std::uint32_t(Bcd(t.frames) & 0x3f) | (t.dropFrame ? 1u << 6 : 0u) |
           std::uint32_t(Bcd(t.seconds) & 0x7f) << 8 | std::uint32_t(Bcd(t.minutes) & 0x7f) << 16 |
           std::uint32_t(Bcd(t.hours) & 0x3f) << 24;
}

std::int64_t FramesOfTimecode(const Timecode& t, double rate) {
    const std::int64_t seconds = std::int64_t(t.hours) * 3600 + t.minutes * 60 + t.seconds;
    return seconds * WholeRate(rate) + t.frames;
}

Timecode TimecodeOfFrames(std::int64_t frames, double rate) {
    const std::int64_t perSecond = WholeRate(rate), perDay = perSecond * 86400;
    frames %= perDay;
    if (frames < 0) frames += perDay;
    Timecode t;
    t.frames = int(frames % perSecond);
    const std::int64_t seconds = frames / perSecond;
    t.seconds = int(seconds % 60);
    t.minutes = int(seconds / 60 % 60);
    t.hours = int(seconds / 3600);
    return t;
}

void StampAttributes(const FileAttributes* source, const OutputStamp& stamp,
                     oiio::ImageSpec& header) {
    static const FileAttributes none;
    if (!source) source = &none;
    for (const oiio::ParamValue& value : source->values) {
        const std::string_view name = value.name().string();
        if (IsFrameNumber(name) &&
            (value.type() == oiio::TypeInt || value.type() == oiio::TypeFloat)) {
            if (value.type() == oiio::TypeInt)
                header.attribute(std::string(name), stamp.number);
            else
                header.attribute(std::string(name), float(stamp.number));
            continue;
        }
        if (Rewritten(name)) continue;
        header.extra_attribs.push_back(value);
    }
    header.attribute("Software", "quelmor");
    int num = 0, den = 1;
    RationalOf(stamp.rate, num, den);
    const int rate[2] = {num, den};
    header.attribute("FramesPerSecond", oiio::TypeRational, rate);
    if (stamp.captureRate > 0) {
        RationalOf(stamp.captureRate, num, den);
        const int capture[2] = {num, den};
        header.attribute("captureRate", oiio::TypeRational, capture);
    }
    // The output starts at the source's first timecode, converted to the output's rate, and
    // counts up by one a frame.
    const oiio::ParamValue* code = source->values.find_pv("smpte:TimeCode", oiio::TypeTimeCode);
    if (code) {
        const auto* words = static_cast<const std::uint32_t*>(code->data());
        const Timecode start = UnpackTimecode(words[0]);
        const double sourceRate = stamp.sourceRate > 0 ? stamp.sourceRate : stamp.rate;
        const std::int64_t startFrames = FramesOfTimecode(start, sourceRate);
        const double startSeconds = double(startFrames) / WholeRate(sourceRate);
        const std::int64_t outFrames =
            std::llround(startSeconds * WholeRate(stamp.rate)) + (stamp.number - stamp.firstNumber);
        const std::uint32_t packed[2] = {PackTimecode(TimecodeOfFrames(outFrames, stamp.rate)),
                                         words[1]};
        header.attribute("smpte:TimeCode", oiio::TypeTimeCode, packed);
    }
}

} // namespace quelmor::cli
