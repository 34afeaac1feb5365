// Whole outputs pinned: a synthetic clip retimed with every vector quality and interpolation,
// each result reduced to one checksum of its decoded pixels. A change that moves any pixel of
// any frame fails here, however small, so a loss of quality cannot hide behind a test that only
// asks for "better than a plain blend". Results do not depend on the processor (the suite also
// runs with the baseline kernels forced) or on the worker count, so one table holds everywhere.
//
// When a change is meant to move pixels, update the sums below in the same commit and say in
// its message why the pixels changed.
#include "CliTestSupport.h"

#include <cinttypes>
#include <cstdio>

namespace quelmor::cli::test {
namespace {

// FNV-1a over the size and samples of every frame of a clip, in frame order.
uint64_t ClipChecksum(const std::string& pattern) {
    uint64_t hash = 14695981039346656037ull;
    auto mix = [&](const void* data, size_t bytes) {
        const auto* p = static_cast<const uint8_t*>(data);
        for (size_t i = 0; i < bytes; ++i)
            hash = (hash ^ p[i]) * 1099511628211ull;
    };
    auto reader = OpenMedia(pattern);
    MediaFrame frame;
    for (int i = 0; i < reader->FrameCount(); ++i) {
        reader->Read(i, frame);
        const int size[3] = {frame.format.width, frame.format.height, frame.format.channels};
        mix(size, sizeof size);
        mix(frame.pixels.data(), frame.pixels.size());
    }
    return hash;
}

std::string Hex(uint64_t v) {
    char text[24];
    std::snprintf(text, sizeof text, "0x%016" PRIx64, v);
    return text;
}

struct Pinned {
    const char* options;
    uint64_t checksum;
};

class PinnedOutput : public FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        Run("synth @src.%04d.png --frames 5 --size 192x108 --steps 1 --quiet");
    }
    // Retimes the synthetic clip with `options` through `command` and checks every row.
    void CheckAll(const char* command, std::initializer_list<Pinned> rows) {
        int n = 0;
        for (const Pinned& row : rows) {
            const std::string out = "@out" + std::to_string(n++) + ".%04d.png";
            Run(std::string(command) + " @src.%04d.png " + out + " --speed 0.25 --quiet " +
                row.options);
            const uint64_t sum = ClipChecksum(In(out.substr(1)));
            EXPECT_EQ(Hex(sum), Hex(row.checksum)) << command << " " << row.options;
        }
    }
};

// "Sloppy" and "Medium" compute their flow at the same reduced size, so their sums agree.
TEST_F(PinnedOutput, RetimeEveryQualityAndInterpolation) {
    CheckAll("retime",
             {
                 {"--quality none --interpolation nearest", 0x38ff0dffa0527370},
                 {"--quality none --interpolation blend", 0x398a904d19267202},
                 {"--quality sloppy --interpolation nearest", 0x99885a7404b6fbd4},
                 {"--quality sloppy --interpolation blend", 0xb0935f0e439689ef},
                 {"--quality sloppy --interpolation weighted", 0x65a5519501b526ce},
                 {"--quality medium --interpolation nearest", 0x99885a7404b6fbd4},
                 {"--quality medium --interpolation blend", 0xb0935f0e439689ef},
                 {"--quality medium --interpolation weighted", 0x65a5519501b526ce},
                 {"--quality high --interpolation nearest", 0x2fa52cb08e65bf9d},
                 {"--quality high --interpolation blend", 0xce499356dba3c13e},
                 {"--quality high --interpolation weighted", 0xcf8e8d89e551c115},
                 {"--quality best --interpolation nearest", 0x2fa625df73c9b520},
                 {"--quality best --interpolation blend", 0x1dcd5a1e34c2b705},
                 {"--quality best --interpolation weighted", 0x900a2a52ab26d7d5},
                 {"--quality best --interpolation blend --motion-blur 1", 0xf935532b846675af},
             });
}

// The plug-in's path converts to and from the host's 8-bit frames and sets its own worker count.
TEST_F(PinnedOutput, SparkBestQuality) {
    CheckAll("spark",
             {
                 {"--quality best --interpolation blend", 0x1dcd5a1e34c2b705},
                 {"--quality best --interpolation weighted", 0x900a2a52ab26d7d5},
                 {"--quality high --interpolation blend --fields-out lower", 0xb60fde414be662b7},
             });
}

} // namespace
} // namespace quelmor::cli::test
