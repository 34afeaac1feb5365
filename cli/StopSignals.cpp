#include "cli/StopSignals.h"

#include <atomic>

namespace quelmor::cli {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

std::atomic<int> received{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler may only touch lock-free data");

void NoteSignal(int signal) {
    received.store(signal, std::memory_order_relaxed);
}

} // namespace

StopSignals::StopSignals() {
    struct sigaction action {};
    action.sa_handler = NoteSignal;
    sigemptyset(&action.sa_mask);
    // Interrupted system calls start again: the image libraries do not all retry them.
    action.sa_flags = SA_RESTART;
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &action, &previous_[i]);
}

StopSignals::~StopSignals() {
    for (int i = 0; i < 3; ++i)
        sigaction(kSignals[i], &previous_[i], nullptr);
}

int StopSignals::Received() {
    return received.load(std::memory_order_relaxed);
}

std::string StopSignals::Name(int signal) {
    switch (signal) {
    case SIGINT:
        return "SIGINT";
    case SIGTERM:
        return "SIGTERM";
    case SIGHUP:
        return "SIGHUP";
    }
    return "signal " + std::to_string(signal);
}

} // namespace quelmor::cli
