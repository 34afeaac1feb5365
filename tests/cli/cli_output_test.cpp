// What a run leaves in its output folder when the output is the input under another name, when
// it fails half-way, when it makes fewer frames than the output it replaces, when a signal stops
// it, and when it resumes an unfinished sequence: never less than the output that was there, and
// never a mix that no run made.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "CliTestSupport.h"
#include "cli/SequencePattern.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::WriteSynthClip;

std::vector<std::string> HiddenFiles(const fs::path& dir) {
    std::vector<std::string> hidden;
    for (const auto& e : fs::directory_iterator(dir))
        if (e.path().filename().string()[0] == '.') hidden.push_back(e.path().filename().string());
    return hidden;
}

// Frames of 48x32: `plain` flat grey ones, which compress to a few hundred bytes, then noise,
// which does not compress at all.
void WritePlainThenNoise(const std::string& pattern, int plain, int noise) {
    const MediaFormat f{48, 32, 3, SampleType::U8};
    auto writer = CreateMedia(pattern, f, {});
    std::mt19937 random(7);
    for (int i = 0; i < plain + noise; ++i) {
        MediaFrame frame;
        frame.Allocate(f);
        for (auto& v : frame.pixels)
            v = i < plain ? std::uint8_t(100) : std::uint8_t(random());
        writer->Write(i, frame);
    }
    writer->Finish();
}

class OutputTest : public test::FolderTest {};

TEST_F(OutputTest, AnOutputThatIsTheInputUnderAnotherNameIsRefused) {
    WriteSynthClip(In("s.%04d.png"), 3, SampleType::U8);
    WriteSynthClip(In("v.mp4"), 3, SampleType::U8);
    fs::create_directory_symlink(dir_, In("link"));
    fs::create_hard_link(In("s.0002.png"), In("h.0002.png"));
    const std::string dot = (dir_ / "." / "").string();
    const std::string message = "the output must not be the input";
    const test::Refusal cases[] = {
        {"through ./", 2, message, "retime @s.%04d.png " + dot + "s.%04d.png --speed 0.5"},
        {"hashes for the field", 2, message, "retime @s.%04d.png @s.####.png --speed 0.5"},
        {"through a linked folder", 2, message, "retime @s.%04d.png @link/s.%04d.png --speed 0.5"},
        {"one frame hard-linked", 2, message, "retime @s.%04d.png @h.%04d.png --speed 0.5"},
        {"a video through ./", 2, message, "retime @v.mp4 " + dot + "v.mp4 --speed 0.5"},
        {"spark, hashes", 2, message, "spark @s.%04d.png @s.####.png --speed 0.5"},
    };
    for (const test::Refusal& c : cases)
        ExpectRefused({c.name, c.status, c.message, c.line + " --overwrite"});
}

TEST_F(OutputTest, AFailedRunLeavesTheOldOutputWhole) {
    // Four plain frames write under the file size limit, the noisy ones after them cannot.
    WritePlainThenNoise(In("mixed.%04d.png"), 4, 4);
    WriteSynthClip(In("s.%04d.png"), 8, SampleType::U8);
    WriteSynthClip(In("cut.%04d.png"), 8, SampleType::U8);
    fs::resize_file(In("cut.0005.png"), fs::file_size(In("cut.0005.png")) / 2);
    struct Case {
        const char* name;
        const char* input; // as to Args
        const char* output;
        long maxFileBytes;
    } cases[] = {
        {"disk full after four frames", "@mixed.%04d.png", "old.%04d.png", 2000},
        {"truncated source frame", "@cut.%04d.png", "old.%04d.png", -1},
        {"disk full, video", "@mixed.%04d.png", "old.mov", 3000},
    };
    for (const Case& c : cases) {
        Run("retime @s.%04d.png @" + std::string(c.output) + " --speed 1 --quiet");
        ExpectRefused({c.name,
                       1,
                       "cannot",
                       std::string("retime ") + c.input + " @" + c.output +
                           " --speed 1 --interpolation nearest --overwrite",
                       {c.maxFileBytes}});
        for (const auto& e : fs::directory_iterator(dir_))
            if (e.path().filename().string().rfind("old", 0) == 0) fs::remove(e.path());
    }
}

