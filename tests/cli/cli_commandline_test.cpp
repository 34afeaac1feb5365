// Command-line parsing, the checked readers of option values, the retime options and the
// progress line.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "cli/CommandLine.h"
#include "cli/Progress.h"
#include "cli/RetimeSettings.h"

namespace quelmor::cli {
namespace {

constexpr const char* kNames[] = {"nearest", "blend", "weighted"};
constexpr OptionSpec kOptions[] = {
    {"speed", true}, {"frames", true}, {"overwrite", false}, {"quiet", false}};

TEST(CommandLineTest, SplitsFilesAndOptions) {
    struct Case {
        const char* name;
        std::vector<std::string> args, files;
        std::map<std::string, std::string> values;
    } cases[] = {
        {"value after the name",
         {"in", "--speed", "0.5", "out"},
         {"in", "out"},
         {{"speed", "0.5"}}},
        {"value after equals", {"--speed=2", "a", "b"}, {"a", "b"}, {{"speed", "2"}}},
        {"flags", {"a", "--overwrite", "--quiet"}, {"a"}, {{"overwrite", ""}, {"quiet", ""}}},
        {"negative value", {"a", "b", "--speed", "-1"}, {"a", "b"}, {{"speed", "-1"}}},
        {"file after --", {"--", "--odd-name.mov"}, {"--odd-name.mov"}, {}},
        {"last one wins", {"--speed", "1", "--speed", "3"}, {}, {{"speed", "3"}}},
    };
    for (const Case& c : cases) {
        const CommandLine line = ParseCommandLine("retime", c.args, kOptions);
        EXPECT_EQ(line.files, c.files) << c.name;
        EXPECT_EQ(line.values, c.values) << c.name;
    }
}

using test::Retime;

TEST(OptionValueTest, RefusesBadValuesWithTheirMessage) {
    struct Case {
        const char* name;
        std::function<void()> parse;
        const char* message; // the start of the message; nullptr: accepted
    } cases[] = {
        {"value missing",
         [] {
             ParseCommandLine("retime", std::vector<std::string>{"a", "--speed"}, kOptions);
         },
         "option --speed needs a value"},
        {"value for a flag",
         [] { ParseCommandLine("retime", std::vector<std::string>{"--quiet=1"}, kOptions); },
         "option --quiet takes no value"},
        {"speed negative", [] { ParsePositive("-0.5", "--speed"); },
         "--speed must be above 0, got -0.5"},
        {"speed word", [] { ParsePositive("fast", "-s"); }, "-s must be a number, got \"fast\""},
        {"trailing text", [] { ParsePositive("0.5x", "-s"); }, "-s must be a number, got \"0.5x\""},
        {"infinite", [] { ParsePositive("inf", "-s"); }, "-s must be a number, got \"inf\""},
        {"blur negative", [] { ParseNonNegative("-1", "-b"); }, "-b must not be negative, got -1"},
        {"count zero", [] { ParseCount("0", "-f"); }, "-f must be 1 or more, got 0"},
        {"count fraction", [] { ParseCount("2.5", "-f"); },
         "-f must be a whole number, got \"2.5\""},
        {"size without x", [] { ParseSize("64"); }, "--size wants WIDTHxHEIGHT, got \"64\""},
        {"size too small", [] { ParseSize("4x4"); },
         "--size must lie between 8x8 and 16384x16384, got 4x4"},
        {"choice by name", [] { EXPECT_EQ(ParseChoice("Blend", "-i", kNames), 1); }, nullptr},
        {"choice out of range", [] { ParseChoice("3", "-i", kNames); },
         "-i must be one of nearest, blend, weighted, got \"3\""},
        {"range of one", [] { EXPECT_EQ(ParseFrameRange("7").first, 7); }, nullptr},
        {"range backwards", [] { ParseFrameRange("9-3"); }, "--frames wants A-B with 0 <= A <= B"},
        {"range open", [] { ParseFrameRange("3-"); },
         "the last frame of --frames must be a whole number, got \"\""},
        {"retime without output", [] { Retime("in.mov"); },
         "quelmor retime wants an input and an output"},
        {"retime without timing", [] { Retime("i o"); },
         "quelmor retime needs --speed, --fps, --speed-curve or --frame-curve"},
        {"retime timed twice", [] { Retime("i o --speed 1 --speed-curve s"); }, "give only one of"},
        {"retime into its input", [] { Retime("i i --speed 1"); },
         "the output must not be the input"},
        {"retime blur too long", [] { Retime("i o --speed 1 --motion-blur 6"); },
         "--motion-blur must be 5 or less"},
    };
    for (const Case& c : cases) {
        try {
            c.parse();
            EXPECT_EQ(c.message, nullptr) << c.name << ": accepted";
        } catch (const UsageError& e) {
            ASSERT_NE(c.message, nullptr) << c.name << ": " << e.what();
            EXPECT_EQ(std::string(e.what()).rfind(c.message, 0), 0u) << c.name << ": " << e.what();
        }
    }
}

TEST(RetimeSettingsTest, ReadsTheRetimeOptions) {
    const RetimeSettings s = Retime("in.%04d.png out.mov --speed 0.25 --frames 4-9 --quality high "
                                    "--interpolation weighted --motion-blur 0.5 --rate 24 "
                                    "--overwrite");
    EXPECT_EQ(s.input, "in.%04d.png");
    EXPECT_EQ(s.output, "out.mov");
    EXPECT_EQ(*s.speed, 0.25);
    EXPECT_EQ(s.frames->first, 4);
    EXPECT_EQ(s.frames->last, 9);
    EXPECT_EQ(s.vectorQuality, 3);
    EXPECT_EQ(s.interpolation, 2);
    EXPECT_FLOAT_EQ(s.motionBlur, 0.5f);
    EXPECT_EQ(s.rate, 24.0);
    EXPECT_TRUE(s.overwrite);
    EXPECT_FALSE(s.quiet);
}

TEST(ProgressTest, FormatsCountSpeedAndTimeLeft) {
    struct Case {
        int done, total;
        double seconds;
        int bar;
        const char* expected;
    } cases[] = {
        {0, 48, 0.0, 0, "0/48 frames"},
        {24, 48, 2.0, 10, "[#####.....] 24/48 frames  12.0 fps  0:02 left"},
        {48, 48, 16.0, 4, "[####] 48/48 frames  3.0 fps  0:00 left"},
        {1, 100, 2.0, 0, "1/100 frames  0.5 fps  3:18 left"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Progress::Format(c.done, c.total, c.seconds, c.bar), c.expected);
}

} // namespace
} // namespace quelmor::cli
