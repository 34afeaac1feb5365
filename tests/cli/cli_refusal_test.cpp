// Every refusal of the quelmor command end to end: its message, a non-zero exit (2 for a wrong
// command line, 1 for media that cannot be used) and a folder left exactly as it was.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <filesystem>
#include <fstream>

#include "CliTestSupport.h"
#include "cli/RetimeEngine.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::Refusal;
using test::WriteSynthClip;

class RefusalTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8);
    }
    void ExpectAllRefused(const std::vector<Refusal>& cases) {
        for (const Refusal& c : cases)
            ExpectRefused(c);
    }
};

TEST_F(RefusalTest, InputsThatCannotBeRead) {
    WriteSynthClip(In("size.%04d.png"), 1, SampleType::U8);
    WriteSynthClip(In("size.%04d.png"), 1, SampleType::U8, 40, 32, 1); // a narrower frame
    WriteSynthClip(In("gap.%04d.png"), 1, SampleType::U8);
    WriteSynthClip(In("gap.%04d.png"), 1, SampleType::U8, 48, 32, 2); // no frame 1
    std::ofstream(In("broken.0000.png")) << "not a png";
    std::ofstream(In("secret.mov")) << "private";
    fs::permissions(In("secret.mov"), fs::perms(0600));
    std::ofstream(In("noise.mov")) << "this is no video";
    // Two channels that do not say the second is alpha.
    for (int i = 0; i < 2; ++i) {
        MediaFrame two;
        two.Allocate({8, 8, 2, SampleType::Half});
        OIIO::ImageSpec header(8, 8, 2, OIIO::TypeDesc::HALF);
        header.channelnames = {std::string("u"), std::string("v")};
        auto out = OIIO::ImageOutput::create("exr");
        ASSERT_TRUE(out->open(In("uv." + std::to_string(1000 + i) + ".exr"), header));
        out->write_image(OIIO::TypeDesc::HALF, two.pixels.data());
        out->close();
    }
    // Mattes of another size than the clip's, and a clip without alpha.
    Run("synth @s.%04d.png --frames 3 --size 96x64 --steps 2 --quiet");
    Run("synth @small.%04d.png --frames 3 --size 48x32 --steps 2 --quiet");
    const test::RunLimits nobody{.asUnprivileged = true};
    ExpectAllRefused({
        {"missing input", 1, "no input frames match",
         "retime @gone.%04d.png @r.%04d.png --speed 0.5"},
        {"missing video", 1, "does not exist", "retime @gone.mov @r.%04d.png --speed 0.5"},
        {"unreadable input", 1, "is not readable", "retime @secret.mov @r.%04d.png --speed 0.5",
         nobody},
        {"not a video", 1, "cannot open", "retime @noise.mov @r.%04d.png --speed 0.5"},
        {"not an image", 1, "cannot read", "retime @broken.%04d.png @r.%04d.png --speed 0.5"},
        {"two sizes", 1, "must have one size", "retime @size.%04d.png @r.%04d.png --speed 0.5"},
        {"a frame missing", 1, "gap.0001.png is missing",
         "retime @gap.%04d.png @r.%04d.png --speed 0.5"},
        {"unsupported input", 1, "unsupported image format",
         "retime @c.%04d.xyz @r.%04d.png --speed 0.5"},
        {"vectors", 1, "has 2 channels (u, v) that are not grey and alpha",
         "retime @uv.%04d.exr @r.%04d.exr --speed 1"},
        {"a matte of another size", 1, "is 48x32, the input 96x64",
         "retime @s.%04d.png @o.%04d.png --speed 0.5 --matte @matte_small.%04d.png"},
        {"a matte from no alpha", 1, "--matte alpha needs an input with alpha",
         "retime @s.%04d.png @o.%04d.png --speed 0.5 --matte alpha"},
        {"a missing matte", 1, "none",
         "retime @s.%04d.png @o.%04d.png --speed 0.5 --matte @none.%04d.png"},
        {"dissolve: shots of two sizes", 1, "the shots differ in size",
         "dissolve @c.%04d.png @s.%04d.png @o.%04d.png"},
    });
}