TEST_F(OutputTest, AProcessKilledWhileWritingLeavesNoHiddenFile) {
    // The file size limit kills the process inside its first write of a frame.
    WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8, 64, 48);
    const auto before = test::FolderState(dir_);
    const auto r = test::RunQuelmor(Args("retime @c.%04d.png @r.%04d.png --speed 0.5 --quiet"),
                                    {.maxFileBytes = 1024, .killedAtFileLimit = true});
    EXPECT_EQ(r.status, 128 + SIGXFSZ) << r.err;
    EXPECT_EQ(test::FolderState(dir_), before);
}

TEST_F(OutputTest, OverwritingLeavesOnlyTheNewSequence) {
    WriteSynthClip(In("s.%04d.png"), 6, SampleType::U8);
    struct Step {
        const char* line; // as to Args
        int status;
        int first, last; // frame numbers of out.%04d.png afterwards
    };
    struct Case {
        const char* name;
        std::vector<Step> steps;
    } cases[] = {
        {"fewer frames", {{"--speed 0.5", 0, 0, 11}, {"--speed 1 --overwrite", 0, 0, 5}}},
        {"fewer frames, not overwriting, refused",
         {{"--speed 0.5 --frames 6-11", 0, 6, 11}, {"--speed 1", 1, 6, 11}}},
        {"a chunk keeps the other chunks",
         {{"--speed 0.5", 0, 0, 11}, {"--speed 0.5 --frames 2-3 --overwrite", 0, 0, 11}}},
        // Frames 3 to 5 are another chunk's, by their numbers; those past the new end no chunk's.
        {"a chunk of fewer frames",
         {{"--speed 0.5", 0, 0, 11}, {"--speed 1 --frames 0-2 --overwrite", 0, 0, 5}}},
    };
    for (const Case& c : cases) {
        for (const Step& step : c.steps) {
            const auto r = test::RunQuelmor(
                Args(std::string("retime @s.%04d.png @out.%04d.png --quiet ") + step.line));
            EXPECT_EQ(r.status, step.status) << c.name << ", " << step.line << ": " << r.err;
            const auto frames = SequencePattern::Parse(In("out.%04d.png"))->FindFrames();
            ASSERT_FALSE(frames.empty()) << c.name << ", " << step.line;
            EXPECT_EQ(frames.front(), step.first) << c.name << ", " << step.line;
            EXPECT_EQ(frames.back(), step.last) << c.name << ", " << step.line;
            EXPECT_EQ(int(frames.size()), step.last - step.first + 1) << c.name;
        }
        EXPECT_TRUE(HiddenFiles(dir_).empty()) << c.name;
        for (int frame : SequencePattern::Parse(In("out.%04d.png"))->FindFrames())
            fs::remove(SequencePattern::Parse(In("out.%04d.png"))->Path(frame));
    }
    // What replaced the old frames is the new run's work, as a run into an empty folder makes it.
    Run("retime @s.%04d.png @out.%04d.png --speed 0.5 --quiet");
    Run("retime @s.%04d.png @out.%04d.png --speed 1 --overwrite --quiet");
    Run("retime @s.%04d.png @fresh.%04d.png --speed 1 --quiet");
    test::ExpectSameFrames(In("out.%04d.png"), In("fresh.%04d.png"), "overwritten against fresh");
}

// A quelmor process started without waiting for it.
struct Started {
    pid_t pid = -1;
    std::string errPath;
};

Started Start(const std::vector<std::string>& args, const std::string& errPath) {
    return {test::StartQuelmor(args, "/dev/null", errPath), errPath};
}

