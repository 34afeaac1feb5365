// Quality of rebuilt in-between frames, on real pictures and on a synthetic clip.
//
// Middlebury: frames 10 and 11 of each pair are source frames 0 and 1; output time 0.5 is
// rendered through GetFrame at "Best", sensitivity 70, with each interpolation and each warping
// ("Inverse"; "Inverse + Smart Blend" in the rows marked "smart"; "Forward" in those marked
// "forward", and the forward warp with its holes left empty in those marked "forward alone"),
// and scored against
// frame10i11 beside a plain 50/50 blend and (with OpenCV) the DIS reference. Held-out clip: every
// second frame of clip/ is dropped, the kept frames are retimed back to full rate and each
// rebuilt frame is scored against the dropped one.
//
// Occlusions (built with the command's synthetic clip): textured objects cross a panning textured
// background; each in-between moment k + 0.5 is rebuilt from frames k and k + 1 and scored against
// the true frame in three regions: a band around the objects' outlines at that moment (where
// background is uncovered and covered), a strip along the picture's border (where the pan and
// the objects enter and leave), and the rest. "changed" is the share of a region's pixels where
// a smart or forward row differs from its "Inverse" row.
//
// Layers (the same synthetic clip): the objects' true matte at frames k and k + 1 cuts a
// foreground layer out, and each moment is rebuilt as one layer and as two, with "Blend" and
// "Weighted Energy Blend" and each warping; PSNR over the whole picture and in the band around
// the objects' outlines (as above, without the border strip).
//
//   retime_quality_bench [--sequences=Name,Name] [--no-middlebury] [--no-clip]
//                        [--no-occlusion] [--no-layers] [--clip-frames=N] [--diagnostics]
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

#ifdef QUELMOR_HAVE_SYNTH
#include "cli/Synth.h"
#endif

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
    bool occlusion = true;
    bool layers = true;
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
        } else if (arg == "--no-occlusion") {
            o.occlusion = false;
        } else if (arg == "--no-layers") {
            o.layers = false;
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

// Rows rendered with another warping than "Inverse" carry one of these after the name of their
// "Inverse" row: "Inverse + Smart Blend", "Forward" and forward alone.
constexpr const char* kSmartSuffix = ", smart";
constexpr const char* kForwardSuffix = ", forward";
constexpr const char* kForwardAloneSuffix = ", forward alone";

// Where the warping's mark starts in a row's name, or npos for an "Inverse" row.
size_t WarpingSuffixAt(const std::string& name) {
    const size_t smart = name.rfind(kSmartSuffix);
    return smart != std::string::npos ? smart : name.rfind(kForwardSuffix);
}

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
        best.warping = 1;
        methods.push_back(
            {std::string("Best ") + names[interpolation] + kSmartSuffix, ThroughEngine(best)});
        best.warping = 2;
        methods.push_back(
            {std::string("Best ") + names[interpolation] + kForwardSuffix, ThroughEngine(best)});
        best.warping = 3;
        methods.push_back({std::string("Best ") + names[interpolation] + kForwardAloneSuffix,
                           ThroughEngine(best)});
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
    std::printf("  %-42s %8s %8s %10s %10s %9s\n", "method", "PSNR dB", "PSNR Y", "SSIM luma",
                "SSIM RGB", "ms/frame");
}

void PrintRow(const std::string& name, const FrameScore& s, double ms) {
    std::printf("  %-42s %8.2f %8.2f %10.4f %10.4f %9.1f\n", name.c_str(), s.psnr, s.psnrLuma,
                s.ssimLuma, s.ssimChannels, ms);
}

// Means per method over everything scored, and the time spent, for the summary rows.
struct MethodTotals {
    ScoreMean score;
    double seconds = 0.0;
};

#ifdef QUELMOR_HAVE_OPENCV
void PrintFlowCheck(const char* name, const FlowCheck& c) {
    std::printf("  %-42s %9.2f %9.1f%% %12.2f %12.2f\n", name, c.endPointDifference,
                100.0 * c.largeShare, c.enginePullPsnr, c.disPullPsnr);
}

