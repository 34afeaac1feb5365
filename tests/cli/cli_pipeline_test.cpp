// The threads around the engine: writers that take frames in any order from a bounded queue,
// source frames read one ahead, and the clock that splits a render's time into stages.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <set>
#include <sstream>
#include <thread>

#include "cli/ReadAhead.h"
#include "cli/StageClock.h"
#include "cli/WriteBehind.h"

namespace quelmor::cli {
namespace {

MediaFrame Frame(int value) {
    MediaFrame f;
    f.Allocate({1, 1, 1, SampleType::U8});
    f.pixels[0] = uint8_t(value);
    return f;
}

// Records what reaches it, slowly, so that writes overlap; fails the frames it is told to.
class RecordingWriter final : public MediaWriter {
public:
    RecordingWriter(int concurrent, std::set<int> failing)
        : concurrent_(concurrent), failing_(std::move(failing)) {}
    const MediaFormat& Format() const override { return format_; }
    int ConcurrentWrites() const override { return concurrent_; }
    void Write(int number, const MediaFrame& frame) override {
        {
            std::lock_guard lock(mutex_);
            mostInFlight = std::max(mostInFlight, ++inFlight);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(3));
        std::lock_guard lock(mutex_);
        --inFlight;
        if (failing_.count(number)) throw MediaError("disk full at " + std::to_string(number));
        written.emplace_back(number, frame.pixels.at(0));
        ++done;
    }
    void Finish() override { finished = true; }

    std::vector<std::pair<int, int>> written; // number, first byte
    int inFlight = 0, mostInFlight = 0;
    std::atomic<int> done = 0;
    bool finished = false;

private:
    MediaFormat format_{1, 1, 1, SampleType::U8};
    int concurrent_;
    std::set<int> failing_;
    std::mutex mutex_;
};

TEST(WriteBehindTest, WritesEveryFrameOnceWithinItsBound) {
    struct Case {
        const char* name;
        int concurrent, threads;
    } cases[] = {{"one at a time", 1, 0}, {"capped by the writer", 2, 6}};
    for (const Case& c : cases) {
        RecordingWriter writer(c.concurrent, {});
        StageClock clock;
        const int threads = std::min(c.threads ? c.threads : 1, c.concurrent);
        {
            WriteBehind out(writer, &clock, c.threads ? c.threads : 1);
            for (int i = 0; i < 12; ++i) {
                out.Write(10 + i, Frame(3 * i));
                // Queued and in flight: one waiting frame per thread at most, beside the writes.
                EXPECT_LE(i + 1 - writer.done, 2 * threads) << c.name << " after frame " << i;
            }
            EXPECT_FALSE(writer.finished) << c.name;
            out.Finish();
        }
        EXPECT_TRUE(writer.finished) << c.name;
        std::vector<std::pair<int, int>> expected;
        for (int i = 0; i < 12; ++i)
            expected.emplace_back(10 + i, 3 * i);
        if (threads > 1) std::sort(writer.written.begin(), writer.written.end());
        EXPECT_EQ(writer.written, expected) << c.name << (threads == 1 ? ", in order" : "");
        EXPECT_LE(writer.mostInFlight, threads) << c.name;
        if (threads > 1) {
            EXPECT_GT(writer.mostInFlight, 1) << c.name << ": writes must overlap";
        }
        // The writes count as encoding; the caller, doing nothing else, waits for them.
        EXPECT_GE(clock.Seconds(Stage::Encode), 0.036) << c.name;
        EXPECT_GT(clock.Seconds(Stage::WaitOutput), 0.0) << c.name;
    }
}

TEST(WriteBehindTest, ReportsTheLowestFailedFrameAndStops) {
    struct Case {
        const char* name;
        int threads;
        std::set<int> failing;
        int reported;
    } cases[] = {
        {"one thread, failure reported by a later call", 1, {2}, 2},
        {"the last frame, reported by Finish", 1, {7}, 7},
        {"several threads, two failures", 3, {3, 4}, 3},
    };
    for (const Case& c : cases) {
        RecordingWriter writer(8, c.failing);
        std::string message;
        {
            WriteBehind out(writer, nullptr, c.threads);
            try {
                for (int i = 0; i < 8; ++i)
                    out.Write(i, Frame(i));
                out.Finish();
            } catch (const MediaError& e) {
                message = e.what();
            }
        }
        EXPECT_EQ(message, "disk full at " + std::to_string(c.reported)) << c.name;
        EXPECT_FALSE(writer.finished) << c.name;
        for (const auto& [number, value] : writer.written)
            EXPECT_EQ(c.failing.count(number), 0u) << c.name;
        if (c.reported < 7) {
            EXPECT_LT(writer.written.size(), 7u) << c.name << ": must stop";
        }
    }
}

// Frames whose first byte is their index; counts reads and notes the threads that read.
class CountingReader final : public MediaReader {
public:
    CountingReader(int count, int failAt) : count_(count), failAt_(failAt) {}
    const MediaFormat& Format() const override { return format_; }
    int FrameCount() const override { return count_; }
    int FirstNumber() const override { return 0; }
    double FrameRate() const override { return 0; }
    void Read(int index, MediaFrame& frame) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        std::lock_guard lock(mutex_);
        reads.push_back(index);
        if (std::this_thread::get_id() != caller_) readAhead.insert(index);
        if (index == failAt_ || index >= count_)
            throw MediaError("cannot read frame " + std::to_string(index));
        frame = Frame(index);
    }

