#include "cli/Threads.h"

#include <sched.h>

#include <algorithm>
#include <cctype>
#include <thread>

namespace quelmor::cli {

int AvailableCores() {
    int cores = 0;
    cpu_set_t mask;
    CPU_ZERO(&mask);
    if (sched_getaffinity(0, sizeof mask, &mask) == 0) cores = CPU_COUNT(&mask);
    if (cores <= 0) cores = int(std::thread::hardware_concurrency());
    return std::clamp(cores, 1, kMostThreads);
}

int ParseThreads(const std::string& text) {
    const std::string range = "--threads must be a whole number from 1 to " +
                              std::to_string(kMostThreads) + ", got \"" + text + "\"";
    // Digits only (a sign is refused with them): no overflow can pass as a small count.
    if (text.empty() || !std::all_of(text.begin(), text.end(),
                                     [](unsigned char c) { return std::isdigit(c) != 0; }))
        throw UsageError(range);
    const std::size_t firstDigit = std::min(text.find_first_not_of('0'), text.size());
    if (text.size() - firstDigit > 3) throw UsageError(range);
    const int threads = firstDigit == text.size() ? 0 : std::stoi(text.substr(firstDigit));
    if (threads < 1 || threads > kMostThreads) throw UsageError(range);
    return threads;
}

int ThreadsOption(const CommandLine& line) {
    if (auto v = line.Value("threads")) return ParseThreads(*v);
    return AvailableCores();
}

} // namespace quelmor::cli