// Waits until a hidden file appears in `dir`, which the output's writer makes only after its
// signal handlers are in place; false when the process ended first.
bool WaitForHiddenFile(pid_t pid, const fs::path& dir) {
    const auto give_up = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < give_up) {
        if (!HiddenFiles(dir).empty()) return true;
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

TEST_F(OutputTest, ASignalStopsTheRunWithItsOutputInOrder) {
    // Long enough that no run ends before its signal: hundreds of frames of 160x96.
    Run("synth @s.%04d.png --frames 3 --size 160x96 --quiet");
    fs::create_directory(In("out"));
    const std::string scratch = (dir_ / "err.txt").string();
    struct Case {
        const char* name;
        const char* line; // as to Args; the output goes to out/
        int signal;
        bool oldOutput;   // an earlier run's output is in place and --overwrite given
        bool keepsFrames; // the frames written so far stay, named in the message
    } cases[] = {
        {"retime, interrupted", "retime @s.%04d.png @out/r.%04d.png --speed 0.01", SIGINT, false,
         true},
        {"retime over an old output", "retime @s.%04d.png @out/r.%04d.png --speed 0.01", SIGTERM,
         true, false},
        {"spark, hung up", "spark @s.%04d.png @out/r.%04d.png --speed 0.01", SIGHUP, false, true},
        {"spark over an old output", "spark @s.%04d.png @out/r.%04d.png --speed 0.01", SIGINT, true,
         false},
        {"video", "retime @s.%04d.png @out/r.mp4 --speed 0.01", SIGTERM, false, false},
        {"video over an old one", "retime @s.%04d.png @out/r.mp4 --speed 0.01", SIGINT, true,
         false},
        {"synth", "synth @out/r.%04d.png --frames 300 --size 320x180", SIGINT, false, false},
    };
    for (const Case& c : cases) {
        fs::remove_all(In("out"));
        fs::create_directory(In("out"));
        std::string line = c.line + std::string(" --quiet");
        if (c.oldOutput) {
            std::string old = line;
            old.replace(old.find("0.01"), 4, "1");
            Run(old);
            line += " --overwrite";
        }
        const auto before = test::FolderState(In("out"));
        const Started run = Start(Args(line), scratch);
        ASSERT_TRUE(WaitForHiddenFile(run.pid, In("out"))) << c.name << " ended early";
        kill(run.pid, c.signal);
        EXPECT_EQ(test::WaitQuelmor(run.pid), 128 + c.signal) << c.name;
        const std::string err = test::Slurp(scratch);
        EXPECT_NE(err.find("interrupted by SIG"), std::string::npos) << c.name << ": " << err;
        EXPECT_TRUE(HiddenFiles(In("out")).empty()) << c.name << ": " << err;
        if (c.oldOutput) {
            EXPECT_EQ(test::FolderState(In("out")), before) << c.name << ": " << err;
            EXPECT_NE(err.find("left as it was"), std::string::npos) << c.name << ": " << err;
        }
        if (!c.keepsFrames) {
            if (!c.oldOutput) {
                EXPECT_TRUE(test::FolderState(In("out")).empty()) << c.name << ": " << err;
            }
            continue;
        }
        // The frames kept run from the first without a gap, the message names the last, and
        // each is whole: what a run of just those frames makes, where a run can be cut so.
        const auto pattern = SequencePattern::Parse(In("out/r.%04d.png"));
        const auto frames = pattern->FindFrames();
        ASSERT_FALSE(frames.empty()) << c.name << ": " << err;
        EXPECT_EQ(frames.front(), 0) << c.name;
        EXPECT_EQ(int(frames.size()), frames.back() + 1) << c.name;
        EXPECT_NE(err.find(pattern->Path(frames.back()) + " written"), std::string::npos)
            << c.name << ": " << err;
        auto kept = OpenMedia(In("out/r.%04d.png"));
        MediaFrame frame;
        for (int i = 0; i < kept->FrameCount(); ++i)
            EXPECT_NO_THROW(kept->Read(i, frame)) << c.name << ", frame " << i;
        if (std::string(c.line).rfind("retime", 0) != 0) continue;
        fs::remove_all(In("ref"));
        fs::create_directory(In("ref"));
        Run("retime @s.%04d.png @ref/r.%04d.png --speed 0.01 --quiet --frames 0-" +
            std::to_string(frames.back()));
        test::ExpectSameFrames(In("out/r.%04d.png"), In("ref/r.%04d.png"), c.name);
    }
}

// Continuing an image sequence: --resume renders only the frames missing from the output (within
// --frames when given), keeps the ones there untouched, and a resumed run that fails keeps the
// frames it finished, so that the next one has less to do. --print-frames tells a farm script the
// range to split. Every result is compared bit for bit with one uninterrupted run.
constexpr const char* kRetime = "retime @c.%04d.png @r.%04d.png --speed 0.5 --quality best";

class ResumeTest : public test::FolderTest {
protected:
    void SetUp() override {
        test::FolderTest::SetUp();
        test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8, 64, 48);
        Run("retime @c.%04d.png @whole.%04d.png --speed 0.5 --quality best --quiet");
    }
    std::string Frame(int n) const { return SequencePattern::Parse(In("r.%04d.png"))->Path(n); }
    std::string Whole(int n) const { return SequencePattern::Parse(In("whole.%04d.png"))->Path(n); }
    static std::string Bytes(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        EXPECT_TRUE(file.good()) << path;
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }
    std::set<int> FramesThere() const {
        const auto found = SequencePattern::Parse(In("r.%04d.png"))->FindFrames();
        return {found.begin(), found.end()};
    }
    static ino_t Inode(const std::string& path) {
        struct stat st {};
        EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
        return st.st_ino;
    }
};

