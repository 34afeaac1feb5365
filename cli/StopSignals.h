// SIGINT, SIGTERM and SIGHUP as a request to stop: while a StopSignals lives, they end the run
// between frames, so that it can put its output in order, instead of killing it in a write.
#pragma once

#include <csignal>
#include <stdexcept>
#include <string>

namespace quelmor::cli {

class StopSignals {
public:
    StopSignals();
    // Puts back the handlers found on construction.
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    // The last signal that asked to stop, 0 while none did.
    static int Received();
    // "SIGINT" for SIGINT.
    static std::string Name(int signal);

private:
    struct sigaction previous_[3];
};

// A run that stopped on a signal; the command exits with 128 + the signal's number.
class Interrupted : public std::runtime_error {
public:
    Interrupted(int signal, const std::string& message)
        : std::runtime_error(message), signal_(signal) {}
    int Signal() const { return signal_; }

private:
    int signal_;
};

} // namespace quelmor::cli
