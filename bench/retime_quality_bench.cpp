// Quality of rebuilt in-between frames, on real pictures.
//
// Middlebury: frames 10 and 11 of each pair are source frames 0 and 1; output time 0.5 is
// rendered through GetFrame at "Best", sensitivity 70, with each interpolation, and scored
// against frame10i11 beside a plain 50/50 blend and (with OpenCV) the DIS reference. Held-out
// clip: every second frame of clip/ is dropped, the kept frames are retimed back to full rate and
// each rebuilt frame is scored against the dropped one.
//
//   retime_quality_bench [--sequences=Name,Name] [--no-middlebury] [--no-clip]
//                        [--clip-frames=N] [--diagnostics]
//
// --diagnostics adds "Blend" with the flow at full size (vector quality 5) and at sensitivity
// 100, and (with OpenCV) a check of the engine's kept flows against the DIS flows on each pair.
//
// Prints a table per sequence, the mean over the sequences, and the clip's mean. Without the data
// folder or without OpenImageIO it says so and exits 0.
#include "DisReference.h"
#include "FlowBenchSupport.h"
#include "FlowCheck.h"
#include "ImageMetrics.h"
#include "RetimeBenchSupport.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <sstream>
#include <string>

namespace {

using namespace quelmor::bench;

const char* const kSequences[] = {"Beanbags", "Dimetrodon", "DogDance",   "Grove2",
                                  "Grove3",   "Hydrangea",  "MiniCooper", "RubberWhale",
                                  "Urban2",   "Urban3",     "Venus",      "Walking"};

struct Options {
    std::vector<std::string> sequences;
    bool middlebury = true;
    bool clip = true;
    int clipFrames = 68;
    bool diagnostics = false;
};

Options ParseOptions(int argc, char** argv) {
    Options o;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg.rfind("--sequences=", 0) == 0) {
            std::stringstream list(arg.substr(12));
            for (std::string name; std::getline(list, name, ',');)
                o.sequences.push_back(name);
        } else if (arg == "--no-middlebury") {
            o.middlebury = false;
        } else if (arg == "--diagnostics") {
            o.diagnostics = true;
        } else if (arg == "--no-clip") {
            o.clip = false;
        } else if (arg.rfind("--clip-frames=", 0) == 0) {
            o.clipFrames = std::stoi(arg.substr(14));
        } else if (arg.rfind("--benchmark", 0) != 0) {
            std::fprintf(stderr, "unknown option %s\n", arg.c_str());
        }
    }
    if (o.sequences.empty()) o.sequences.assign(std::begin(kSequences), std::end(kSequences));
    return o;
}

Owned NewLike(const DQImage& image) {
    return Owned(new DQImage(image.width, image.height, 4, DQ_UCHAR, 0));
}

// One way of making the in-between frame of A and B at weightA = 1 - t: 0 on success, else the
// engine's code.
using InBetween = std::function<int(DQImage* out, DQImage* a, DQImage* b, float t)>;

struct Method {
    std::string name;
    InBetween make;
};

InBetween ThroughEngine(RetimeSettings settings) {
    return [settings](DQImage* out, DQImage* a, DQImage* b, float t) {
        ClipEngine engine({a, b});
        return RenderFrame(engine, out, t, settings);
    };
}

