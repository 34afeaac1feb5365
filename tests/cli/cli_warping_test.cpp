// The warping menu on the command: `retime --warping inverse|smart|forward|forward-alone` reaches
// the engine, and the plug-in's command keeps its fixed warping.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {

using test::Retime;

TEST(WarpingOptionTest, NamesTheMenuEntries) {
    const struct {
        const char* option;
        int warping;
    } cases[] = {{"", 0},
                 {"--warping inverse", 0},
                 {"--warping smart", 1},
                 // Names in any case, or the menu's numbers.
                 {"--warping Smart", 1},
                 {"--warping 1", 1},
                 {"--warping 0", 0},
                 {"--warping forward", 2},
                 {"--warping FORWARD", 2},
                 {"--warping 2", 2},
                 {"--warping forward-alone", 3},
                 {"--warping 3", 3}};
    for (const auto& c : cases)
        EXPECT_EQ(Retime(std::string("i.%04d.png o.%04d.png --speed 0.5 ") + c.option).warping,
                  c.warping)
            << c.option;
    for (const char* bad : {"forwards", "4", "blend", ""}) {
        try {
            Retime(std::string("i.%04d.png o.%04d.png --speed 0.5 --warping=") + bad);
            ADD_FAILURE() << bad << " was accepted";
        } catch (const UsageError& e) {
            EXPECT_EQ(
                std::string(e.what()),
                std::string("--warping must be one of inverse, smart, forward, forward-alone, "
                            "got \"") +
                    bad + "\"");
        }
    }
}

class WarpingRunTest : public test::FolderTest {};

TEST_F(WarpingRunTest, EachWarpingReachesTheEngine) {
    Run("synth @s.%04d.png --frames 5 --size 96x64 --steps 2 --quiet");
    for (const char* warping : {"inverse", "smart", "forward", "forward-alone"})
        Run("retime @s.%04d.png @" + std::string(warping) +
            ".%04d.png --speed 0.5 --quality best --quiet --warping " + warping);
    auto inverse = OpenMedia(In("inverse.%04d.png"));
    const auto truth = OpenMedia(In("true_s.%04d.png"));
    for (const char* warping : {"smart", "forward", "forward-alone"}) {
        SCOPED_TRACE(warping);
        auto other = OpenMedia(In(std::string(warping) + ".%04d.png"));
        ASSERT_EQ(other->FrameCount(), inverse->FrameCount());
        MediaFrame a, b;
        int differing = 0;
        for (int i = 0; i < other->FrameCount(); ++i) {
            inverse->Read(i, a);
            other->Read(i, b);
            // Frames on source frames take no warp; the ones between do.
            if (i % 2 == 0)
                EXPECT_EQ(a.pixels, b.pixels) << "frame " << i;
            else
                differing += a.pixels != b.pixels;
        }
        EXPECT_GT(differing, 0) << "--warping " << warping << " rendered what inverse did";
        // The modes that fill their holes are retimes of the clip: close to its true in-between
        // frames. Forward alone leaves the uncovered borders empty.
        if (std::string(warping) != "forward-alone") {
            EXPECT_GT(ScoreClips(*other, *truth).psnr, 24.0);
        }
    }
}

TEST(WarpingHelpTest, NamesTheOption) {
    const auto help = test::RunQuelmor({"--help"});
    EXPECT_NE(help.out.find("--warping NAME"), std::string::npos) << help.out;
}

} // namespace
} // namespace quelmor::cli
