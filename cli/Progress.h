// Progress of a render on the terminal: a bar with frame count, speed and time
// left when the stream is a terminal, plain lines when it is a file or pipe.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace quelmor::cli {

class Progress {
public:
    enum class Style { Quiet, Lines, Bar };

    // Bar on a terminal, lines otherwise, nothing when quiet.
    static Style StyleFor(std::FILE* stream, bool quiet);

    Progress(std::string what, int total, Style style, std::FILE* stream = stderr);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void FrameDone();
    void Finish();

    // One report: "12/48 frames  3.4 fps  0:10 left", with a bar of `barWidth` cells in front when
    // above 0.
    static std::string Format(int done, int total, double seconds, int barWidth);

private:
    void Show(bool force);

    std::string what_;
    int total_;
    int done_ = 0;
    Style style_;
    std::FILE* stream_;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point lastShown_;
    bool finished_ = false;
};

} // namespace quelmor::cli
