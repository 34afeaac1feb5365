// Where a render's time goes: the stage totals, the engine's net time, the share outside the
// engine, and the stages that writing on a second thread reports.
#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "cli/StageClock.h"
#include "cli/WriteBehind.h"

namespace quelmor::cli {
namespace {

struct Times {
    double decode, convertIn, engine, convertOut, wait;
};

void Fill(StageClock& clock, const Times& t) {
    clock.Add(Stage::Decode, t.decode);
    clock.Add(Stage::ConvertIn, t.convertIn);
    clock.Add(Stage::Engine, t.engine);
    clock.Add(Stage::ConvertOut, t.convertOut);
    clock.Add(Stage::WaitOutput, t.wait);
}

TEST(StageClockTest, EngineTimeIsNetOfTheFramesItFetched) {
    struct Case {
        const char* name;
        Times times;
        double total;
        double engineNet;
        double outsideShare;
    };
    const Case cases[] = {
        {"engine only", {0, 0, 8, 0, 0}, 10, 8, 0.2},
        {"fetching inside the engine", {1, 0.5, 8, 0, 0}, 10, 6.5, 0.35},
        {"all stages", {1, 1, 6, 0.5, 1.5}, 10, 4, 0.6},
        {"fetch longer than the engine's gross time", {3, 1, 2, 0, 0}, 10, 0, 1.0},
        {"no time at all", {0, 0, 0, 0, 0}, 0, 0, 0.0},
        {"engine beyond the measured total", {0, 0, 12, 0, 0}, 10, 12, 0.0},
    };
    for (const Case& c : cases) {
        StageClock clock;
        Fill(clock, c.times);
        EXPECT_NEAR(clock.EngineNetSeconds(), c.engineNet, 1e-6) << c.name;
        EXPECT_NEAR(clock.OutsideShare(c.total), c.outsideShare, 1e-6) << c.name;
    }
}

// The seconds column of the report row whose name starts with `name`.
double ReportRow(const std::string& report, const std::string& name) {
    std::istringstream lines(report);
    for (std::string line; std::getline(lines, line);) {
        const auto at = line.find(name);
        if (at == std::string::npos || line.find_first_not_of(' ') != at) continue;
        return std::stod(line.substr(2 + 34)); // after the name column
    }
    ADD_FAILURE() << "no row " << name << " in\n" << report;
    return -1;
}

TEST(StageClockTest, ReportRowsAddUpToTheWallTime) {
    StageClock clock;
    Fill(clock, {1.25, 0.5, 6.0, 0.25, 1.0});
    clock.Add(Stage::Start, 0.5);
    clock.Add(Stage::Encode, 7.5);
    const std::string report = clock.Report(20, 10.0, "engine");
    const double rows[] = {
        ReportRow(report, "start"),
        ReportRow(report, "decode source frames"),
        ReportRow(report, "convert source frames"),
        ReportRow(report, "engine"),
        ReportRow(report, "convert results"),
        ReportRow(report, "wait for the writer"),
        ReportRow(report, "other"),
    };
    double sum = 0;
    for (double seconds : rows)
        sum += seconds;
    EXPECT_NEAR(sum, 10.0, 1e-3) << report;
    EXPECT_NEAR(ReportRow(report, "engine"), 4.25, 1e-3) << "net of decoding and converting";
    EXPECT_NEAR(ReportRow(report, "other"), 2.25, 1e-3);
    EXPECT_NEAR(ReportRow(report, "outside the engine"), 5.75, 1e-3);
    EXPECT_NEAR(ReportRow(report, "encode and write"), 7.5, 1e-3) << "beside, not in the sum";
    EXPECT_NE(report.find("20 frames"), std::string::npos) << report;
    EXPECT_NE(report.find("212.5 ms/frame"), std::string::npos) << "wait: 1 s + ... per frame";

    const std::string summary = clock.Summary("retime", 20, 8.0, "the engine");
    EXPECT_EQ(summary, "retime: 20 frames, 2.50 frames per second, 47% of the time outside the "
                       "engine (reading, converting, writing)\n");
}

TEST(StageClockTest, ScopesTimeTheirStageFromAnyThread) {
    StageClock clock;
    {
        const auto timed = TimeStage(&clock, Stage::Decode);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_GE(clock.Seconds(Stage::Decode), 0.005);
    EXPECT_EQ(clock.Seconds(Stage::Engine), 0.0);
    {
        const auto untimed = TimeStage(nullptr, Stage::Engine); // no clock: nothing to record
    }
    // Additions from several threads at once all count.
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i)
                clock.Add(Stage::Encode, 0.001);
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_NEAR(clock.Seconds(Stage::Encode), 4.0, 1e-6);
}

// Takes its time over every frame, as an encoder does.
class SlowWriter final : public MediaWriter {
public:
    const MediaFormat& Format() const override { return format_; }
    void Write(int, const MediaFrame&) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(4));
    }
    void Finish() override { std::this_thread::sleep_for(std::chrono::milliseconds(4)); }

private:
    MediaFormat format_{1, 1, 1, SampleType::U8};
};

TEST(StageClockTest, WritingBehindCountsEncodingAndWaiting) {
    SlowWriter writer;
    StageClock clock;
    WriteBehind out(writer, &clock);
    MediaFrame frame;
    frame.Allocate({1, 1, 1, SampleType::U8});
    for (int i = 0; i < 3; ++i)
        out.Write(i, MediaFrame(frame));
    out.Finish();
    // Three writes and the finish on the writer's side; the caller, which does nothing in
    // between, waits for at least the first two writes and the last.
    EXPECT_GE(clock.Seconds(Stage::Encode), 0.016);
    EXPECT_GE(clock.Seconds(Stage::WaitOutput), 0.008);
    EXPECT_EQ(clock.Seconds(Stage::Engine), 0.0);
}

} // namespace
} // namespace quelmor::cli
