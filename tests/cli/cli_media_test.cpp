// Image sequences and video files: names, round trips, bit depth and refusals.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/Score.h"
#include "cli/SequencePattern.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;

class MediaTest : public test::FolderTest {};

// A frame whose every sample differs from its neighbours, in the given format.
MediaFrame Ramp(const MediaFormat& f, int seed) {
    MediaFormat flt = f;
    flt.sample = SampleType::Float;
    MediaFrame linear;
    linear.Allocate(flt);
    for (int y = 0; y < f.height; ++y) {
        float* row = linear.Row<float>(y);
        for (int x = 0; x < f.width * f.channels; ++x)
            row[x] = float((x * 37 + y * 101 + seed * 13) % 1000) / 999.0f;
    }
    MediaFrame out;
    ConvertFrame(linear, f, out);
    return out;
}

void Touch(const std::string& path) {
    std::ofstream(path) << "x";
}

TEST(SequencePatternTest, NamesFramesFromEveryFieldForm) {
    const struct {
        const char* pattern;
        int frame;
        const char* expected; // nullptr: not a sequence; the field must be in the file name
    } cases[] = {
        {"shot.%04d.exr", 7, "./shot.0007.exr"}, {"a/b/shot.####.dpx", 12, "a/b/shot.0012.dpx"},
        {"x_%d.tif", 123, "./x_123.tif"},        {"clip.%04d.png", 12345, "./clip.12345.png"},
        {"dir.%04d/plain.png", 1, nullptr},      {"plain.png", 1, nullptr},
        {"two.%04d.%04d.png", 1, nullptr},       {"h#.#.png", 1, nullptr},
    };
    for (const auto& c : cases) {
        const auto p = SequencePattern::Parse(c.pattern);
        if (!c.expected) {
            EXPECT_FALSE(p.has_value()) << c.pattern;
            continue;
        }
        ASSERT_TRUE(p.has_value()) << c.pattern;
        EXPECT_EQ(p->Path(c.frame), c.expected) << c.pattern;
    }
}

TEST_F(MediaTest, FindsOnlyFilesThatFitThePattern) {
    for (const char* name : {"s.0003.png", "s.0001.png", "s.0002.png", "s.12345.png", "s.00007.png",
                             "s.001.png", "s.0004.png.part", "t.0005.png", "s.00a6.png"})
        Touch(In(name));
    fs::create_directory(In("s.0009.png")); // a folder is no frame
    const auto p = SequencePattern::Parse(In("s.%04d.png"));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->FindFrames(), (std::vector<int>{1, 2, 3, 12345}));
}

TEST_F(MediaTest, SequencesKeepTheirBitDepth) {
    struct Case {
        const char* name;
        SampleType written;
        int channels;
        SampleType expected;
        double minPsnr; // 99: exact
    } cases[] = {
        {"png8.%04d.png", SampleType::U8, 3, SampleType::U8, 99},
        {"png16.%04d.png", SampleType::U16, 4, SampleType::U16, 99},
        {"tif16.%04d.tif", SampleType::U16, 3, SampleType::U16, 99},
        {"exrhalf.%04d.exr", SampleType::Half, 4, SampleType::Half, 99},
        {"exr16.%04d.exr", SampleType::U16, 3, SampleType::Half, 60},
        {"dpx16.####.dpx", SampleType::U16, 3, SampleType::U16, 99},
        {"jpg.%04d.jpg", SampleType::U8, 3, SampleType::U8, 15},
    };
    for (const Case& c : cases) {
        const MediaFormat f{16, 8, c.channels, c.written};
        {
            auto writer = CreateMedia(In(c.name), f, {});
            for (int i = 0; i < 3; ++i)
                writer->Write(10 + i, Ramp(f, i));
            writer->Finish();
        }
        auto reader = OpenMedia(In(c.name));
        EXPECT_EQ(reader->FrameCount(), 3) << c.name;
        EXPECT_EQ(reader->FirstNumber(), 10) << c.name;
        EXPECT_EQ(reader->Format().sample, c.expected) << c.name;
        EXPECT_EQ(reader->Format().width, 16) << c.name;
        MediaFrame back;
        reader->Read(2, back);
        EXPECT_GE(Psnr(back, Ramp(f, 2)), c.minPsnr) << c.name;
        EXPECT_LT(Psnr(back, Ramp(f, 1)), 40) << c.name << ": frame 2 must not read as frame 1";
    }
}