std::vector<Method> Methods(bool diagnostics) {
    RetimeSettings blend;
    blend.vectorQuality = 0;
    blend.interpolation = 1;
    std::vector<Method> methods = {{"plain blend", ThroughEngine(blend)}};
    const char* names[] = {"Nearest", "Blend", "Weighted Energy Blend"};
    for (long interpolation = 0; interpolation < 3; ++interpolation) {
        RetimeSettings best;
        best.interpolation = interpolation;
        methods.push_back({std::string("Best ") + names[interpolation], ThroughEngine(best)});
    }
    if (diagnostics) {
        RetimeSettings full;
        full.vectorQuality = 5;
        methods.push_back({"Blend, full-size flow", ThroughEngine(full)});
        RetimeSettings keen;
        keen.sensitivity = 100.f;
        methods.push_back({"Best Blend, sensitivity 100", ThroughEngine(keen)});
    }
#ifdef QUELMOR_HAVE_OPENCV
    methods.push_back({"DIS medium, remap, mix", [](DQImage* out, DQImage* a, DQImage* b, float t) {
                           DisInBetween(out, *a, *b, ComputeDisFlows(*a, *b), t);
                           return 0;
                       }});
    // The reference's flows through the engine's own warp and mix: tells the flow from the warp.
    methods.push_back({"DIS flow, engine warp", [](DQImage* out, DQImage* a, DQImage* b, float t) {
                           const DisFlows flows = ComputeDisFlows(*a, *b);
                           auto aToB = ToFlowImage(flows.aToB), bToA = ToFlowImage(flows.bToA);
                           Owned fromA = NewLike(*a), fromB = NewLike(*b);
                           DQWarpInverse(fromA.get(), a, bToA.get(), 1, nullptr, 1, t);
                           DQWarpInverse(fromB.get(), b, aToB.get(), 1, nullptr, 1, 1.0f - t);
                           cv::Mat mixed = MatView(*out);
                           cv::addWeighted(MatView(*fromA), 1.0 - t, MatView(*fromB), t, 0.0,
                                           mixed);
                           return 0;
                       }});
#endif
    return methods;
}

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

void PrintHeader(const char* title) {
    std::printf("\n%s\n", title);
    std::printf("  %-26s %8s %8s %10s %10s %9s\n", "method", "PSNR dB", "PSNR Y", "SSIM luma",
                "SSIM RGB", "ms/frame");
}

void PrintRow(const std::string& name, const FrameScore& s, double ms) {
    std::printf("  %-26s %8.2f %8.2f %10.4f %10.4f %9.1f\n", name.c_str(), s.psnr, s.psnrLuma,
                s.ssimLuma, s.ssimChannels, ms);
}

// Means per method over everything scored, and the time spent, for the summary rows.
struct MethodTotals {
    ScoreMean score;
    double seconds = 0.0;
};

#ifdef QUELMOR_HAVE_OPENCV
void PrintFlowCheck(const char* name, const FlowCheck& c) {
    std::printf("  %-26s %9.2f %9.1f%% %12.2f %12.2f\n", name, c.endPointDifference,
                100.0 * c.largeShare, c.enginePullPsnr, c.disPullPsnr);
}

void PrintFlowCheckHeader() {
    std::printf("  %-26s %9s %10s %12s %12s\n", "flow check, Best, sens 70", "EPD px", "EPD > 3px",
                "pull engine", "pull DIS");
}
#endif

void RunMiddlebury(const Options& options, const std::vector<Method>& methods) {
    std::map<std::string, MethodTotals> totals;
#ifdef QUELMOR_HAVE_OPENCV
    FlowCheck checkSum;
    int checks = 0;
#endif
    int sequences = 0;
    for (const std::string& sequence : options.sequences) {
        const auto dir = DataDir() / "middlebury" / sequence;
        Owned a = ReadRGBA(dir / "frame10.png"), b = ReadRGBA(dir / "frame11.png");
        Owned truth = ReadRGBA(dir / "frame10i11.png");
        if (!a || !b || !truth) {
            std::printf("\n%s: frames not found, skipped\n", sequence.c_str());
            continue;
        }
        SetWorkers(a->width, a->height);
        ++sequences;
        const std::string title = sequence + " (" + std::to_string(a->width) + "x" +
                                  std::to_string(a->height) + ", t = 0.5)";
        PrintHeader(title.c_str());
        Owned out = NewLike(*a);
        for (const Method& method : methods) {
            const auto start = std::chrono::steady_clock::now();
            const int code = method.make(out.get(), a.get(), b.get(), 0.5f);
            const double seconds = Seconds(start);
            if (code != 0) {
                std::printf("  %-26s failed with code %d\n", method.name.c_str(), code);
                continue;
            }
            const FrameScore s = Score(*out, *truth);
            PrintRow(method.name, s, 1000.0 * seconds);
            totals[method.name].score.Add(s);
            totals[method.name].seconds += seconds;
        }
#ifdef QUELMOR_HAVE_OPENCV
        FlowCheck check;
        if (options.diagnostics && CheckEngineFlow(a.get(), b.get(), RetimeSettings{}, &check)) {
            PrintFlowCheckHeader();
            PrintFlowCheck("engine against DIS", check);
            checkSum.endPointDifference += check.endPointDifference;
            checkSum.largeShare += check.largeShare;
            checkSum.enginePullPsnr += check.enginePullPsnr;
            checkSum.disPullPsnr += check.disPullPsnr;
            ++checks;
        }
#endif
    }
    if (sequences == 0) return;
    const std::string title = "Mean over " + std::to_string(sequences) + " Middlebury sequences";
    PrintHeader(title.c_str());
    for (const Method& method : methods) {
        const MethodTotals& t = totals[method.name];
        if (t.score.count == 0) continue;
        const std::string name = t.score.count == sequences
                                     ? method.name
                                     : method.name + " (" + std::to_string(t.score.count) + ")";
        PrintRow(name, t.score.Mean(), 1000.0 * t.seconds / t.score.count);
    }
#ifdef QUELMOR_HAVE_OPENCV
    if (checks > 0) {
        PrintFlowCheckHeader();
        const FlowCheck mean{checkSum.endPointDifference / checks, checkSum.largeShare / checks,
                             checkSum.enginePullPsnr / checks, checkSum.disPullPsnr / checks};
        PrintFlowCheck("engine against DIS, mean", mean);
    }
#endif
}

