// Where the time of a render goes: reading and decoding source frames, converting them for the
// engine, the engine itself, converting and encoding the output, and the waits between threads.
// Each stage gets wall time and the processor time of the thread that ran it. The engine's figure
// is net of the source frames it fetched while it ran, so the stages of the command's own thread
// add up to its wall time; reading ahead and encoding run on threads of their own beside them and
// are reported on their own.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <ctime>
#include <string>

namespace quelmor::cli {

enum class Stage {
    // On the command's thread.
    Start,      // options, opening the input, loading the plug-in, checking the output
    Decode,     // reading and decoding source frames
    ConvertIn,  // source frames to the engine's or the host's format
    WaitInput,  // waiting for the frame being read ahead
    Engine,     // the engine, or the plug-in around it (gross: includes what it fetched)
    ConvertOut, // results to the writer's frames
    WaitOutput, // waiting for a writer to take the next frame
    // Beside it, on threads of their own.
    ReadAhead, // decoding and converting the next source frame
    Encode,    // converting, encoding and writing output frames
};
inline constexpr int kStageCount = 9;

// Processor time of the calling thread, and of the whole process, in seconds.
double ThreadCpuSeconds();
double ProcessCpuSeconds();

class StageClock {
public:
    using Clock = std::chrono::steady_clock;

    // Adds to a stage; safe from any thread.
    void Add(Stage stage, double seconds, double cpuSeconds = 0.0);
    double Seconds(Stage stage) const;
    double CpuSeconds(Stage stage) const;
    // The engine's own time: its gross time less the fetching and waiting it asked for.
    double EngineNetSeconds() const;
    // Share of `totalSeconds` that the command's thread spent anywhere but in the engine, 0 to 1.
    double OutsideShare(double totalSeconds) const;
    // Share of the process's processor time spent reading, converting and writing, 0 to 1.
    double CpuOutsideShare(double processCpuSeconds) const;

    // Times one stage for as long as it lives.
    class Scope {
    public:
        Scope(StageClock* clock, Stage stage)
            : clock_(clock), stage_(stage), start_(Clock::now()),
              cpuStart_(clock ? ThreadCpuSeconds() : 0.0) {}
        ~Scope() {
            if (clock_)
                clock_->Add(stage_, std::chrono::duration<double>(Clock::now() - start_).count(),
                            ThreadCpuSeconds() - cpuStart_);
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        StageClock* clock_;
        Stage stage_;
        Clock::time_point start_;
        double cpuStart_;
    };

    // What a finished run took: wall time and the process's processor time.
    struct Totals {
        int frames = 0;
        double seconds = 0.0;
        double cpuSeconds = 0.0;
    };
    // One line for the end of a run: frames, frames per second, shares outside the engine.
    std::string Summary(const char* what, const Totals& totals, const char* engineName) const;
    // The table of every stage with seconds, share of the total, milliseconds per frame and
    // processor time.
    std::string Report(const Totals& totals, const char* engineName) const;

private:
    // Microseconds per stage, so that every thread can add without a lock.
    std::array<std::atomic<long long>, kStageCount> micros_{};
    std::array<std::atomic<long long>, kStageCount> cpuMicros_{};
};

// A null clock times nothing, so the stages can be marked in code that runs without one.
inline StageClock::Scope TimeStage(StageClock* clock, Stage stage) {
    return StageClock::Scope(clock, stage);
}

} // namespace quelmor::cli