TEST_F(MediaTest, OutputChecksRefuseBeforeAnythingIsWritten) {
    Touch(In("taken.0005.png"));
    Touch(In("taken.mov"));
    // The refusals that the command's suite does not show.
    struct Case {
        const char* output;
        bool overwrite;
        const char* message; // nullptr: accepted
    } cases[] = {
        {"taken.%04d.png", true, nullptr},
        {"taken.mov", false, "already exists"},
        {"taken.mov", true, nullptr},
        {"free.%04d.png", false, nullptr},
        {"out.avi", false, "unsupported output format"},
    };
    for (const Case& c : cases) {
        WriteOptions options;
        options.overwrite = c.overwrite;
        const auto before = test::FolderState(dir_);
        try {
            CheckOutput(In(c.output), 0, 10, options);
            EXPECT_EQ(c.message, nullptr) << c.output << " was accepted";
        } catch (const MediaError& e) {
            ASSERT_NE(c.message, nullptr) << c.output << ": " << e.what();
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos)
                << c.output << ": " << e.what();
        }
        EXPECT_EQ(test::FolderState(dir_), before) << c.output;
    }
    // Frames outside the range to be written are not in the way.
    EXPECT_NO_THROW(CheckOutput(In("taken.%04d.png"), 6, 10, {}));
}

TEST_F(MediaTest, AnUnfinishedSequenceLeavesNothingBehind) {
    const MediaFormat f{8, 8, 3, SampleType::U8};
    {
        auto writer = CreateMedia(In("part.%04d.png"), f, {});
        writer->Write(0, Ramp(f, 0));
        writer->Write(1, Ramp(f, 1));
        EXPECT_EQ(test::FolderState(dir_).size(), 2u);
    }
    EXPECT_TRUE(test::FolderState(dir_).empty());
}

TEST(ConvertFrameTest, ScalesSamplesAndFillsChannels) {
    using S = SampleType;
    struct Case {
        const char* name;
        int fromChannels;
        S from;
        int toChannels;
        S to;
        std::vector<float> in;        // every pixel
        std::vector<double> expected; // in the destination's units
    } cases[] = {
        {"8 to 16 bit", 3, S::U8, 3, S::U16, {1.0f, 0.0f, 128 / 255.0f}, {65535, 0, 32896}},
        {"16 bit to float", 3, S::U16, 3, S::Float, {1, 0.5f, 0}, {1, 32768 / 65535.0, 0}},
        {"rgb gains opaque alpha", 3, S::U8, 4, S::U8, {0.2f, 0.4f, 0.6f}, {51, 102, 153, 255}},
        {"16-bit alpha kept", 4, S::U16, 4, S::U16, {0, 1, 0.5f, 0.25f}, {0, 65535, 32768, 16384}},
        {"grey to rgb", 1, S::U16, 3, S::U16, {0.5f}, {32768, 32768, 32768}},
        {"rgba to 8-bit rgb", 4, S::Float, 3, S::U8, {0.2f, 0.4f, 0.6f, 0}, {51, 102, 153}},
        {"8-bit rgba to halves", 4, S::U8, 3, S::Half, {0.2f, 0.4f, 0.6f, 0}, {0.2, 0.4, 0.6}},
        {"16-bit rgb to halves", 3, S::U16, 4, S::Half, {0.25f, 0.5f, 1}, {0.25, 0.5, 1, 1}},
        {"16-bit rgb to rgb halves", 3, S::U16, 3, S::Half, {0.25f, 0.5f, 1}, {0.25, 0.5, 1}},
        {"grey and alpha to rgba", 2, S::U8, 4, S::U8, {0.2f, 0.6f}, {51, 51, 51, 153}},
        {"16-bit grey and alpha to float",
         2,
         S::U16,
         4,
         S::Float,
         {0.5f, 0.25f},
         {0.5, 0.5, 0.5, 0.25}},
        {"grey and alpha to halves", 2, S::U8, 4, S::Half, {0.2f, 0.6f}, {0.2, 0.2, 0.2, 0.6}},
        {"rgba to grey and alpha", 4, S::U8, 2, S::U8, {0.2f, 0.4f, 0.6f, 0.8f}, {51, 204}},
        {"16-bit rgba to grey and alpha halves",
         4,
         S::U16,
         2,
         S::Half,
         {0.5f, 0, 0, 0.25f},
         {0.5, 0.25}},
    };
    for (const Case& c : cases) {
        // Six pixels of one colour: a wrong step between pixels shows as mixed channels.
        MediaFrame linear, from, to, back;
        linear.Allocate({3, 2, c.fromChannels, S::Float});
        for (int i = 0; i < 6 * c.fromChannels; ++i)
            linear.Row<float>(0)[i] = c.in[size_t(i % c.fromChannels)];
        ConvertFrame(linear, {3, 2, c.fromChannels, c.from}, from);
        ConvertFrame(from, {3, 2, c.toChannels, c.to}, to);
        ConvertFrame(to, {3, 2, c.toChannels, S::Float}, back);
        const double scale = c.to == S::U8 ? 255 : c.to == S::U16 ? 65535 : 1;
        for (int i = 0; i < 6 * c.toChannels; ++i)
            EXPECT_NEAR(back.Row<float>(0)[i] * scale, c.expected[size_t(i % c.toChannels)],
                        scale > 1 ? 0.5 : 1e-3)
                << c.name << " sample " << i;
    }
}