void RunClip(const Options& options, const std::vector<Method>& methods) {
    const auto dir = DataDir() / "clip";
    std::vector<Owned> frames;
    for (int i = 0; i < options.clipFrames; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "%03d.png", i);
        Owned frame = ReadRGBA(dir / name);
        if (!frame) break;
        frames.push_back(std::move(frame));
    }
    if (frames.size() < 3) {
        std::printf("\nclip: fewer than 3 frames found, skipped\n");
        return;
    }
    SetWorkers(frames[0]->width, frames[0]->height);
    // Kept frames 0, 2, 4... are source frames 0, 1, 2...; dropped frame 2k + 1 is source time
    // k + 0.5. Each method rebuilds every dropped frame that has a kept frame on both sides.
    std::vector<DQImage*> kept;
    for (size_t i = 0; i < frames.size(); i += 2)
        kept.push_back(frames[i].get());
    const int rebuilt = int(frames.size() - 1) / 2;
    const std::string title = "Held-out clip: " + std::to_string(rebuilt) +
                              " dropped frames rebuilt from " + std::to_string(kept.size()) +
                              " kept (" + std::to_string(frames[0]->width) + "x" +
                              std::to_string(frames[0]->height) + ")";
    PrintHeader(title.c_str());
    Owned out = NewLike(*frames[0]);
    for (const Method& method : methods) {
        MethodTotals totals;
        int failed = 0;
        for (int k = 0; k < rebuilt; ++k) {
            const auto start = std::chrono::steady_clock::now();
            const int code = method.make(out.get(), kept[k], kept[k + 1], 0.5f);
            totals.seconds += Seconds(start);
            if (code != 0) {
                ++failed;
                continue;
            }
            totals.score.Add(Score(*out, *frames[2 * k + 1]));
        }
        if (failed) {
            std::printf("  %-26s failed on %d frames\n", method.name.c_str(), failed);
            if (totals.score.count == 0) continue;
        }
        PrintRow(method.name, totals.score.Mean(), 1000.0 * totals.seconds / rebuilt);
    }
}

} // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
#ifndef QUELMOR_HAVE_OIIO
    std::printf("retime_quality_bench: built without OpenImageIO, nothing to read; skipped\n");
    return 0;
#endif
    if (DataDir().empty()) {
        std::printf("retime_quality_bench: data folder not found; skipped\n");
        return 0;
    }
    std::printf("PSNR over R, G, B and of luma (Y); SSIM: 11x11 Gaussian window, sigma 1.5, K1 "
                "0.01, K2 0.03, windows inside the picture; luma = BT.601 Y, RGB = mean of the "
                "three channels\n");
    const std::vector<Method> methods = Methods(options.diagnostics);
    if (options.middlebury) RunMiddlebury(options, methods);
    if (options.clip) RunClip(options, methods);
    return 0;
}
