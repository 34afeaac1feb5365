// Helpers of the end-to-end suites: running the quelmor executable and collecting what it
// printed, writing small synthetic clips, comparing clips frame by frame.
#pragma once

#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "cli/Media.h"
#include "cli/RetimeSettings.h"
#include "cli/Score.h"
#include "cli/Synth.h"

namespace quelmor::cli::test {

struct RunResult {
    int status = -1; // exit status, or 128 + signal
    std::string out, err;
};

struct RunLimits {
    long maxFileBytes = -1;         // files larger than this cannot be written, as on a full disk
    bool asUnprivileged = false;    // run as "nobody", for whom root's folders are not writable
    bool killedAtFileLimit = false; // a write past maxFileBytes kills the process (SIGXFSZ)
};

// The words of a line split at spaces.
inline std::vector<std::string> Words(const std::string& line) {
    std::vector<std::string> words;
    std::istringstream in(line);
    for (std::string word; in >> word;)
        words.push_back(word);
    return words;
}

// The retime options of a command line given as words split at spaces.
inline RetimeSettings Retime(const std::string& line) {
    return ParseRetimeSettings(Words(line));
}

inline std::string Slurp(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    std::filesystem::remove(path);
    return text.str();
}

// Starts the executable with `args`, its output and errors going to the files named, without
// waiting for it.
inline pid_t StartQuelmor(const std::vector<std::string>& args, const std::string& outPath,
                          const std::string& errPath, const RunLimits& limits = {}) {
    std::vector<std::string> argv = {QUELMOR_BINARY};
    argv.insert(argv.end(), args.begin(), args.end());
    const pid_t pid = fork();
    if (pid == 0) {
        dup2(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 1);
        dup2(open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666), 2);
        if (limits.maxFileBytes >= 0) {
            // Writes beyond the limit fail with an error, or kill the process mid-write.
            signal(SIGXFSZ, limits.killedAtFileLimit ? SIG_DFL : SIG_IGN);
            rlimit r{rlim_t(limits.maxFileBytes), rlim_t(limits.maxFileBytes)};
            setrlimit(RLIMIT_FSIZE, &r);
        }
        if (limits.asUnprivileged && geteuid() == 0)
            if (const passwd* nobody = getpwnam("nobody"))
                if (setgid(nobody->pw_gid) != 0 || setuid(nobody->pw_uid) != 0) _exit(125);
        std::vector<char*> raw;
        for (auto& a : argv)
            raw.push_back(a.data());
        raw.push_back(nullptr);
        execv(raw[0], raw.data());
        _exit(127);
    }
    return pid;
}

