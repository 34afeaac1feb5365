// Foreground layers on the command: `retime --matte PATTERN` (repeated, or `alpha`),
// `--matte-shrink`, `--layer-sensitivity` and `--draw`, and the mattes that `synth` writes.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {

using test::Retime;

constexpr const char* kBase = "i.%04d.png o.%04d.png --speed 0.5 ";

TEST(LayerOptionsTest, ReadsTheLayersFrontmostFirst) {
    const RetimeSettings plain = Retime(kBase);
    EXPECT_TRUE(plain.mattes.empty());
    EXPECT_EQ(plain.draw, 0);

    const RetimeSettings s = Retime(
        std::string(kBase) + "--matte near.%04d.png --matte=alpha --matte far.%04d.png "
                             "--matte-shrink 1.5 --layer-sensitivity 0.25 --draw background");
    EXPECT_EQ(s.mattes, (std::vector<std::string>{"near.%04d.png", "alpha", "far.%04d.png"}));
    EXPECT_EQ(s.matteShrink, 1.5f);
    EXPECT_EQ(s.layerSensitivity, 0.25f);
    EXPECT_EQ(s.draw, 2);
    EXPECT_EQ(Retime(std::string(kBase) + "--matte m.%04d.png --draw Foreground").draw, 1);
}

TEST(LayerOptionsTest, RefusesWhatMakesNoLayers) {
    const struct {
        const char* options;
        const char* message;
    } cases[] = {
        {"--draw foreground", "--draw needs a foreground layer"},
        {"--matte-shrink 2", "--matte-shrink needs a foreground layer"},
        {"--layer-sensitivity 0.5", "--layer-sensitivity needs a foreground layer"},
        {"--matte m --matte-shrink -1", "--matte-shrink"},
        {"--matte m --layer-sensitivity 1.5", "--layer-sensitivity"},
        {"--matte m --draw front", "--draw must be one of all, foreground, background"},
        {"--matte a --matte b --matte c --matte d --matte e --matte f --matte g --matte h "
         "--matte i --matte j",
         "at most 9 --matte options"},
    };
    for (const auto& c : cases) {
        try {
            Retime(std::string(kBase) + c.options);
            ADD_FAILURE() << c.options << " was accepted";
        } catch (const UsageError& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos)
                << c.options << ": " << e.what();
        }
    }
}

class LayerRunTest : public test::FolderTest {};

// Each pixel of a frame of `channels` channels, 8 bits: its matte value and colour.
struct Pixels {
    MediaFrame frame;
    const uint8_t* At(int x, int y) const {
        return &frame.pixels[(size_t(y) * frame.format.width + x) * frame.format.channels];
    }
};

Pixels ReadFrame(const std::string& pattern, int index) {
    Pixels p;
    OpenMedia(pattern)->Read(index, p.frame);
    return p;
}

TEST_F(LayerRunTest, SynthWritesTheMatteOfItsObjects) {
    Run("synth @s.%04d.png --frames 3 --size 96x64 --steps 2 --quiet");
    auto mattes = OpenMedia(In("matte_s.%04d.png"));
    ASSERT_EQ(mattes->FrameCount(), 3);
    SynthSettings settings;
    settings.width = 96;
    settings.height = 64;
    settings.frames = 3;
    for (int f = 0; f < 3; ++f) {
        MediaFrame matte, labels;
        mattes->Read(f, matte);
        ASSERT_EQ(matte.format.channels, 1);
        RenderSynthLabels(settings, f, labels);
        int covered = 0;
        for (size_t i = 0; i < labels.pixels.size(); ++i) {
            ASSERT_EQ(matte.pixels[i], labels.pixels[i] ? 255 : 0)
                << "frame " << f << " pixel " << i;
            covered += labels.pixels[i] != 0;
        }
        EXPECT_GT(covered, 0);
        EXPECT_LT(covered, int(labels.pixels.size()));
    }
}

TEST_F(LayerRunTest, OneLayerDrawnAloneAtASourceFrame) {
    Run("synth @s.%04d.png --frames 3 --size 96x64 --steps 2 --quiet");
    Run("retime @s.%04d.png @fg.%04d.png --speed 0.5 --quiet --matte @matte_s.%04d.png --draw "
        "foreground");
    Run("retime @s.%04d.png @bg.%04d.png --speed 0.5 --quiet --matte @matte_s.%04d.png --draw "
        "background");
    Run("retime @s.%04d.png @all.%04d.png --speed 0.5 --quiet --matte @matte_s.%04d.png");
    // Output frame 2 shows source frame 1 as it is: no motion.
    const Pixels source = ReadFrame(In("s.%04d.png"), 1);
    const Pixels matte = ReadFrame(In("matte_s.%04d.png"), 1);
    const Pixels fg = ReadFrame(In("fg.%04d.png"), 2);
    const Pixels bg = ReadFrame(In("bg.%04d.png"), 2);
    const Pixels all = ReadFrame(In("all.%04d.png"), 2);
    int repaired = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 96; ++x) {
            const bool object = matte.At(x, y)[0] != 0;
            for (int c = 0; c < 3; ++c) {
                // The foreground over black: the object, and nothing around it.
                ASSERT_EQ(fg.At(x, y)[c], object ? source.At(x, y)[c] : 0) << x << "," << y;
                // All layers laid together again give the frame back.
                ASSERT_EQ(all.At(x, y)[c], source.At(x, y)[c]) << x << "," << y;
                if (!object) {
                    ASSERT_EQ(bg.At(x, y)[c], source.At(x, y)[c]) << x << "," << y;
                }
            }
            if (object) repaired += bg.At(x, y)[0] != source.At(x, y)[0];
        }
    EXPECT_GT(repaired, 0) << "the background alone still shows the objects";
}

TEST_F(LayerRunTest, TwoLayersRetimeTheClip) {
    Run("synth @s.%04d.png --frames 4 --size 128x80 --steps 2 --quiet");
    Run("retime @s.%04d.png @o.%04d.png --speed 0.5 --quiet --matte @matte_s.%04d.png "
        "--matte-shrink 1");
    auto out = OpenMedia(In("o.%04d.png"));
    const auto truth = OpenMedia(In("true_s.%04d.png"));
    EXPECT_GT(ScoreClips(*out, *truth).psnr, 24.0);
}

} // namespace
} // namespace quelmor::cli