    std::vector<int> reads;
    std::set<int> readAhead;

private:
    MediaFormat format_{1, 1, 1, SampleType::U8};
    int count_, failAt_;
    std::thread::id caller_ = std::this_thread::get_id();
    std::mutex mutex_;
};

TEST(ReadAheadTest, PreparesTheNextFrameOnAThreadOfItsOwn) {
    CountingReader reader(8, -1);
    StageClock clock;
    ReadAhead frames(
        reader,
        [](MediaFrame&& decoded, MediaFrame& prepared) {
            prepared = Frame(decoded.pixels[0] + 100);
        },
        &clock);
    MediaFrame out;
    for (int index : {0, 1, 2, 3, 1, 2, 6, 7}) {
        frames.Get(index, out);
        EXPECT_EQ(out.pixels[0], 100 + index) << "frame " << index;
    }
    // In order, each frame was read ahead; out of order, on the caller's thread.
    EXPECT_EQ(reader.readAhead, (std::set<int>{1, 2, 3, 4, 7}));
    EXPECT_LE(*std::max_element(reader.reads.begin(), reader.reads.end()), 7) << "past the end";
    // Scopes on both threads time their stage, in wall and processor time.
    EXPECT_GT(clock.Seconds(Stage::ReadAhead), 0.008);
    EXPECT_GT(clock.CpuSeconds(Stage::ReadAhead), 0.0);
    EXPECT_GT(clock.Seconds(Stage::Decode), 0.004);
}

TEST(ReadAheadTest, ReportsAFailureForTheFrameThatFailed) {
    struct Case {
        const char* name;
        std::vector<int> gets;
        int failAt;
        int thrownAt; // index of the Get that throws, -1: none
    } cases[] = {
        {"read ahead, then asked for", {0, 1, 2}, 2, 2},
        {"read on the caller's thread", {5, 0}, 5, 0},
        {"read ahead and never asked for", {0, 1, 0}, 2, -1},
    };
    for (const Case& c : cases) {
        CountingReader reader(8, c.failAt);
        ReadAhead frames(reader, [](MediaFrame&& d, MediaFrame& p) { std::swap(d, p); });
        MediaFrame out;
        for (int i = 0; i < int(c.gets.size()); ++i) {
            if (i == c.thrownAt) {
                EXPECT_THROW(frames.Get(c.gets[i], out), MediaError) << c.name;
                continue;
            }
            EXPECT_NO_THROW(frames.Get(c.gets[i], out)) << c.name << ", get " << i;
            EXPECT_EQ(out.pixels.at(0), c.gets[i]) << c.name << ", get " << i;
        }
    }
}

struct Times {
    double decode, convertIn, waitInput, engine, convertOut, wait;
};

void Fill(StageClock& clock, const Times& t) {
    clock.Add(Stage::Decode, t.decode, t.decode);
    clock.Add(Stage::ConvertIn, t.convertIn, t.convertIn);
    clock.Add(Stage::WaitInput, t.waitInput);
    clock.Add(Stage::Engine, t.engine, t.engine);
    clock.Add(Stage::ConvertOut, t.convertOut, t.convertOut);
    clock.Add(Stage::WaitOutput, t.wait);
}

TEST(StageClockTest, EngineTimeIsNetOfTheFramesItFetched) {
    struct Case {
        const char* name;
        Times times;
        double total, engineNet, outsideShare;
    } cases[] = {
        {"fetching inside the engine", {1, 0.5, 0, 8, 0, 0}, 10, 6.5, 0.35},
        {"all stages", {1, 0.5, 0.5, 6, 0.5, 1.5}, 10, 4, 0.6},
        {"fetch longer than the engine's gross time", {3, 1, 0, 2, 0, 0}, 10, 0, 1.0},
        {"no time at all", {0, 0, 0, 0, 0, 0}, 0, 0, 0.0},
        {"engine beyond the measured total", {0, 0, 0, 12, 0, 0}, 10, 12, 0.0},
    };
    for (const Case& c : cases) {
        StageClock clock;
        Fill(clock, c.times);
        EXPECT_NEAR(clock.EngineNetSeconds(), c.engineNet, 1e-6) << c.name;
        EXPECT_NEAR(clock.OutsideShare(c.total), c.outsideShare, 1e-6) << c.name;
    }
}

// The seconds and processor seconds of the report row whose name starts with `name`.
std::pair<double, double> ReportRow(const std::string& report, const std::string& name) {
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        if (line.find(name) != 2) continue;
        const std::size_t ms = line.find("ms/frame");
        return {std::stod(line.substr(2 + 34)), std::stod(line.substr(ms + 8))};
    }
    ADD_FAILURE() << "no row " << name << " in\n" << report;
    return {-1, -1};
}