void PrintFlowCheckHeader() {
    std::printf("  %-42s %9s %10s %12s %12s\n", "flow check, Best, sens 70", "EPD px", "EPD > 3px",
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
                std::printf("  %-42s failed with code %d\n", method.name.c_str(), code);
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
            std::printf("  %-42s failed on %d frames\n", method.name.c_str(), failed);
            if (totals.score.count == 0) continue;
        }
        PrintRow(method.name, totals.score.Mean(), 1000.0 * totals.seconds / rebuilt);
    }
}

#ifdef QUELMOR_HAVE_SYNTH
using quelmor::cli::MediaFrame;
using quelmor::cli::SynthSettings;

// The synthetic clip's RGB frame as the engine's four-channel 8-bit image, opaque.
Owned ToEngineImage(const MediaFrame& frame) {
    const int w = frame.format.width, h = frame.format.height;
    Owned image(new DQImage(w, h, 4, DQ_UCHAR, 0));
    for (int y = 0; y < h; ++y) {
        const uint8_t* in = frame.Row<uint8_t>(y);
        uint8_t* out = image->Row<uint8_t>(y);
        for (int x = 0; x < w; ++x, in += 3, out += 4) {
            out[0] = in[0];
            out[1] = in[1];
            out[2] = in[2];
            out[3] = 255;
        }
    }
    return image;
}

enum Region { kRest, kOutline, kBorder, kRegions };
const char* const kRegionNames[kRegions] = {"rest", "outlines", "border"};

// Per pixel, its region at one moment: the border strip `reach` pixels wide; else within `reach`
// pixels (on both axes) of a pixel whose right or lower neighbour has another label; else the
// rest.
std::vector<uint8_t> RegionsOf(const MediaFrame& labels, int reach) {
    const int w = labels.format.width, h = labels.format.height;
    auto label = [&](int x, int y) { return labels.Row<uint8_t>(y)[x]; };
    std::vector<uint8_t> outline(size_t(w) * h, 0), spread(size_t(w) * h, 0);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            outline[size_t(y) * w + x] = (x + 1 < w && label(x + 1, y) != label(x, y)) ||
                                         (y + 1 < h && label(x, y + 1) != label(x, y));
    // Dilation by a square: along rows, then along columns.
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int d = -reach; d <= reach && !spread[size_t(y) * w + x]; ++d)
                if (x + d >= 0 && x + d < w && outline[size_t(y) * w + x + d])
                    spread[size_t(y) * w + x] = 1;
    std::vector<uint8_t> regions(size_t(w) * h, kRest);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            uint8_t& r = regions[size_t(y) * w + x];
            if (x < reach || y < reach || x >= w - reach || y >= h - reach) {
                r = kBorder;
                continue;
            }
            for (int d = -reach; d <= reach; ++d)
                if (y + d >= 0 && y + d < h && spread[size_t(y + d) * w + x]) {
                    r = kOutline;
                    break;
                }
        }
    return regions;
}

// Squared error over R, G, B and pixels per region, and pixels where two results differ.
struct RegionTotals {
    double squared[kRegions] = {};
    int64_t pixels[kRegions] = {};
    int64_t changed[kRegions] = {};

    void Add(const DQImage& result, const DQImage& truth, const std::vector<uint8_t>& regions,
             const DQImage* base) {
        for (int y = 0; y < result.height; ++y) {
            const uint8_t* r = result.Row<uint8_t>(y);
            const uint8_t* t = truth.Row<uint8_t>(y);
            const uint8_t* b = base ? base->Row<uint8_t>(y) : nullptr;
            for (int x = 0; x < result.width; ++x) {
                const int region = regions[size_t(y) * result.width + x];
                bool differs = false;
                for (int c = 0; c < 3; ++c) {
                    const double e = double(r[4 * x + c]) - double(t[4 * x + c]);
                    squared[region] += e * e;
                    differs = differs || (b && b[4 * x + c] != r[4 * x + c]);
                }
                ++pixels[region];
                changed[region] += differs;
            }
        }
    }
    double Psnr(int region) const {
        const double mse = squared[region] / (3.0 * double(std::max<int64_t>(1, pixels[region])));
        return mse > 0.0 ? 10.0 * std::log10(255.0 * 255.0 / mse) : 99.0;
    }
    double Whole() const {
        RegionTotals all;
        for (int i = 0; i < kRegions; ++i) {
            all.squared[0] += squared[i];
            all.pixels[0] += pixels[i];
        }
        return all.Psnr(0);
    }
};

