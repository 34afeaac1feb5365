// The command under damaged and hostile input: damaged source frames stop both commands alike
// and leave nothing, grey sources keep their values, counts past the limits are refused with
// their numbers, and the stand-in host keeps nothing of a run.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>

#include "CliTestSupport.h"
#include "cli/Commands.h"
#include "cli/HostFrames.h"
#include "sparkhost/HostState.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::WriteSynthClip;

class BadInputTest : public test::FolderTest {
protected:
    // Cuts the last `bytes` bytes off a file.
    void Cut(const std::string& name, std::uintmax_t bytes) {
        fs::resize_file(In(name), fs::file_size(In(name)) - bytes);
    }
    // Runs a command line that must fail with `status` and a message holding `message`, and
    // leave the folder as it was.
    void ExpectRefused(const std::string& what, const std::string& line, int status,
                       const std::string& message, const test::RunLimits& limits = {}) {
        const auto before = test::FolderState(dir_);
        const auto r = test::RunQuelmor(Args(line + " --quiet"), limits);
        EXPECT_EQ(r.status, status) << what << ": " << r.err;
        EXPECT_NE(r.err.find(message), std::string::npos) << what << ": " << r.err;
        EXPECT_EQ(test::FolderState(dir_), before) << what;
    }
};

TEST_F(BadInputTest, DamagedSourceFramesStopBothCommandsAlike) {
    // Frame 1 of 3 loses its end. Formats whose files give their size or end marker are refused
    // before anything is rendered, even for output that does not need the damaged frame; the
    // others when the decoder reaches the damage, which some decoders report only as a kept error.
    struct Case {
        const char* ext;
        std::uintmax_t cut;
        bool upFront;
    } cases[] = {
        {"png", 40, true},   {"dpx", 200, true},  {"bmp", 200, true},
        {"tga", 1500, true}, {"jpg", 200, false}, {"tif", 200, false},
    };
    for (const Case& c : cases) {
        const std::string clip = std::string("c_") + c.ext + ".%04d." + c.ext;
        WriteSynthClip(In(clip), 3, SampleType::U8);
        Cut(std::string("c_") + c.ext + ".0001." + c.ext, c.cut);
        const std::string damaged = In(std::string("c_") + c.ext + ".0001." + c.ext);
        for (const std::string command : {"spark", "retime"})
            ExpectRefused(command + " " + c.ext,
                          command + " @" + clip + " @out.%04d.png --speed 0.5", 1,
                          "cannot read " + damaged);
        if (c.upFront)
            ExpectRefused(std::string("first frame only, ") + c.ext,
                          "retime @" + clip + " @out.%04d.png --speed 0.5 --frames 0-0", 1,
                          "cannot read " + damaged + ": the file is truncated");
    }
}

