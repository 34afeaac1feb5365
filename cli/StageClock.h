// Where the wall time of a render goes: reading and decoding source frames, converting them
// for the engine, the engine itself, converting and encoding the output, waiting for the
// writer. The engine's figure is net of the source frames it fetched while it ran, so the
// stages of the command's own thread add up to its wall time; encoding runs on the writer's
// thread beside them and is reported on its own.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>

namespace quelmor::cli {

enum class Stage {
    Start,      // options, opening the input, loading the plug-in, checking the output
    Decode,     // reading and decoding source frames
    ConvertIn,  // source frames to the engine's or the host's format
    Engine,     // the engine, or the plug-in around it (gross: includes what it fetched)
    ConvertOut, // results to the writer's frames
    WaitOutput, // the command's thread waiting for the writer to take the next frame
    Encode,     // converting, encoding and writing output frames, on the writer's thread
};
inline constexpr int kStageCount = 7;

class StageClock {
public:
    using Clock = std::chrono::steady_clock;

    // Adds to a stage; safe from any thread.
    void Add(Stage stage, double seconds);
    double Seconds(Stage stage) const;
    // The engine's own time: its gross time less the decoding and converting it asked for.
    double EngineNetSeconds() const;
    // Share of `total` spent anywhere but in the engine's own work, 0 to 1.
    double OutsideShare(double totalSeconds) const;

    // Times one stage for as long as it lives.
    class Scope {
    public:
        Scope(StageClock* clock, Stage stage)
            : clock_(clock), stage_(stage), start_(Clock::now()) {}
        ~Scope() {
            if (clock_)
                clock_->Add(stage_, std::chrono::duration<double>(Clock::now() - start_).count());
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        StageClock* clock_;
        Stage stage_;
        Clock::time_point start_;
    };

    // One line for the end of a run: frames, frames per second, share outside the engine.
    std::string Summary(const char* what, int frames, double totalSeconds,
                        const char* engineName) const;
    // The table of every stage with seconds, share of the total and milliseconds per frame.
    std::string Report(int frames, double totalSeconds, const char* engineName) const;

private:
    // Microseconds per stage, so that the writer's thread can add without a lock.
    std::array<std::atomic<long long>, kStageCount> micros_{};
};

// A null clock times nothing, so the stages can be marked in code that runs without one.
inline StageClock::Scope TimeStage(StageClock* clock, Stage stage) {
    return StageClock::Scope(clock, stage);
}

} // namespace quelmor::cli