void RunOcclusion(const std::vector<Method>& methods) {
    SynthSettings settings;
    settings.width = 640;
    settings.height = 360;
    constexpr int kSourceFrames = 9;
    // Objects move up to 0.05 frame heights per frame: half of that at the moment k + 0.5, and
    // a little more for the flow's reach beyond an edge.
    const int reach = settings.height / 30;
    std::vector<Owned> sources;
    MediaFrame frame, labels;
    for (int k = 0; k < kSourceFrames; ++k) {
        quelmor::cli::RenderSynthFrame(settings, k, frame);
        sources.push_back(ToEngineImage(frame));
    }
    SetWorkers(settings.width, settings.height);
    std::map<std::string, RegionTotals> totals;
    std::map<std::string, double> seconds;
    for (int k = 0; k + 1 < kSourceFrames; ++k) {
        const double moment = k + 0.5;
        quelmor::cli::RenderSynthFrame(settings, moment, frame);
        const Owned truth = ToEngineImage(frame);
        quelmor::cli::RenderSynthLabels(settings, moment, labels);
        const std::vector<uint8_t> regions = RegionsOf(labels, reach);
        std::map<std::string, Owned> results;
        for (const Method& method : methods) {
            Owned out = NewLike(*truth);
            const auto start = std::chrono::steady_clock::now();
            if (method.make(out.get(), sources[k].get(), sources[k + 1].get(), 0.5f) != 0) {
                std::printf("  %-42s failed at %.1f\n", method.name.c_str(), moment);
                continue;
            }
            seconds[method.name] += Seconds(start);
            const std::string& name = method.name;
            const size_t suffix = WarpingSuffixAt(name);
            const DQImage* base = nullptr;
            if (suffix != std::string::npos && results.count(name.substr(0, suffix)))
                base = results[name.substr(0, suffix)].get();
            totals[name].Add(*out, *truth, regions, base);
            results[name] = std::move(out);
        }
    }
    const RegionTotals& any = totals.begin()->second;
    const int64_t all = any.pixels[kRest] + any.pixels[kOutline] + any.pixels[kBorder];
    std::printf("\nOcclusions: synthetic clip %dx%d, %d moments k + 0.5; outlines: within %d px of "
                "an object's outline (%.1f%% of the picture), border: the %d px strip (%.1f%%)\n",
                settings.width, settings.height, kSourceFrames - 1, reach,
                100.0 * double(any.pixels[kOutline]) / double(all), reach,
                100.0 * double(any.pixels[kBorder]) / double(all));
    std::printf("  %-42s %9s %9s %9s %9s %11s %11s %9s\n", "method", "PSNR all", kRegionNames[1],
                kRegionNames[2], kRegionNames[0], "changed out", "changed brd", "ms/frame");
    for (const Method& method : methods) {
        if (!totals.count(method.name)) continue;
        const RegionTotals& t = totals[method.name];
        const bool otherWarping = WarpingSuffixAt(method.name) != std::string::npos;
        char changedOutline[16] = "", changedBorder[16] = "";
        if (otherWarping) {
            std::snprintf(changedOutline, sizeof changedOutline, "%.2f%%",
                          100.0 * double(t.changed[kOutline]) / double(t.pixels[kOutline]));
            std::snprintf(changedBorder, sizeof changedBorder, "%.2f%%",
                          100.0 * double(t.changed[kBorder]) / double(t.pixels[kBorder]));
        }
        std::printf("  %-42s %9.2f %9.2f %9.2f %9.2f %11s %11s %9.1f\n", method.name.c_str(),
                    t.Whole(), t.Psnr(kOutline), t.Psnr(kBorder), t.Psnr(kRest), changedOutline,
                    changedBorder, 1000.0 * seconds[method.name] / (kSourceFrames - 1));
    }
}

// The objects' matte: white where any object covers the pixel's centre.
Owned MatteOf(const MediaFrame& labels) {
    const int w = labels.format.width, h = labels.format.height;
    Owned matte(new DQImage(w, h, 1, DQ_UCHAR, 0));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            matte->Row<uint8_t>(y)[x] = labels.Row<uint8_t>(y)[x] != 0 ? 255 : 0;
    return matte;
}