TEST_F(RefusalTest, DamagedSourceFramesStopBothCommandsAlike) {
    std::vector<Refusal> cases;
    // Frame 1 of 3 loses its end. Formats whose files give their size or end marker are refused
    // before anything is rendered, even for output that does not need the damaged frame; the
    // others when the decoder reaches the damage, which some decoders report only as a kept error.
    const struct {
        const char* ext;
        std::uintmax_t cut;
        bool upFront;
    } damaged[] = {
        {"png", 40, true},   {"dpx", 200, true},  {"bmp", 200, true},
        {"tga", 1500, true}, {"jpg", 200, false}, {"tif", 200, false},
    };
    for (const auto& d : damaged) {
        const std::string clip = std::string("c_") + d.ext + ".%04d." + d.ext;
        const std::string frame = In(std::string("c_") + d.ext + ".0001." + d.ext);
        WriteSynthClip(In(clip), 3, SampleType::U8);
        fs::resize_file(frame, fs::file_size(frame) - d.cut);
        for (const std::string command : {"spark", "retime"})
            cases.push_back({command + " " + d.ext, 1, "cannot read " + frame,
                             command + " @" + clip + " @out.%04d.png --speed 0.5"});
        if (d.upFront)
            cases.push_back({std::string("first frame only, ") + d.ext, 1,
                             "cannot read " + frame + ": the file is truncated",
                             "retime @" + clip + " @out.%04d.png --speed 0.5 --frames 0-0"});
    }
    ExpectAllRefused(cases);
}

TEST_F(RefusalTest, OutputsThatCannotBeMade) {
    WriteSynthClip(In("taken.%04d.png"), 1, SampleType::U8);
    WriteSynthClip(In("high.%09d.png"), 2, SampleType::U8, 48, 32, 999999998);
    const test::RunLimits nobody{.asUnprivileged = true}, fullDisk{.maxFileBytes = 1000},
        diskFullLater{.maxFileBytes = 2000};
    ExpectAllRefused({
        {"unsupported output", 1, "unsupported output format",
         "retime @c.%04d.png @r.%04d.xyz --speed 0.5"},
        {"output exists", 1, "already exists; use --overwrite",
         "retime @c.%04d.png @taken.%04d.png --speed 0.5"},
        {"missing output folder", 1, "does not exist",
         "retime @c.%04d.png @no/r.%04d.png --speed 0.5"},
        {"frames outside the output", 1, "lies outside the output frames 0-5",
         "retime @c.%04d.png @r.%04d.png --frames 3-9 --speed 0.5"},
        {"unwritable folder", 1, "is not writable", "retime @c.%04d.png @r.%04d.png --speed 0.5",
         nobody},
        {"full disk", 1, "cannot write",
         "retime @c.%04d.png @r.%04d.png --quality best --speed 0.5", fullDisk},
        {"synth: output exists", 1, "already exists", "synth @taken.%04d.png --frames 2"},
        {"synth: full disk", 1, "cannot write", "synth @d.%04d.png --size 64x36", diskFullLater},
        {"numbers past nine digits", 1, "would end at frame 1000000017, past 999999999",
         "retime @high.%09d.png @r.%09d.png --speed 0.1"},
        {"a speed that makes too many frames", 1,
         "makes 3000000000 output frames from the 3 input frames",
         "retime @c.%04d.png @r.%04d.png --speed 1e-9"},
        {"spark, the same speed", 1, "makes 3000000000 output frames from the 3 input frames",
         "spark @c.%04d.png @r.%04d.png --speed 1e-9"},
        {"true frames past the limit", 2, "makes 10000000000 true frames",
         "synth @t.%04d.png --frames 100000 --steps 100000"},
        {"resume and overwrite", 2, "give only one of --resume",
         "retime @c.%04d.png @r.%04d.png --speed 0.5 --resume --overwrite"},
        {"resume into a video", 2, "--resume needs an image sequence",
         "retime @c.%04d.png @r.mov --speed 0.5 --resume"},
    });
}

TEST_F(RefusalTest, CommandLineMistakes) {
    std::ofstream(In("garbage.setup")) << "SparkFloat2 0.5\nthis is not a setup\n";
    std::ofstream(In("blur.setup")) << "SparkFloat2 0.5\nSparkFloat3 100\n";
    std::ofstream(In("binary.setup"), std::ios::binary)
        << std::string("SparkFloat2 0.5\n\x01\x02\x00\x7f\n", 20);
    const std::string retime = "retime @c.%04d.png @r.%04d.png ";
    const std::string spark = "spark @c.%04d.png @r.%04d.png ";
    ExpectAllRefused({
        {"speed of zero", 2, "--speed must be above 0", retime + "--speed 0"},
        {"unknown option", 2, "unknown option --fast", "synth @d.%04d.png --fast"},
        {"unknown command", 2, "unknown command \"warp\"", "warp @d.%04d.png"},
        {"synth: not a sequence", 2, "must be an image sequence", "synth @c.png"},
        {"synth: bad size", 2, "--size", "synth @d.%04d.png --size 0x10"},
        {"spark: missing plug-in", 1, "cannot load the plug-in",
         spark + "--plugin @none.so --speed 0.5"},
        {"spark: setup name", 2, "ending in .setup", spark + "--setup @p.txt --speed 0.5"},
        {"spark: speed of zero", 2, "--speed must be above 0", spark + "--speed 0"},
        {"spark: speed twice", 2, "give only one of", spark + "--speed-curve @s.txt --speed 1"},
        {"spark: retime's motion blur limit", 2, "--motion-blur must be 5 or less, got 100",
         spark + "--motion-blur 100"},
        {"spark: a setup past the motion blur limit", 1,
         "the setup's motion blur must lie between 0 and 5", spark + "--setup @blur.setup"},
        {"spark: a setup of garbage", 1, "is not a setup: line 2 is not a record name and a number",
         spark + "--speed 1 --setup @garbage.setup"},
        {"spark: a binary setup", 1, "is not a setup: line 2 holds binary data",
         spark + "--speed 1 --setup @binary.setup"},
        {"spark: a setup in a missing folder", 1, "the folder of --setup",
         spark + "--speed 1 --setup @gone/p.setup"},
        {"spark: warping", 2, "--warping", spark + "--speed 0.5 --warping smart"},
    });
}

