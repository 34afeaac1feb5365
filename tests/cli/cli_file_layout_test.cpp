// Image files as a compositing pipeline writes them: data and display windows, channels beyond
// the picture, attributes, grey and grey with alpha. Inputs are written here through
// OpenImageIO and the outputs read back through it, not through quelmor's own reader.
#include "CliTestSupport.h"

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <set>

#include "cli/ChannelMix.h"
#include "cli/CommandLine.h"
#include "cli/FileAttributes.h"
#include "cli/RetimeEngine.h"
#include "cli/SequencePattern.h"
#include "engine/EngineInternal.h"

namespace quelmor::cli::test {
namespace {

namespace oiio = OIIO;

// A frame of a windowed render: a square that moves right by `step` pixels a frame over a
// textured background, with depth 10 behind and 3 on the square, and a channel "copyR" that
// holds the red channel.
struct RenderFrame {
    int width, height, x, y, displayWidth, displayHeight;
    std::vector<std::string> channels;
    int step = 6;
};

float Texture(int x, int y, int c) {
    return float((x * 7 + y * 13 + c * 5) % 17) / 16.0f;
}

void WriteRenderFrame(const std::string& path, const RenderFrame& r, int frame) {
    const int n = int(r.channels.size());
    oiio::ImageSpec header(r.width, r.height, n, oiio::TypeDesc::HALF);
    header.channelnames = r.channels;
    header.alpha_channel = 3;
    header.x = r.x;
    header.y = r.y;
    header.full_x = header.full_y = 0;
    header.full_width = r.displayWidth;
    header.full_height = r.displayHeight;
    header.attribute("Artist", "Mara Quist");
    header.attribute("colorspace", "ACEScg");
    const float chroma[8] = {0.713f, 0.293f, 0.165f, 0.830f, 0.128f, 0.044f, 0.32168f, 0.33767f};
    header.attribute("chromaticities", oiio::TypeDesc(oiio::TypeDesc::FLOAT, 8), chroma);
    const int rate[2] = {24, 1};
    header.attribute("FramesPerSecond", oiio::TypeRational, rate);
    header.attribute("frame", 101 + frame);
    const unsigned timecode[2] = {PackTimecode({.hours = 1, .frames = frame}), 0};
    header.attribute("smpte:TimeCode", oiio::TypeTimeCode, timecode);
    std::vector<float> pixels(std::size_t(r.width) * r.height * n);
    const int left = 20 + frame * r.step, top = r.height / 3, side = r.height / 3;
    for (int y = 0; y < r.height; ++y)
        for (int x = 0; x < r.width; ++x) {
            float* p = pixels.data() + (std::size_t(y) * r.width + x) * n;
            const bool square = x >= left && x < left + side && y >= top && y < top + side;
            for (int c = 0; c < 3; ++c)
                p[c] = square ? 0.9f - 0.2f * c : Texture(x + r.x, y + r.y, c);
            p[3] = 1.0f;
            for (int c = 4; c < n; ++c) {
                const std::string& name = r.channels[size_t(c)];
                p[c] = name == "Z" ? (square ? 3.0f : 10.0f) : name == "copyR" ? p[0] : 0.5f;
            }
        }
    auto out = oiio::ImageOutput::create(path);
    ASSERT_TRUE(out && out->open(path, header)) << path;
    ASSERT_TRUE(out->write_image(oiio::TypeDesc::FLOAT, pixels.data()));
    out->close();
}

struct ReadBack {
    oiio::ImageSpec header;
    std::vector<float> pixels; // every channel, as floats
};

ReadBack ReadFile(const std::string& path) {
    ReadBack r;
    auto in = oiio::ImageInput::open(path);
    EXPECT_TRUE(in) << path;
    if (!in) return r;
    r.header = in->spec();
    r.pixels.resize(std::size_t(r.header.width) * r.header.height * r.header.nchannels);
    EXPECT_TRUE(
        in->read_image(0, 0, 0, r.header.nchannels, oiio::TypeDesc::FLOAT, r.pixels.data()));
    return r;
}

std::string TimecodeOf(const oiio::ImageSpec& header) {
    const oiio::ParamValue* p = header.find_attribute("smpte:TimeCode", oiio::TypeTimeCode);
    if (!p) return "none";
    const Timecode t = UnpackTimecode(static_cast<const unsigned*>(p->data())[0]);
    char text[32];
    std::snprintf(text, sizeof text, "%02d:%02d:%02d:%02d", t.hours, t.minutes, t.seconds,
                  t.frames);
    return text;
}

std::string RationalOf(const oiio::ImageSpec& header, const char* name) {
    const oiio::ParamValue* p = header.find_attribute(name, oiio::TypeRational);
    if (!p) return "none";
    const int* r = static_cast<const int*>(p->data());
    return std::to_string(r[0]) + "/" + std::to_string(r[1]);
}

int ChannelIndex(const oiio::ImageSpec& header, const std::string& name) {
    for (int c = 0; c < header.nchannels; ++c)
        if (header.channelnames[size_t(c)] == name) return c;
    return -1;
}

using FileLayout = FolderTest;

TEST_F(FileLayout, WindowedFiveChannelExrKeepsWindowsChannelsAndAttributes) {
    const RenderFrame r{800, 400, 50, 40, 960, 507, {"R", "G", "B", "A", "Z"}};
    for (int i = 0; i < 3; ++i)
        WriteRenderFrame(In("in." + std::to_string(1001 + i) + ".exr"), r, i);
    Run("retime @in.%04d.exr @out.%04d.exr --speed 0.5 --quality sloppy --quiet");

    for (int i = 0; i < 5; ++i) {
        const std::string name = "out." + std::to_string(1001 + i) + ".exr";
        SCOPED_TRACE(name);
        const ReadBack out = ReadFile(In(name));
        const oiio::ImageSpec& s = out.header;
        EXPECT_EQ(std::vector<int>({s.x, s.y, s.width, s.height}),
                  std::vector<int>({50, 40, 800, 400}));
        EXPECT_EQ(std::vector<int>({s.full_x, s.full_y, s.full_width, s.full_height}),
                  std::vector<int>({0, 0, 960, 507}));
        EXPECT_EQ(s.channelnames, r.channels);
        for (int c = 0; c < s.nchannels; ++c)
            EXPECT_EQ(s.channelformat(c), oiio::TypeDesc::HALF) << s.channelnames[size_t(c)];
        EXPECT_EQ(s.get_string_attribute("Artist"), "Mara Quist");
        EXPECT_EQ(s.get_string_attribute("colorspace"), "ACEScg");
        const oiio::ParamValue* chroma =
            s.find_attribute("chromaticities", oiio::TypeDesc(oiio::TypeDesc::FLOAT, 8));
        ASSERT_TRUE(chroma);
        EXPECT_FLOAT_EQ(static_cast<const float*>(chroma->data())[6], 0.32168f);
        EXPECT_EQ(s.get_string_attribute("Software"), "quelmor");
        // One output frame every half source frame: the timecode counts output frames at the
        // output's 24 frames a second, and the output shows 48 moments a second of the source.
        EXPECT_EQ(TimecodeOf(s), "01:00:00:0" + std::to_string(i));
        EXPECT_EQ(RationalOf(s, "FramesPerSecond"), "24/1");
        EXPECT_EQ(RationalOf(s, "captureRate"), "48/1");
        EXPECT_EQ(s.get_int_attribute("frame"), 1001 + i);
    }
}

TEST_F(FileLayout, DepthTakesSourceValuesAndBlendedChannelsMatchThePicture) {
    const RenderFrame r{96, 48, 0, 0, 96, 48, {"R", "G", "B", "A", "Z", "copyR"}};
    for (int i = 0; i < 3; ++i)
        WriteRenderFrame(In("in." + std::to_string(i) + ".exr"), r, i);
    struct Case {
        const char* name;
        const char* options;
        bool depthFromSource; // every depth is 3 or 10, as in the sources
        // A blended channel holding the red channel comes out as the red channel: it goes
        // through the engine with the picture's flows. The energy-weighted mix weighs each
        // pixel by the channels it mixes, so there it differs.
        bool copyIsRed;
    };
    const Case cases[] = {
        {"depth by name", "", true, true},
        {"weighted energy", "--interpolation weighted", true, false},
        {"nearest interpolation", "--interpolation nearest", true, true},
        {"depth blended on request", "--channel-mix Z=blend", false, true},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string out = "out" + std::to_string(n++) + ".%d.exr";
        Run("retime @in.%d.exr @" + out + " --speed 0.25 --quiet " + c.options);
        bool allFromSource = true, copyIsRed = true;
        for (int i = 0; i < 9; ++i) {
            const ReadBack f = ReadFile(In(SequencePattern::Parse(out)->Path(i)));
            ASSERT_EQ(f.header.channelnames, r.channels);
            const int z = ChannelIndex(f.header, "Z"), copy = ChannelIndex(f.header, "copyR");
            const std::size_t channels = std::size_t(f.header.nchannels);
            for (std::size_t p = 0; p < f.pixels.size() / channels; ++p) {
                const float depth = f.pixels[p * channels + std::size_t(z)];
                allFromSource = allFromSource && (depth == 3.0f || depth == 10.0f);
                copyIsRed = copyIsRed &&
                            f.pixels[p * channels + std::size_t(copy)] == f.pixels[p * channels];
            }
        }
        EXPECT_EQ(allFromSource, c.depthFromSource);
        EXPECT_EQ(copyIsRed, c.copyIsRed);
    }
}

TEST_F(FileLayout, ChangingDataWindowsAreRetimedOnTheirUnion) {
    // Three frames whose data windows move and grow inside one display window.
    const int windows[3][4] = {{10, 5, 60, 30}, {14, 3, 60, 30}, {8, 9, 70, 30}};
    for (int i = 0; i < 3; ++i) {
        const RenderFrame r{windows[i][2],
                            windows[i][3],
                            windows[i][0],
                            windows[i][1],
                            100,
                            50,
                            {"R", "G", "B", "A"},
                            2};
        WriteRenderFrame(In("in." + std::to_string(i) + ".exr"), r, i);
    }
    Run("retime @in.%d.exr @out.%d.exr --speed 0.5 --quiet");
    for (int i = 0; i < 5; ++i) {
        const ReadBack out = ReadFile(In("out." + std::to_string(i) + ".exr"));
        SCOPED_TRACE(i);
        EXPECT_EQ(
            std::vector<int>({out.header.x, out.header.y, out.header.width, out.header.height}),
            std::vector<int>({8, 3, 70, 36}));
        EXPECT_EQ(out.header.full_width, 100);
        if (i % 2) continue;
        // At a source frame: the source inside its own window, zero around it.
        const ReadBack in = ReadFile(In("in." + std::to_string(i / 2) + ".exr"));
        for (int y = 0; y < out.header.height; ++y)
            for (int x = 0; x < out.header.width; ++x) {
                const int sx = x + out.header.x - in.header.x, sy = y + out.header.y - in.header.y;
                const bool inside =
                    sx >= 0 && sy >= 0 && sx < in.header.width && sy < in.header.height;
                for (int c = 0; c < 4; ++c) {
                    const float want =
                        inside ? in.pixels[(std::size_t(sy) * in.header.width + sx) * 4 + c] : 0.0f;
                    ASSERT_EQ(out.pixels[(std::size_t(y) * out.header.width + x) * 4 + c], want)
                        << x << "," << y << " channel " << c;
                }
            }
    }
}

TEST_F(FileLayout, GreyAndGreyAlphaRoundTripAtSourceFrames) {
    struct Case {
        const char* name;
        const char* ext;
        oiio::TypeDesc type;
        int channels;
    };
    const Case cases[] = {
        {"grey png 8", "png", oiio::TypeDesc::UINT8, 1},
        {"grey alpha png 8", "png", oiio::TypeDesc::UINT8, 2},
        {"grey png 16", "png", oiio::TypeDesc::UINT16, 1},
        {"grey alpha tiff 16", "tif", oiio::TypeDesc::UINT16, 2},
        {"grey exr", "exr", oiio::TypeDesc::HALF, 1},
        {"grey alpha exr", "exr", oiio::TypeDesc::HALF, 2},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string stem = "c" + std::to_string(n++);
        for (int i = 0; i < 3; ++i) {
            oiio::ImageSpec header(40, 24, c.channels, c.type);
            header.channelnames = c.channels == 1 ? std::vector<std::string>{"Y"}
                                                  : std::vector<std::string>{"Y", "A"};
            if (c.channels == 2) header.alpha_channel = 1;
            std::vector<float> pixels(std::size_t(40 * 24 * c.channels));
            for (std::size_t p = 0; p < pixels.size(); ++p)
                pixels[p] = float((p * 37 + std::size_t(i) * 11) % 251) / 250.0f;
            const std::string path = In(stem + "." + std::to_string(i) + "." + c.ext);
            auto out = oiio::ImageOutput::create(path);
            ASSERT_TRUE(out && out->open(path, header));
            ASSERT_TRUE(out->write_image(oiio::TypeDesc::FLOAT, pixels.data()));
            out->close();
        }
        const std::string in = stem + ".%d." + c.ext, out = stem + "_out.%d." + c.ext;
        Run("retime @" + in + " @" + out + " --speed 0.5 --quiet");
        for (int i = 0; i < 3; ++i) {
            auto a = oiio::ImageInput::open(In(SequencePattern::Parse(in)->Path(i)));
            auto b = oiio::ImageInput::open(In(SequencePattern::Parse(out)->Path(2 * i)));
            ASSERT_TRUE(a && b);
            EXPECT_EQ(b->spec().nchannels, c.channels);
            EXPECT_EQ(b->spec().format, c.type);
            std::vector<std::uint8_t> pa(a->spec().image_bytes()), pb(b->spec().image_bytes());
            ASSERT_TRUE(a->read_image(0, 0, 0, -1, a->spec().format, pa.data()));
            ASSERT_TRUE(b->read_image(0, 0, 0, -1, b->spec().format, pb.data()));
            EXPECT_EQ(pa, pb) << "source frame " << i;
        }
    }
}

// Four-channel frames of 40x24 with alpha from 0.25 to 1 and colour below it, written as `type`
// with or without the unassociated mark.
void WriteAlphaFrames(const std::string& pattern, oiio::TypeDesc type, bool unassociated) {
    for (int i = 0; i < 2; ++i) {
        oiio::ImageSpec header(40, 24, 4, type);
        header.alpha_channel = 3;
        if (unassociated) header.attribute("oiio:UnassociatedAlpha", 1);
        std::vector<float> pixels(std::size_t(40 * 24 * 4));
        for (std::size_t p = 0; p < pixels.size() / 4; ++p) {
            const float alpha = 0.25f + float((p * 7 + std::size_t(i)) % 4) * 0.25f;
            for (int c = 0; c < 3; ++c)
                pixels[p * 4 + std::size_t(c)] = alpha * float((p * 3 + std::size_t(c)) % 5) / 4.0f;
            pixels[p * 4 + 3] = alpha;
        }
        const std::string path = SequencePattern::Parse(pattern)->Path(i);
        auto out = oiio::ImageOutput::create(path);
        ASSERT_TRUE(out && out->open(path, header));
        ASSERT_TRUE(out->write_image(oiio::TypeDesc::FLOAT, pixels.data()));
        out->close();
    }
}

// Colour and alpha of a file as stored, whatever its convention.
std::vector<float> StoredValues(const std::string& path) {
    oiio::ImageSpec config;
    config.attribute("oiio:UnassociatedAlpha", 1);
    auto in = oiio::ImageInput::open(path, &config);
    EXPECT_TRUE(in) << path;
    if (!in) return {};
    std::vector<float> values(std::size_t(in->spec().width) * in->spec().height * 4);
    EXPECT_TRUE(in->read_image(0, 0, 0, 4, oiio::TypeDesc::FLOAT, values.data()));
    return values;
}

TEST_F(FileLayout, AlphaConventionFollowsEachFormat) {
    // The first source frame comes out as the output's first frame; its stored colour is the
    // source's colour times `factor`: alpha where straight colour goes premultiplied, one over
    // alpha the other way, one where the convention stays.
    enum Factor { kSame, kTimesAlpha, kOverAlpha };
    struct Case {
        const char* name;
        const char* in;
        oiio::TypeDesc type;
        bool unassociated;
        const char* out;
        const char* options;
        Factor factor;
        bool markedStraight; // the output says its colour is straight
    };
    const Case cases[] = {
        {"exr to png", "exr", oiio::TypeDesc::HALF, false, "png", "", kOverAlpha, true},
        {"png to exr", "png", oiio::TypeDesc::UINT16, true, "exr", "", kTimesAlpha, false},
        {"premultiplied tiff stays", "tif", oiio::TypeDesc::UINT16, false, "tif", "", kSame, false},
        {"straight tiff stays", "tif", oiio::TypeDesc::UINT16, true, "tif", "", kSame, true},
        {"straight tiff to exr", "tif", oiio::TypeDesc::UINT16, true, "exr", "", kTimesAlpha,
         false},
        {"exr taken as straight", "exr", oiio::TypeDesc::HALF, false, "png", "--alpha straight",
         kSame, true},
        {"png taken as premultiplied", "png", oiio::TypeDesc::UINT16, true, "exr",
         "--alpha premultiplied", kSame, false},
    };
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string stem = "a" + std::to_string(n++);
        const std::string in = stem + ".%d." + c.in, out = stem + "_out.%d." + c.out;
        WriteAlphaFrames(In(in), c.type, c.unassociated);
        Run("retime @" + in + " @" + out + " --speed 0.5 --quiet " + c.options);
        const std::vector<float> source = StoredValues(In(stem + ".0." + c.in));
        const std::vector<float> result = StoredValues(In(stem + "_out.0." + c.out));
        ASSERT_EQ(source.size(), result.size());
        double worst = 0.0;
        for (std::size_t p = 0; p < source.size(); p += 4)
            for (std::size_t k = 0; k < 4; ++k) {
                const float alpha = source[p + 3];
                const float want = k == 3 || c.factor == kSame ? source[p + k]
                                   : c.factor == kTimesAlpha   ? source[p + k] * alpha
                                                               : source[p + k] / alpha;
                worst = std::max(worst, std::fabs(double(result[p + k]) - want));
            }
        // Within a couple of steps of 8-bit samples: the outputs hold 16 bits or halves.
        EXPECT_LT(worst, 2.0 / 255.0);
        auto file = oiio::ImageInput::open(In(stem + "_out.0." + c.out));
        ASSERT_TRUE(file);
        const bool straight = c.out == std::string("png") ||
                              file->spec().get_int_attribute("tiff:UnassociatedAlpha") != 0;
        EXPECT_EQ(straight, c.markedStraight);
    }
}

TEST_F(FileLayout, ChannelMixNamingNoChannelIsRefused) {
    const RenderFrame r{48, 24, 0, 0, 48, 24, {"R", "G", "B", "A", "Z"}};
    for (int i = 0; i < 2; ++i)
        WriteRenderFrame(In("in." + std::to_string(i) + ".exr"), r, i);
    const auto state = FolderState(dir_);
    const RunResult bad =
        RunQuelmor(Args("retime @in.%d.exr @out.%d.exr --speed 0.5 --channel-mix depth=blend"));
    EXPECT_EQ(bad.status, 2);
    EXPECT_NE(bad.err.find("not an extra channel of the input (Z)"), std::string::npos) << bad.err;
    EXPECT_EQ(FolderState(dir_), state);
}

// Frames of 64x32 with a bright square moving right, and `extras` extra channels.
std::vector<MediaFrame> MovingSquare(int frames, int extras) {
    std::vector<MediaFrame> clip;
    for (int i = 0; i < frames; ++i) {
        MediaFormat format(64, 32, 3, SampleType::Float);
        for (int k = 0; k < extras; ++k)
            format.extras.push_back(std::string(1, char('a' + k)));
        MediaFrame frame;
        frame.Allocate(format);
        for (int y = 0; y < 32; ++y)
            for (int x = 0; x < 64; ++x) {
                const bool square = x >= 10 + 4 * i && x < 22 + 4 * i && y >= 10 && y < 22;
                float* p = frame.Row<float>(y) + x * 3;
                for (int c = 0; c < 3; ++c)
                    p[c] = square ? 0.9f : Texture(x, y, c);
                for (int k = 0; k < extras; ++k)
                    frame.extra[(std::size_t(y) * 64 + std::size_t(x)) * std::size_t(extras) +
                                std::size_t(k)] = square ? 3.0f + float(k) : 10.0f;
            }
        clip.push_back(std::move(frame));
    }
    return clip;
}

TEST(ExtraChannelsTest, ReuseThePictureFlowsAndMatchAcrossMixes) {
    // Six extra channels: two engine passes of blended channels and the two passes of positions
    // for the nearest ones, with no flow computed beyond the picture's.
    const Timing quarter = Timing::Constant(0.25);
    FramesReader plain(MovingSquare(3, 0)), rich(MovingSquare(3, 6));
    CliQuelmor a(plain, quarter, nullptr), b(rich, quarter, nullptr);
    std::vector<ChannelMix> mixes(6, ChannelMix::Blend);
    mixes[1] = mixes[4] = ChannelMix::Nearest;
    b.SetChannelMix(mixes);
    const EngineSettings settings{.interpolation = 1, .vectorQuality = 2};
    for (int i = 0; i < 9; ++i) {
        MediaFrame pa, pb;
        a.Render(i, settings, pa);
        b.Render(i, settings, pb);
        EXPECT_EQ(pa.pixels, pb.pixels) << "the picture does not change with extras, frame " << i;
        ASSERT_EQ(pb.extra.size(), std::size_t(64 * 32 * 6));
        for (std::size_t p = 0; p < pb.extra.size(); p += 6)
            for (int k : {1, 4})
                ASSERT_TRUE(pb.extra[p + std::size_t(k)] == 10.0f ||
                            pb.extra[p + std::size_t(k)] == 3.0f + float(k))
                    << "a nearest channel holds a source value, frame " << i;
    }
    EXPECT_GT(a.internal->flowRuns, 0);
    EXPECT_EQ(b.internal->flowRuns, a.internal->flowRuns);
}

TEST(ChannelMixTest, ChoosesByNameAndByOption) {
    const struct {
        const char* name;
        ChannelMix mix;
    } defaults[] = {
        {"Z", ChannelMix::Nearest},        {"depth.Z", ChannelMix::Nearest},
        {"ZBack", ChannelMix::Nearest},    {"objectId", ChannelMix::Nearest},
        {"matte.id", ChannelMix::Nearest}, {"CryptoObject00.R", ChannelMix::Nearest},
        {"diffuse.R", ChannelMix::Blend},  {"N.x", ChannelMix::Blend},
        {"specular.A", ChannelMix::Blend}, {"mask", ChannelMix::Blend},
    };
    for (const auto& d : defaults)
        EXPECT_EQ(DefaultChannelMix(d.name), d.mix) << d.name;

    const std::vector<std::string> names = {"Z", "depth.Z", "diffuse.R"};
    const auto mixes = MixOfChannels(names, ParseChannelMix("depth.Z=blend,R=nearest"));
    EXPECT_EQ(mixes, (std::vector<ChannelMix>{ChannelMix::Nearest, ChannelMix::Blend,
                                              ChannelMix::Nearest}));
    for (const char* bad : {"Z", "Z=", "=blend", "Z=mix", "Z=blend,,"})
        EXPECT_THROW(ParseChannelMix(bad), UsageError) << bad;
}

TEST(TimecodeTest, PacksAndCountsAtARate) {
    const struct {
        Timecode t;
        std::uint32_t packed;
    } packs[] = {
        {{1, 0, 0, 0}, 0x01000000u},
        {{23, 59, 59, 23}, 0x23595923u},
        {{10, 21, 32, 17}, 0x10213217u},
    };
    for (const auto& p : packs) {
        EXPECT_EQ(PackTimecode(p.t), p.packed);
        const Timecode back = UnpackTimecode(p.packed);
        EXPECT_EQ(std::vector<int>({back.hours, back.minutes, back.seconds, back.frames}),
                  std::vector<int>({p.t.hours, p.t.minutes, p.t.seconds, p.t.frames}));
    }
    const struct {
        std::int64_t frames;
        double rate;
        Timecode t;
    } counts[] = {
        {24 * 3600, 24.0, {1, 0, 0, 0}},
        {60 * 3600 + 59, 60.0, {1, 0, 0, 59}},
        {30 * 61 + 5, 29.97, {0, 1, 1, 5}},
        {24 * 86400 + 3, 24.0, {0, 0, 0, 3}},
    };
    for (const auto& c : counts) {
        const Timecode t = TimecodeOfFrames(c.frames, c.rate);
        EXPECT_EQ(std::vector<int>({t.hours, t.minutes, t.seconds, t.frames}),
                  std::vector<int>({c.t.hours, c.t.minutes, c.t.seconds, c.t.frames}))
            << c.frames;
        EXPECT_EQ(FramesOfTimecode(t, c.rate),
                  c.frames % (std::int64_t(std::lround(c.rate)) * 86400));
    }
}

} // namespace
} // namespace quelmor::cli::test
