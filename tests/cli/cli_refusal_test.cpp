// Every refusal of the quelmor command end to end: its message, a non-zero exit (2 for a wrong
// command line, 1 for media that cannot be used) and a folder left exactly as it was.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CliTestSupport.h"
#include "cli/RetimeEngine.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::WriteSynthClip;

class RefusalTest : public test::FolderTest {};

TEST_F(RefusalTest, BadInputGetsItsMessageAndLosesNothing) {
    WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8);
    WriteSynthClip(In("size.%04d.png"), 1, SampleType::U8);
    WriteSynthClip(In("size.%04d.png"), 1, SampleType::U8, 40, 32, 1); // a narrower frame
    WriteSynthClip(In("gap.%04d.png"), 1, SampleType::U8);
    WriteSynthClip(In("gap.%04d.png"), 1, SampleType::U8, 48, 32, 2); // no frame 1
    std::ofstream(In("broken.0000.png")) << "not a png";
    WriteSynthClip(In("taken.%04d.png"), 1, SampleType::U8);
    std::ofstream(In("secret.mov")) << "private";
    fs::permissions(In("secret.mov"), fs::perms(0600));
    std::ofstream(In("noise.mov")) << "this is no video";
    const test::RunLimits fullDisk{1000, false}, nobody{-1, true};
    struct Case {
        const char* name;
        int status;
        const char* message;
        const char* line; // as to Args
        test::RunLimits limits = {};
    } cases[] = {
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
        {"unsupported output", 1, "unsupported output format",
         "retime @c.%04d.png @r.%04d.xyz --speed 0.5"},
        {"speed of zero", 2, "--speed must be above 0", "retime @c.%04d.png @r.%04d.png --speed 0"},
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
        {"spark: missing plug-in", 1, "cannot load the plug-in",
         "spark @c.%04d.png @r.%04d.png --plugin @none.so --speed 0.5"},
        {"spark: setup name", 2, "ending in .setup",
         "spark @c.%04d.png @r.%04d.png --setup @p.txt --speed 0.5"},
        {"spark: speed of zero", 2, "--speed must be above 0",
         "spark @c.%04d.png @r.%04d.png --speed 0"},
        {"spark: speed twice", 2, "give only one of",
         "spark @c.%04d.png @r.%04d.png --speed-curve @s.txt --speed 1"},
        {"synth: output exists", 1, "already exists", "synth @taken.%04d.png --frames 2"},
        {"synth: not a sequence", 2, "must be an image sequence", "synth @c.png"},
        {"synth: bad size", 2, "--size", "synth @d.%04d.png --size 0x10"},
        {"synth: full disk", 1, "cannot write", "synth @d.%04d.png --size 64x36", {2000, false}},
        {"unknown option", 2, "unknown option --fast", "synth @d.%04d.png --fast"},
        {"unknown command", 2, "unknown command \"warp\"", "warp @d.%04d.png"},
    };
    for (const Case& c : cases) {
        const auto before = test::FolderState(dir_);
        const auto r = test::RunQuelmor(Args(c.line + std::string(" --quiet")), c.limits);
        EXPECT_EQ(r.status, c.status) << c.name << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(test::FolderState(dir_), before) << c.name;
    }
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