void RunLayers() {
    SynthSettings settings;
    settings.width = 640;
    settings.height = 360;
    constexpr int kSourceFrames = 9;
    const int reach = settings.height / 30;
    std::vector<Owned> sources, mattes;
    MediaFrame frame, labels;
    for (int k = 0; k < kSourceFrames; ++k) {
        quelmor::cli::RenderSynthFrame(settings, k, frame);
        sources.push_back(ToEngineImage(frame));
        quelmor::cli::RenderSynthLabels(settings, k, labels);
        mattes.push_back(MatteOf(labels));
    }
    SetWorkers(settings.width, settings.height);
    const char* interpolations[] = {"Nearest", "Blend", "Weighted Energy Blend"};
    const char* warpings[] = {"inverse", "smart", "forward"};
    std::printf(
        "\nLayers: synthetic clip %dx%d, %d moments k + 0.5, the objects' true matte as one "
        "foreground layer; band: within %d px of an outline\n",
        settings.width, settings.height, kSourceFrames - 1, reach);
    std::printf("  %-34s %12s %12s %12s %12s %10s %10s\n", "method", "1 layer all", "2 layers all",
                "1 layer band", "2 layers band", "1 ms", "2 ms");
    for (long interpolation : {1L, 2L})
        for (int warping = 0; warping < 3; ++warping) {
            RegionTotals totals[2];
            double seconds[2] = {};
            for (int k = 0; k + 1 < kSourceFrames; ++k) {
                const double moment = k + 0.5;
                quelmor::cli::RenderSynthFrame(settings, moment, frame);
                const Owned truth = ToEngineImage(frame);
                quelmor::cli::RenderSynthLabels(settings, moment, labels);
                std::vector<uint8_t> regions = RegionsOf(labels, reach);
                for (int layers = 0; layers < 2; ++layers) {
                    ClipEngine engine({sources[k].get(), sources[k + 1].get()});
                    engine.mattes = {mattes[k].get(), mattes[k + 1].get()};
                    RetimeSettings s;
                    s.interpolation = interpolation;
                    s.warping = warping;
                    s.foregroundLayers = layers;
                    Owned out = NewLike(*truth);
                    const auto start = std::chrono::steady_clock::now();
                    if (RenderFrame(engine, out.get(), 0.5f, s) != 0) {
                        std::printf("  failed at %.1f\n", moment);
                        continue;
                    }
                    seconds[layers] += Seconds(start);
                    totals[layers].Add(*out, *truth, regions, nullptr);
                }
            }
            const std::string name =
                std::string("Best ") + interpolations[interpolation] + ", " + warpings[warping];
            std::printf("  %-34s %12.2f %12.2f %12.2f %12.2f %10.1f %10.1f\n", name.c_str(),
                        totals[0].Whole(), totals[1].Whole(), totals[0].Psnr(kOutline),
                        totals[1].Psnr(kOutline), 1000.0 * seconds[0] / (kSourceFrames - 1),
                        1000.0 * seconds[1] / (kSourceFrames - 1));
        }
}
#endif

} // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    std::printf("PSNR over R, G, B and of luma (Y); SSIM: 11x11 Gaussian window, sigma 1.5, K1 "
                "0.01, K2 0.03, windows inside the picture; luma = BT.601 Y, RGB = mean of the "
                "three channels\n");
    const std::vector<Method> methods = Methods(options.diagnostics);
#ifndef QUELMOR_HAVE_OIIO
    std::printf("retime_quality_bench: built without OpenImageIO, no pictures to read\n");
#else
    if (DataDir().empty()) {
        std::printf("retime_quality_bench: data folder not found; Middlebury and clip skipped\n");
    } else {
        if (options.middlebury) RunMiddlebury(options, methods);
        if (options.clip) RunClip(options, methods);
    }
#endif
#ifdef QUELMOR_HAVE_SYNTH
    if (options.occlusion) RunOcclusion(methods);
    if (options.layers) RunLayers();
#else
    if (options.occlusion) std::printf("\nOcclusions: built without the synthetic clip; skipped\n");
#endif
    return 0;
}