TEST_F(MediaTest, VideoFilesRoundTrip) {
    struct Case {
        const char* name;
        SampleType sample;
        SampleType readBack;
        double rate;
    } cases[] = {
        {"clip.mp4", SampleType::U8, SampleType::U8, 24.0},
        {"clip.mov", SampleType::U16, SampleType::U16, 30000.0 / 1001.0},
    };
    SynthSettings synth;
    synth.width = 64;
    synth.height = 48;
    for (const Case& c : cases) {
        synth.sample = c.sample;
        std::vector<MediaFrame> frames(6);
        for (int i = 0; i < 6; ++i)
            RenderSynthFrame(synth, i, frames[i]);
        WriteOptions options;
        options.frameRate = c.rate;
        {
            auto writer = CreateMedia(In(c.name), frames[0].format, options);
            for (int i = 0; i < 6; ++i)
                writer->Write(i, frames[i]);
            EXPECT_FALSE(fs::exists(In(c.name))) << c.name << " must appear only when finished";
            writer->Finish();
        }
        EXPECT_EQ(test::FolderState(dir_).size(), 1u) << c.name << ": no temporary file may stay";
        auto reader = OpenMedia(In(c.name));
        EXPECT_EQ(reader->FrameCount(), 6) << c.name;
        EXPECT_EQ(reader->Format().sample, c.readBack) << c.name;
        EXPECT_NEAR(reader->FrameRate(), c.rate, 1e-3) << c.name;
        MediaFrame back;
        for (int i : {4, 1, 5}) { // out of order, to force a rewind
            reader->Read(i, back);
            EXPECT_GT(Psnr(back, frames[i]), 32.0) << c.name << " frame " << i;
            EXPECT_LT(Psnr(back, frames[i == 5 ? 0 : i + 1]), Psnr(back, frames[i]))
                << c.name << " frame " << i;
        }
        fs::remove(In(c.name));
    }
}

TEST(PsnrTest, MeasuresTheMeanSquaredError) {
    const MediaFormat f{4, 4, 3, SampleType::Float};
    MediaFrame a, b;
    a.Allocate(f);
    b.Allocate(f);
    EXPECT_EQ(Psnr(a, b), 99.0);
    std::fill(b.Row<float>(0), b.Row<float>(0) + 48, 0.1f); // MSE 0.01: 20 dB
    EXPECT_NEAR(Psnr(a, b), 20.0, 1e-4);
    MediaFrame c;
    c.Allocate({5, 4, 3, SampleType::Float});
    EXPECT_THROW(Psnr(a, c), MediaError);
}

} // namespace
} // namespace quelmor::cli
