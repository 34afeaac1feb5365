// Continuing an image sequence: --resume renders only the frames missing from the output (within
// --frames when given), keeps the ones there untouched, and a resumed run that fails keeps the
// frames it finished, so that the next one has less to do. --print-frames tells a farm script the
// range to split. Every result is compared bit for bit with one uninterrupted run.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>

#include "CliTestSupport.h"
#include "cli/SequencePattern.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;

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

TEST_F(ResumeTest, ContradictionsAreRefused) {
    const auto before = test::FolderState(dir_);
    struct Case {
        const char* line;
        const char* message;
    } cases[] = {
        {"retime @c.%04d.png @r.%04d.png --speed 0.5 --resume --overwrite",
         "give only one of --resume"},
        {"retime @c.%04d.png @r.mov --speed 0.5 --resume", "--resume needs an image sequence"},
    };
    for (const Case& c : cases) {
        const auto r = test::RunQuelmor(Args(c.line));
        EXPECT_EQ(r.status, 2) << c.line;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.line << ": " << r.err;
    }
    EXPECT_EQ(test::FolderState(dir_), before);
}

} // namespace
} // namespace quelmor::cli