// Waits for a started process: its exit status, or 128 + the signal that ended it.
inline int WaitQuelmor(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Runs the executable with `args`, collecting what it prints.
inline RunResult RunQuelmor(const std::vector<std::string>& args, const RunLimits& limits = {}) {
    const std::string stem =
        std::filesystem::temp_directory_path() / ("quelmor_run_" + std::to_string(getpid()));
    const std::string outPath = stem + ".out", errPath = stem + ".err";
    RunResult r;
    r.status = WaitQuelmor(StartQuelmor(args, outPath, errPath, limits));
    r.out = Slurp(outPath);
    r.err = Slurp(errPath);
    return r;
}

// Names, sizes and a hash of the bytes of everything under a folder, to show that a refused run
// changed nothing.
inline std::vector<std::string> FolderState(const std::filesystem::path& dir) {
    std::vector<std::string> state;
    for (const auto& e : std::filesystem::recursive_directory_iterator(dir)) {
        std::string entry = e.path().lexically_relative(dir).string() + ":";
        if (e.is_regular_file()) {
            std::ostringstream bytes;
            bytes << std::ifstream(e.path(), std::ios::binary).rdbuf();
            entry += std::to_string(bytes.str().size()) + " bytes, hash " +
                     std::to_string(std::hash<std::string>{}(bytes.str()));
        } else {
            entry += "dir";
        }
        state.push_back(entry);
    }
    std::sort(state.begin(), state.end());
    return state;
}

// A command line that must be refused: the exit status and a part of the message it must give.
struct Refusal {
    std::string name;
    int status;
    std::string message;
    std::string line; // as to FolderTest::Args
    RunLimits limits = {};
};

// Fixture with a fresh folder per test, readable by every user, removed afterwards.
class FolderTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = std::filesystem::temp_directory_path() /
               ("quelmor_" + std::string(info->test_suite_name()) + "_" + info->name() + "_" +
                std::to_string(getpid()));
        std::filesystem::remove_all(dir_);
        std::filesystem::create_directories(dir_);
        std::filesystem::permissions(dir_, std::filesystem::perms(0755));
    }
    void TearDown() override { std::filesystem::remove_all(dir_); }
    std::string In(const std::string& name) const { return (dir_ / name).string(); }
    // A command line from words split at spaces; a word starting with @ names a file in the
    // test's folder.
    std::vector<std::string> Args(const std::string& line) const {
        std::vector<std::string> args = Words(line);
        for (std::string& word : args)
            if (word[0] == '@') word = In(word.substr(1));
        return args;
    }
    // Runs a command line given as to Args and expects it to succeed.
    RunResult Run(const std::string& line) {
        auto r = RunQuelmor(Args(line));
        EXPECT_EQ(r.status, 0) << line << ": " << r.err;
        return r;
    }

    // Runs a command line given as to Args, with --quiet, that must fail with its status and
    // message and leave the test's folder as it was.
    void ExpectRefused(const Refusal& c) {
        const auto before = FolderState(dir_);
        const auto r = RunQuelmor(Args(c.line + " --quiet"), c.limits);
        EXPECT_EQ(r.status, c.status) << c.name << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(FolderState(dir_), before) << c.name;
    }

    std::filesystem::path dir_;
};

// A reader over frames held in memory.
class FramesReader final : public MediaReader {
public:
    explicit FramesReader(std::vector<MediaFrame> frames) : frames_(std::move(frames)) {}
    const MediaFormat& Format() const override { return frames_[0].format; }
    int FrameCount() const override { return int(frames_.size()); }
    int FirstNumber() const override { return 0; }
    double FrameRate() const override { return 0; }
    void Read(int index, MediaFrame& frame) override { frame = frames_.at(size_t(index)); }

private:
    std::vector<MediaFrame> frames_;
};

// A 2x2 frame of one colour, given in the 0 to 1 scale.
inline MediaFrame Solid(SampleType sample, int channels, std::vector<float> values) {
    MediaFrame linear, out;
    linear.Allocate({2, 2, channels, SampleType::Float});
    for (int i = 0; i < 4 * channels; ++i)
        linear.Row<float>(0)[i] = values[size_t(i % channels)];
    ConvertFrame(linear, {2, 2, channels, sample}, out);
    return out;
}

// Writes `frames` synthetic frames numbered from `first` to `pattern`.
inline void WriteSynthClip(const std::string& pattern, int frames, SampleType sample,
                           int width = 48, int height = 32, int first = 0) {
    SynthSettings s;
    s.width = width;
    s.height = height;
    s.sample = sample;
    auto writer = CreateMedia(pattern, {s.width, s.height, 3, sample}, {});
    MediaFrame frame;
    for (int i = first; i < first + frames; ++i) {
        RenderSynthFrame(s, i, frame);
        writer->Write(i, frame);
    }
    writer->Finish();
}

// PSNR of frame `i` of clip `a` against frame `j` of clip `b`.
inline double FramePsnr(const std::string& a, int i, const std::string& b, int j) {
    MediaFrame fa, fb;
    OpenMedia(a)->Read(i, fa);
    OpenMedia(b)->Read(j, fb);
    return Psnr(fa, fb);
}

// Expects two clips to hold the same number of frames with the same samples.
inline void ExpectSameFrames(const std::string& a, const std::string& b, const std::string& what) {
    auto ra = OpenMedia(a);
    auto rb = OpenMedia(b);
    ASSERT_EQ(ra->FrameCount(), rb->FrameCount()) << what;
    MediaFrame fa, fb;
    for (int i = 0; i < ra->FrameCount(); ++i) {
        ra->Read(i, fa);
        rb->Read(i, fb);
        EXPECT_EQ(fa.pixels, fb.pixels) << what << ", frame " << i;
    }
}

} // namespace quelmor::cli::test