TEST_F(BadInputTest, GreySourcesKeepTheirValuesAndTheirAlpha) {
    // A frame copied at speed 1 comes back with the source's samples: grey in every colour
    // channel, alpha where the source has it. The plug-in's frames carry no alpha: spark writes
    // grey without it, and says so.
    struct Case {
        const char* name;
        int channels;
        SampleType sample;
        const char* ext;
    } cases[] = {
        {"grey 8-bit", 1, SampleType::U8, "png"},
        {"grey and alpha 8-bit", 2, SampleType::U8, "png"},
        {"grey and alpha 16-bit", 2, SampleType::U16, "tif"},
        {"grey and alpha half", 2, SampleType::Half, "exr"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string ext = c.ext;
        // A grey ramp with a second ramp as alpha, never opaque.
        MediaFrame frame;
        frame.Allocate({8, 8, c.channels, SampleType::Float});
        for (int i = 0; i < 64; ++i) {
            frame.Row<float>(0)[i * c.channels] = float(i) / 63.0f;
            if (c.channels == 2) frame.Row<float>(0)[i * 2 + 1] = 0.25f + float(i % 8) / 16.0f;
        }
        MediaFrame source;
        ConvertFrame(frame, {8, 8, c.channels, c.sample}, source);
        {
            auto writer = CreateMedia(In("g." + std::string("%04d.") + ext), source.format, {});
            for (int i = 0; i < 3; ++i)
                writer->Write(i, source);
            writer->Finish();
        }
        Run("retime @g.%04d." + ext + " @r.%04d." + ext + " --speed 1 --quiet");
        auto retimed = OpenMedia(In("r.%04d." + ext));
        ASSERT_EQ(retimed->Format().channels, c.channels);
        MediaFrame back;
        retimed->Read(1, back);
        EXPECT_EQ(back.pixels, source.pixels) << "retime";

        const auto r = Run("spark @g.%04d." + ext + " @s.%04d." + ext + " --speed 1 --quiet");
        EXPECT_EQ(r.err.find("no alpha") != std::string::npos, c.channels == 2) << r.err;
        auto sparked = OpenMedia(In("s.%04d." + ext));
        ASSERT_EQ(sparked->Format().channels, 1);
        sparked->Read(1, back);
        // Compared as floats with the source's grey; the host's 16-bit frames hold 12 bits.
        MediaFrame got, want;
        ConvertFrame(back, {8, 8, 1, SampleType::Float}, got);
        ConvertFrame(source, {8, 8, 1, SampleType::Float}, want);
        const float tolerance = c.sample == SampleType::U16 ? 16.0f / 65535.0f : 0.0f;
        for (int i = 0; i < 64; ++i)
            ASSERT_NEAR(got.Row<float>(0)[i], want.Row<float>(0)[i], tolerance)
                << "spark, pixel " << i;
        for (const auto& e : fs::directory_iterator(dir_))
            fs::remove(e.path());
    }
}

TEST_F(BadInputTest, ChannelLayoutsItCannotReadAreRefused) {
    // Two channels that do not say the second is alpha, and five whose first are not R, G, B.
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
    ExpectRefused("vectors", "retime @uv.%04d.exr @r.%04d.exr --speed 1", 1,
                  "has 2 channels (u, v) that are not grey and alpha");
}

TEST_F(BadInputTest, CountsPastTheLimitsAreRefusedWithTheirNumbers) {
    WriteSynthClip(In("c.%04d.png"), 2, SampleType::U8);
    WriteSynthClip(In("high.%09d.png"), 2, SampleType::U8, 48, 32, 999999998);
    std::ofstream(In("garbage.setup")) << "SparkFloat2 0.5\nthis is not a setup\n";
    std::ofstream(In("blur.setup")) << "SparkFloat2 0.5\nSparkFloat3 100\n";
    std::ofstream(In("binary.setup"), std::ios::binary)
        << std::string("SparkFloat2 0.5\n\x01\x02\x00\x7f\n", 20);
    struct Case {
        const char* name;
        const char* line;
        int status;
        const char* message;
    } cases[] = {
        {"numbers past nine digits", "retime @high.%09d.png @r.%09d.png --speed 0.1", 1,
         "would end at frame 1000000017, past 999999999"},
        {"a speed that makes too many frames", "retime @c.%04d.png @r.%04d.png --speed 1e-9", 1,
         "makes 2000000000 output frames from the 2 input frames"},
        {"spark, the same speed", "spark @c.%04d.png @r.%04d.png --speed 1e-9", 1,
         "makes 2000000000 output frames from the 2 input frames"},
        {"true frames past the limit", "synth @t.%04d.png --frames 100000 --steps 100000", 2,
         "makes 10000000000 true frames"},
        {"spark: retime's motion blur limit", "spark @c.%04d.png @r.%04d.png --motion-blur 100", 2,
         "--motion-blur must be 5 or less, got 100"},
        {"spark: a setup past the motion blur limit",
         "spark @c.%04d.png @r.%04d.png --setup @blur.setup", 1,
         "the setup's motion blur must lie between 0 and 5"},
        {"spark: a setup of garbage",
         "spark @c.%04d.png @r.%04d.png --speed 1 --setup @garbage.setup", 1,
         "is not a setup: line 2 is not a record name and a number"},
        {"spark: a binary setup", "spark @c.%04d.png @r.%04d.png --speed 1 --setup @binary.setup",
         1, "is not a setup: line 2 holds binary data"},
        {"spark: a setup in a missing folder",
         "spark @c.%04d.png @r.%04d.png --speed 1 --setup @gone/p.setup", 1,
         "the folder of --setup"},
    };
    for (const Case& c : cases)
        ExpectRefused(c.name, c.line, c.status, c.message);
}

TEST_F(BadInputTest, AProcessKilledWhileWritingLeavesNoHiddenFile) {
    // The file size limit kills the process inside its first write of a frame.
    WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8, 64, 48);
    const auto before = test::FolderState(dir_);
    const auto r = test::RunQuelmor(Args("retime @c.%04d.png @r.%04d.png --speed 0.5 --quiet"),
                                    {.maxFileBytes = 1024, .killedAtFileLimit = true});
    EXPECT_EQ(r.status, 128 + SIGXFSZ) << r.err;
    EXPECT_EQ(test::FolderState(dir_), before);
}

TEST_F(BadInputTest, TheHostKeepsNothingOfASparkRun) {
    // The host's globals outlive the command; a frame source left there would keep reading
    // ahead from a reader the command has destroyed.
    WriteSynthClip(In("c.%04d.png"), 5, SampleType::U8);
    const std::vector<std::string> args = {In("c.%04d.png"), In("r.%04d.png"), "--speed", "2",
                                           "--quiet"};
    ASSERT_EQ(RunSpark(args), 0);
    for (const auto& clip : SparkHost().clips)
        EXPECT_EQ(clip, nullptr);
    EXPECT_EQ(SparkHost().plugin, nullptr);
}

// A reader whose frames take a while, reporting whether it was destroyed during a read.
class SlowReader final : public MediaReader {
public:
    explicit SlowReader(std::shared_ptr<std::atomic<int>> destroyedDuringRead)
        : destroyedDuringRead_(std::move(destroyedDuringRead)) {}
    ~SlowReader() override { *destroyedDuringRead_ = reading_ ? 1 : 0; }
    const MediaFormat& Format() const override { return format_; }
    int FrameCount() const override { return 4; }
    int FirstNumber() const override { return 0; }
    double FrameRate() const override { return 0; }
    void Read(int, MediaFrame& frame) override {
        reading_ = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        frame.Allocate(format_);
        reading_ = false;
    }

private:
    MediaFormat format_{2, 2, 3, SampleType::U8};
    std::atomic<bool> reading_{false};
    std::shared_ptr<std::atomic<int>> destroyedDuringRead_;
};

TEST(HostFrameSourceTest, OutlivesTheFrameItReadsAhead) {
    auto destroyedDuringRead = std::make_shared<std::atomic<int>>(-1);
    {
        MediaFrameSource source(std::make_unique<SlowReader>(destroyedDuringRead));
        std::vector<uint8_t> host(SparkHostFrameBytes(2, 2, 24));
        ASSERT_TRUE(source.ReadFrame(0, host.data(), host.size()));
        // Frame 1 is being read ahead now.
    }
    EXPECT_EQ(*destroyedDuringRead, 0);
}

} // namespace
} // namespace quelmor::cli
