// Command-line parsing and the checked readers of option values.
#include <gtest/gtest.h>

#include <string>
#include <vector>

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
        std::vector<std::string> args;
        std::vector<std::string> files;
        std::map<std::string, std::string> values;
    } cases[] = {
        {"value after the name",
         {"in.mov", "--speed", "0.5", "out.mov"},
         {"in.mov", "out.mov"},
         {{"speed", "0.5"}}},
        {"value after equals", {"--speed=2", "a", "b"}, {"a", "b"}, {{"speed", "2"}}},
        {"flags",
         {"a", "--overwrite", "--quiet", "b"},
         {"a", "b"},
         {{"overwrite", ""}, {"quiet", ""}}},
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

TEST(CommandLineTest, RefusesWhatItDoesNotKnow) {
    struct Case {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"a", "--speed"}, "option --speed needs a value"},
        {{"--quiet=1"}, "option --quiet takes no value"},
    };
    for (const Case& c : cases) {
        try {
            ParseCommandLine("retime", c.args, kOptions);
            ADD_FAILURE() << c.message << ": accepted";
        } catch (const UsageError& e) {
            EXPECT_STREQ(e.what(), c.message);
        }
    }
}

TEST(OptionValueTest, ChecksNumbersAndRanges) {
    struct Case {
        const char* name;
        std::function<void()> parse;
        const char* message; // nullptr: accepted
    } cases[] = {
        {"speed negative", [] { ParsePositive("-0.5", "--speed"); },
         "--speed must be above 0, got -0.5"},
        {"speed word", [] { ParsePositive("fast", "--speed"); },
         "--speed must be a number, got \"fast\""},
        {"speed trailing text", [] { ParsePositive("0.5x", "--speed"); },
         "--speed must be a number, got \"0.5x\""},
        {"speed infinite", [] { ParsePositive("inf", "--speed"); },
         "--speed must be a number, got \"inf\""},
        {"speed fine", [] { EXPECT_EQ(ParsePositive("0.25", "--speed"), 0.25); }, nullptr},
        {"blur negative", [] { ParseNonNegative("-1", "--motion-blur"); },
         "--motion-blur must not be negative, got -1"},
        {"count zero", [] { ParseCount("0", "--frames"); }, "--frames must be 1 or more, got 0"},
        {"count fraction", [] { ParseCount("2.5", "--frames"); },
         "--frames must be a whole number, got \"2.5\""},
        {"size", [] { EXPECT_EQ(ParseSize("64x48").height, 48); }, nullptr},
        {"size without x", [] { ParseSize("64"); }, "--size wants WIDTHxHEIGHT, got \"64\""},
        {"size too small", [] { ParseSize("4x4"); },
         "--size must lie between 8x8 and 16384x16384, got 4x4"},
        {"choice by name", [] { EXPECT_EQ(ParseChoice("Blend", "--i", kNames), 1); }, nullptr},
        {"choice by number", [] { EXPECT_EQ(ParseChoice("2", "--i", kNames), 2); }, nullptr},
        {"choice out of range", [] { ParseChoice("3", "--i", kNames); },
         "--i must be one of nearest, blend, weighted, got \"3\""},
    };
    for (const Case& c : cases) {
        try {
            c.parse();
            EXPECT_EQ(c.message, nullptr) << c.name << ": accepted";
        } catch (const UsageError& e) {
            ASSERT_NE(c.message, nullptr) << c.name << ": " << e.what();
            EXPECT_STREQ(e.what(), c.message) << c.name;
        }
    }
}

TEST(OptionValueTest, ReadsFrameRanges) {
    struct Case {
        const char* text;
        int first, last; // -1: refused
    } cases[] = {
        {"0-9", 0, 9},    {"12-12", 12, 12}, {"7", 7, 7},    {"9-3", -1, -1},
        {"-3-4", -1, -1}, {"a-b", -1, -1},   {"3-", -1, -1},
    };
    for (const Case& c : cases) {
        if (c.first < 0) {
            EXPECT_THROW(ParseFrameRange(c.text), UsageError) << c.text;
            continue;
        }
        const FrameRange r = ParseFrameRange(c.text);
        EXPECT_EQ(r.first, c.first) << c.text;
        EXPECT_EQ(r.last, c.last) << c.text;
    }
}

TEST(ProgressTest, FormatsCountSpeedAndTimeLeft) {
    struct Case {
        int done, total;
        double seconds;
        int bar;
        const char* expected;
    } cases[] = {
        {0, 48, 0.0, 0, "0/48 frames"},
        {12, 48, 4.0, 0, "12/48 frames  3.0 fps  0:12 left"},
        {24, 48, 2.0, 10, "[#####.....] 24/48 frames  12.0 fps  0:02 left"},
        {48, 48, 16.0, 4, "[####] 48/48 frames  3.0 fps  0:00 left"},
        {1, 100, 2.0, 0, "1/100 frames  0.5 fps  3:18 left"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(Progress::Format(c.done, c.total, c.seconds, c.bar), c.expected);
}

TEST(RetimeSettingsTest, ReadsTheRetimeOptions) {
    const std::vector<std::string> args = {"in.%04d.png",     "out.mov",  "--speed",       "0.25",
                                           "--frames",        "4-9",      "--quality",     "high",
                                           "--interpolation", "weighted", "--motion-blur", "0.5",
                                           "--rate",          "24",       "--overwrite"};
    const RetimeSettings s = ParseRetimeSettings(args);
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

TEST(RetimeSettingsTest, RefusesMissingOrContradictoryTiming) {
    struct Case {
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {{"in.mov"}, "quelmor retime wants an input and an output"},
        {{"in.mov", "out.mov"}, "quelmor retime needs --speed, --speed-curve or --frame-curve"},
        {{"in.mov", "out.mov", "--speed", "1", "--speed-curve", "s.txt"}, "give only one of"},
        {{"in.mov", "in.mov", "--speed", "1"}, "the output must not be the input"},
        {{"in.mov", "out.mov", "--speed", "1", "--motion-blur", "6"},
         "--motion-blur must be 5 or less"},
        {{"in.mov", "out.mov", "--speed", "1", "--quality", "superb"}, "--quality must be one of"},
    };
    for (const Case& c : cases) {
        try {
            ParseRetimeSettings(c.args);
            ADD_FAILURE() << c.message << ": accepted";
        } catch (const UsageError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(c.message, 0), 0u) << e.what();
        }
    }
}

} // namespace
} // namespace quelmor::cli
