#include "Progress.h"

#include <unistd.h>

#include <cmath>

namespace quelmor::cli {

Progress::Style Progress::StyleFor(std::FILE* stream, bool quiet) {
    if (quiet) return Style::Quiet;
    return isatty(fileno(stream)) ? Style::Bar : Style::Lines;
}

Progress::Progress(std::string what, int total, Style style, std::FILE* stream)
    : what_(std::move(what)), total_(total), style_(style), stream_(stream),
      start_(std::chrono::steady_clock::now()) {
    lastShown_ = start_;
}

Progress::~Progress() {
    // A render that stops early leaves the cursor on a fresh line for its message.
    if (!finished_ && style_ == Style::Bar && done_ > 0) std::fputc('\n', stream_);
}

void Progress::FrameDone() {
    ++done_;
    Show(done_ == total_);
}

void Progress::Finish() {
    if (finished_) return;
    finished_ = true;
    if (style_ == Style::Quiet) return;
    if (style_ == Style::Bar) std::fputc('\n', stream_);
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    std::fprintf(stream_, "%s: %d frames in %.1f s\n", what_.c_str(), done_, seconds);
    std::fflush(stream_);
}

std::string Progress::Format(int done, int total, double seconds, int barWidth) {
    std::string text;
    if (barWidth > 0) {
        const int full = total > 0 ? int(std::lround(double(barWidth) * done / total)) : 0;
        text.assign(1, '[');
        text.append(std::size_t(full), '#').append(std::size_t(barWidth - full), '.');
        text += "] ";
    }
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, "%d/%d frames", done, total);
    text += buffer;
    if (done > 0 && seconds > 0) {
        const double fps = done / seconds;
        const long left = std::lround((total - done) / fps);
        std::snprintf(buffer, sizeof buffer, "  %.1f fps  %ld:%02ld left", fps, left / 60,
                      left % 60);
        text += buffer;
    }
    return text;
}

void Progress::Show(bool force) {
    if (style_ == Style::Quiet) return;
    const auto now = std::chrono::steady_clock::now();
    const double sinceShown = std::chrono::duration<double>(now - lastShown_).count();
    // A terminal is redrawn ten times a second at most, a log gets a line a second.
    if (!force && sinceShown < (style_ == Style::Bar ? 0.1 : 1.0)) return;
    lastShown_ = now;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    if (style_ == Style::Bar)
        std::fprintf(stream_, "\r%s %s\x1b[K", what_.c_str(),
                     Format(done_, total_, seconds, 30).c_str());
    else
        std::fprintf(stream_, "%s %s\n", what_.c_str(), Format(done_, total_, seconds, 0).c_str());
    std::fflush(stream_);
}

} // namespace quelmor::cli