TEST(StageClockTest, ReportRowsAddUpToTheWallAndProcessorTime) {
    StageClock clock;
    Fill(clock, {1.25, 0.25, 0.25, 6.0, 0.25, 1.0});
    clock.Add(Stage::Start, 0.5, 0.5);
    clock.Add(Stage::ReadAhead, 2.0, 1.5);
    clock.Add(Stage::Encode, 7.5, 7.0);
    const StageClock::Totals totals{20, 10.0, 20.0};
    const std::string report = clock.Report(totals, "engine");
    double wall = 0;
    for (const char* row : {"start", "decode source", "convert source", "wait for the frame",
                            "engine", "convert results", "wait for the writers", "other"})
        wall += ReportRow(report, row).first;
    EXPECT_NEAR(wall, 10.0, 1e-3) << report;
    EXPECT_NEAR(ReportRow(report, "engine").first, 4.25, 1e-3) << "net of fetching";
    // The engine's processor time is what the rest leaves of the process's.
    EXPECT_NEAR(ReportRow(report, "engine").second, 20.0 - 0.5 - 1.25 - 0.25 - 0.25 - 1.5 - 7.0,
                1e-3);
    EXPECT_NEAR(ReportRow(report, "encode and write").first, 7.5, 1e-3) << "beside the sum";
    EXPECT_NE(report.find("57.5% of the wall time, 53.8% of 20.000 s"), std::string::npos)
        << report;
    EXPECT_EQ(clock.Summary("retime", {20, 8.0, 20.0}, "the engine"),
              "retime: 20 frames, 2.50 frames per second, 47% of the time outside the engine "
              "(reading, converting, writing), 54% of the processor time\n");
}

} // namespace
} // namespace quelmor::cli
