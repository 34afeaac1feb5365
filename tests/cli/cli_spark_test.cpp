// quelmor spark end to end: the plug-in run as its host runs it gives the pixels of the direct
// path, keeps its panel in a setup file, follows key curves and writes grey sources as grey; the
// stand-in host keeps nothing of a run.
#include <gtest/gtest.h>

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
using test::ExpectSameFrames;

class SparkTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8);
    }
};

TEST_F(SparkTest, PlugInAndDirectPathMakeTheSamePixels) {
    // Every interpolation, two vector qualities, slow motion by whole and odd ratios, speed-up.
    const struct {
        const char* name;
        const char* settings;
    } cases[] = {
        {"best_blend", "--speed 0.5 --quality best --interpolation blend"},
        {"high_nearest", "--speed 0.4 --quality high --interpolation nearest"},
        {"speed_up_weighted", "--speed 2 --quality none --interpolation weighted"},
    };
    for (const auto& c : cases) {
        for (const std::string command : {"spark", "retime"}) {
            const auto r = Run(command + " @c.%04d.png @" + command + c.name +
                               ".%04d.png --quiet --timing " + c.settings);
            // Each path splits its time into stages; --quiet drops the progress and the summary.
            for (const char* row :
                 {"decode source frames", "wait for the frame read ahead", "wait for the writers",
                  "decode and convert ahead", "encode and write", "outside the engine: "})
                EXPECT_NE(r.err.find("\n  " + std::string(row)), std::string::npos)
                    << command << ": no row " << row << " in\n"
                    << r.err;
            EXPECT_EQ(r.err.find(" frames"), r.err.find(" frames over")) << command << r.err;
        }
        ExpectSameFrames(In(std::string("spark") + c.name + ".%04d.png"),
                         In(std::string("retime") + c.name + ".%04d.png"), c.name);
    }
}

TEST_F(SparkTest, KeepsThePanelInTheSetupFile) {
    Run("spark @c.%04d.png @a.%04d.png --speed 0.5 --quality best --setup @panel.setup --quiet");
    std::ifstream setup(In("panel.setup"));
    const std::string text((std::istreambuf_iterator<char>(setup)), {});
    EXPECT_NE(text.find("SparkFloat2 0.5"), std::string::npos) << text;
    // A second run without --speed takes the speed from the setup.
    Run("spark @c.%04d.png @b.%04d.png --setup @panel.setup --quiet");
    EXPECT_EQ(OpenMedia(In("b.%04d.png"))->FrameCount(), 8);
    ExpectSameFrames(In("a.%04d.png"), In("b.%04d.png"), "speed from the setup");
}

TEST_F(SparkTest, CurveModeFollowsTheKeyFiles) {
    // A slowing speed, and scenes that ask for blends and then for the nearest frame.
    std::ofstream(In("speed.txt")) << "0 0.5\n3 0.25\n";
    std::ofstream(In("scenes.txt")) << "0 5\n2 4\n";
    for (const std::string command : {"spark", "retime"})
        Run(command + " @c.%04d.png @" + command +
            ".%04d.png --speed-curve @speed.txt --scenes @scenes.txt --quiet");
    // Speeds 0.5, 0.4167, 0.3333, then 0.25 held: source time 1.25 after three frames and 4
    // after eleven more.
    EXPECT_EQ(OpenMedia(In("spark.%04d.png"))->FrameCount(), 14);
    ExpectSameFrames(In("spark.%04d.png"), In("retime.%04d.png"), "curve mode");
    // Output frame 1 (source time 0.5) is a blend, not a copy of either source frame.
    EXPECT_LT(test::FramePsnr(In("spark.%04d.png"), 1, In("c.%04d.png"), 0), 45.0);
    EXPECT_LT(test::FramePsnr(In("spark.%04d.png"), 1, In("c.%04d.png"), 1), 45.0);
}

TEST_F(SparkTest, GreySourcesComeBackGrey) {
    // The plug-in's frames carry no alpha: spark writes grey without it, and says so. The
    // source's grey comes back, to the 12 bits of the host's 16-bit frames.
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
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Each case's files under names of their own.
        const std::string suffix = std::to_string(n++) + ".%04d." + c.ext;
        const std::string in = std::string("g") + suffix, out = std::string("s") + suffix;
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
            auto writer = CreateMedia(In(in), source.format, {});
            for (int i = 0; i < 3; ++i)
                writer->Write(i, source);
            writer->Finish();
        }
        const auto r = Run("spark @" + in + " @" + out + " --speed 1 --quiet");
        EXPECT_EQ(r.err.find("no alpha") != std::string::npos, c.channels == 2) << r.err;
        auto sparked = OpenMedia(In(out));
        ASSERT_EQ(sparked->Format().channels, 1);
        MediaFrame back, got, want;
        sparked->Read(1, back);
        ConvertFrame(back, {8, 8, 1, SampleType::Float}, got);
        ConvertFrame(source, {8, 8, 1, SampleType::Float}, want);
        const float tolerance = c.sample == SampleType::U16 ? 16.0f / 65535.0f : 0.0f;
        for (int i = 0; i < 64; ++i)
            ASSERT_NEAR(got.Row<float>(0)[i], want.Row<float>(0)[i], tolerance) << "pixel " << i;
    }
}

TEST_F(SparkTest, TheHostKeepsNothingOfARun) {
    // The host's globals outlive the command; a frame source left there would keep reading
    // ahead from a reader the command has destroyed.
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