TEST_F(RefusalTest, OptionValuesThatMakeNoSense) {
    const std::string retime = "retime @c.%04d.png @r.%04d.png ";
    ExpectAllRefused({
        {"resize: no height", 2, "the width of --resize", retime + "--speed 0.5 --resize 0x20"},
        {"resize: one number", 2, "--resize wants WIDTHxHEIGHT",
         retime + "--speed 0.5 --resize 20"},
        {"resize: too small", 2, "--resize must lie between 8x8",
         retime + "--speed 0.5 --resize 4x4"},
        {"resize: unknown filter", 2, "--filter must be one of hermite, triangle",
         retime + "--speed 0.5 --resize 30x20 --filter box"},
        {"resize: a filter alone", 2, "give --resize too", retime + "--speed 0.5 --filter lanczos"},
        {"fps without an input rate", 2, "give it with --input-fps", retime + "--fps 60"},
        {"fps and speed", 2, "only one of --speed, --fps", retime + "--fps 60 --speed 0.5"},
        {"fps and rate", 2, "--rate", retime + "--fps 60 --rate 30 --input-fps 24"},
        {"fps of zero", 2, "--fps", retime + "--fps 0 --input-fps 24"},
        {"dissolve: unknown mode", 2, "--mode must be one of",
         "dissolve @c.%04d.png @c.%04d.png @o.%04d.png --mode blur"},
        {"dissolve: no frames", 2, "--frames must be 1",
         "dissolve @c.%04d.png @c.%04d.png @o.%04d.png --frames 0"},
        {"dissolve: one shot", 2, "wants two shots and an output",
         "dissolve @c.%04d.png @o.%04d.png"},
        {"dissolve: into a shot", 2, "must not be one of the shots",
         "dissolve @c.%04d.png @c.%04d.png @c.%04d.png"},
    });
}

TEST_F(RefusalTest, WorkerCountsOutsideOneTo64) {
    std::vector<Refusal> cases;
    const struct {
        const char* command;
        const char* value;
    } threads[] = {
        {"retime", "0"},   {"retime", "-1"}, {"retime", "65"}, {"retime", "99999999999999999999"},
        {"retime", "1.5"}, {"retime", ""},   {"spark", "0"},   {"spark", "100000"},
        {"synth", "0"},    {"synth", "two"},
    };
    for (const auto& t : threads) {
        const std::string command = t.command;
        const std::string line = command == "synth"
                                     ? "synth @s.%04d.png --frames 2"
                                     : command + " @c.%04d.png @r.%04d.png --speed 0.5";
        cases.push_back(
            {command + " --threads=" + t.value, 2,
             "--threads must be a whole number from 1 to 64, got \"" + std::string(t.value) + "\"",
             line + " --threads=" + t.value});
    }
    ExpectAllRefused(cases);
}

TEST(FrameSizeRefusal, SourcesWhoseWorkingFrameWouldPassTwoGibibytesAreRefused) {
    // Half frames become four float channels: 16 bytes a pixel. Writing such a source to test
    // the command end to end would take most of a gigabyte, so the check is called as it runs.
    const struct {
        int w, h;
        SampleType sample;
        int quality;
        bool refused;
    } cases[] = {{16384, 8200, SampleType::Half, 4, true},
                 {16384, 8191, SampleType::Half, 4, false},
                 {16384, 8192, SampleType::Float, 0, true},
                 {23170, 23170, SampleType::U8, 4, false},
                 {23170, 23171, SampleType::U8, 4, true}};
    for (const auto& c : cases) {
        std::string message;
        try {
            CheckEngineFrameSize({c.w, c.h, 3, c.sample}, c.quality);
        } catch (const MediaError& e) {
            message = e.what();
        }
        EXPECT_EQ(!message.empty(), c.refused) << c.w << "x" << c.h;
        if (c.refused) {
            EXPECT_NE(message.find(std::to_string(c.w) + "x" + std::to_string(c.h)),
                      std::string::npos)
                << message;
        }
    }
}

} // namespace
} // namespace quelmor::cli