TEST_F(ResumeTest, RendersOnlyTheMissingFramesWithinTheChunk) {
    struct Case {
        const char* name;
        std::set<int> deleted; // from a finished run of output frames 0-7
        const char* frames;    // --frames, or ""
        const char* said;      // what the run says it found
        std::set<int> after;   // frames there afterwards
    } cases[] = {
        {"gaps at both ends and inside",
         {0, 3, 4, 7},
         "",
         "4 of the 8 output frames 0-7 are there, 4 to render",
         {0, 1, 2, 3, 4, 5, 6, 7}},
        {"only within the chunk",
         {1, 3, 6},
         "2-5",
         "3 of the 4 output frames 2-5 are there, 1",
         {0, 2, 3, 4, 5, 7}},
        {"nothing missing",
         {},
         "",
         "8 of the 8 output frames 0-7 are there, 0 to render",
         {0, 1, 2, 3, 4, 5, 6, 7}},
        {"nothing there",
         {0, 1, 2, 3, 4, 5, 6, 7},
         "4-7",
         "0 of the 4 output frames 4-7 are there, 4 to render",
         {4, 5, 6, 7}},
    };
    for (const Case& c : cases) {
        Run(std::string(kRetime) + " --quiet");
        for (int n : c.deleted)
            fs::remove(Frame(n));
        std::map<int, ino_t> kept;
        for (int n : FramesThere())
            kept[n] = Inode(Frame(n));
        const auto r =
            Run(std::string(kRetime) + " --resume" + (*c.frames ? " --frames " : "") + c.frames);
        EXPECT_NE(r.err.find(c.said), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(FramesThere(), c.after) << c.name;
        // The frames that were there are the same files, not rendered again.
        for (const auto& [n, inode] : kept)
            EXPECT_EQ(Inode(Frame(n)), inode) << c.name << ", frame " << n;
        // Byte for byte the files of the uninterrupted run.
        for (int n : c.after)
            EXPECT_EQ(Bytes(Frame(n)), Bytes(Whole(n))) << c.name << ", frame " << n;
        for (int n = 0; n < 8; ++n)
            fs::remove(Frame(n));
    }
}

TEST_F(ResumeTest, AFailedRunKeepsItsFinishedFramesForTheNext) {
    // A folder where frame 5 is first written makes that frame, and the run, fail.
    const std::string blocker = PartPath(Frame(5));
    fs::create_directory(blocker);
    const auto failed = test::RunQuelmor(Args(std::string(kRetime) + " --resume --threads 1"));
    EXPECT_EQ(failed.status, 1) << failed.err;
    EXPECT_NE(failed.err.find("cannot write " + Frame(5)), std::string::npos) << failed.err;
    EXPECT_EQ(FramesThere(), (std::set<int>{0, 1, 2, 3, 4}));
    fs::remove(blocker);
    const auto r = Run(std::string(kRetime) + " --resume");
    EXPECT_NE(r.err.find("5 of the 8 output frames 0-7 are there, 3 to render"), std::string::npos)
        << r.err;
    test::ExpectSameFrames(In("whole.%04d.png"), In("r.%04d.png"), "resumed after a failure");
}

TEST_F(ResumeTest, PrintFramesTellsTheRangeAndWritesNothing) {
    const auto before = test::FolderState(dir_);
    EXPECT_EQ(Run(std::string(kRetime) + " --print-frames").out, "0-7\n");
    EXPECT_EQ(Run(std::string(kRetime) + " --print-frames --frames 2-5").out, "2-5\n");
    EXPECT_EQ(test::FolderState(dir_), before);
}

} // namespace
} // namespace quelmor::cli
