// quelmor vectors and retime --vectors, end to end: a retime by the vectors written equals the one
// that computes them, the files hold what they say, and vector files that are missing, damaged or
// of another size are refused by name with nothing written.
#include <OpenImageIO/imageio.h>

#include <cmath>
#include <fstream>
#include <functional>

#include "CliTestSupport.h"
#include "cli/ExrFlowFile.h"
#include "cli/Score.h"
#include "flow/FlowFile.h"

namespace quelmor::cli {
namespace {

namespace fs = std::filesystem;
using test::FolderState;
using test::RunQuelmor;

class VectorsTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        test::WriteSynthClip(In("clip.%04d.png"), 4, SampleType::U8, 64, 40);
    }
    // Writes a .flo file of the clip's size (or another) holding one vector everywhere.
    void WriteConstantFlo(const std::string& name, float u, float v, int width = 64,
                          int height = 40) {
        DQImagePtr flow = DQMakeImage(width, height, 2, DQ_FLOAT);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                flow->Row<float>(y)[2 * x] = u;
                flow->Row<float>(y)[2 * x + 1] = v;
            }
        ASSERT_EQ(WriteFloFile(*flow, In(name)), 0);
    }
    // Runs a command expected to fail: its message, after checking that nothing changed.
    std::string Refused(const std::string& line) {
        const auto before = FolderState(dir_);
        const auto r = RunQuelmor(Args(line));
        EXPECT_NE(r.status, 0) << line;
        EXPECT_EQ(FolderState(dir_), before) << line << ": " << r.err;
        return r.err;
    }
};

// Frames of two clips, compared sample by sample: how many differ.
int DifferingFrames(const std::string& a, const std::string& b) {
    auto ra = OpenMedia(a);
    auto rb = OpenMedia(b);
    EXPECT_EQ(ra->FrameCount(), rb->FrameCount());
    int differ = 0;
    MediaFrame fa, fb;
    for (int i = 0; i < ra->FrameCount(); ++i) {
        ra->Read(i, fa);
        rb->Read(i, fb);
        differ += fa.pixels != fb.pixels;
    }
    return differ;
}

TEST_F(VectorsTest, RetimeByWrittenVectorsMakesTheComputedFrames) {
    const struct {
        const char* files;
        const char* settings;
    } cases[] = {
        {"v.%04d.exr", "--interpolation blend"},
        {"v.%04d.flo", "--interpolation weighted --warping smart"},
        {"v.%04d.exr", "--interpolation nearest --warping forward"},
        {"v.%04d.flo", "--warping forward --motion-blur 2"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.files) + " " + c.settings);
        Run(std::string("vectors @clip.%04d.png @") + c.files + " --quality full --overwrite");
        const std::string retime = "retime @clip.%04d.png @" + std::string("~.%04d.png") +
                                   " --speed 0.3 --quality full --overwrite --quiet " + c.settings;
        const auto to = [&](const std::string& name, const std::string& extra) {
            std::string line = retime;
            line.replace(line.find('~'), 1, name);
            Run(line + extra);
            return In(name + ".%04d.png");
        };
        const std::string computed = to("computed", "");
        const std::string read = to("read", std::string(" --vectors @") + c.files);
        EXPECT_EQ(DifferingFrames(computed, read), 0);
        // The files are what moves the frames: without their motion the frames are others.
        const std::string still =
            to("still", std::string(" --vectors @") + c.files + " --vector-scale 0 0");
        EXPECT_GT(DifferingFrames(computed, still), 0);
    }
}

TEST_F(VectorsTest, FilesHoldBothDirectionsAlikeInEitherFormat) {
    Run("vectors @clip.%04d.png @v.%04d.exr --quality full --quiet");
    Run("vectors @clip.%04d.png @v.%04d.flo --quality full --quiet");
    EXPECT_FALSE(fs::exists(In("v.0000.backward.flo")));
    EXPECT_FALSE(fs::exists(In("v.0003.forward.flo")));
    float longest = 0.0f;
    for (int frame = 0; frame < 4; ++frame) {
        SCOPED_TRACE(frame);
        auto in = OIIO::ImageInput::open(In("v.000" + std::to_string(frame) + ".exr"));
        ASSERT_TRUE(in);
        // The file keeps its channels sorted by name.
        const std::vector<std::string> names = {"forward.u", "forward.v", "backward.u",
                                                "backward.v"};
        ASSERT_EQ(in->spec().nchannels, 4);
        int at[4];
        for (int k = 0; k < 4; ++k) {
            at[k] = in->spec().channelindex(names[size_t(k)]);
            ASSERT_GE(at[k], 0) << names[size_t(k)];
        }
        std::vector<float> exr(size_t(64 * 40 * 4));
        ASSERT_TRUE(in->read_image(0, 0, 0, 4, OIIO::TypeDesc::FLOAT, exr.data()));
        for (int d = 0; d < 2; ++d) {
            const std::string flo =
                In("v.000" + std::to_string(frame) + (d == 0 ? ".forward.flo" : ".backward.flo"));
            std::string reason;
            DQImagePtr flow = ReadFloFile(flo, &reason);
            const bool edge = (d == 0 && frame == 3) || (d == 1 && frame == 0);
            ASSERT_EQ(flow == nullptr, edge) << flo << ": " << reason;
            for (int i = 0; i < 64 * 40; ++i)
                for (int k = 0; k < 2; ++k) {
                    const float value = exr[size_t(i * 4 + at[2 * d + k])];
                    longest = std::max(longest, std::fabs(value));
                    ASSERT_EQ(value, edge ? 0.0f : flow->Row<float>(i / 64)[2 * (i % 64) + k]);
                }
        }
    }
    EXPECT_GT(longest, 0.5f) << "the synthetic clip moves";
}

TEST_F(VectorsTest, ShowWritesAColourPicturePerPair) {
    Run("vectors @clip.%04d.png @show.%04d.png --show --quiet");
    auto pictures = OpenMedia(In("show.%04d.png"));
    ASSERT_EQ(pictures->FrameCount(), 3);
    MediaFrame picture;
    pictures->Read(1, picture);
    ASSERT_EQ(picture.format.sample, SampleType::U8);
    // The moving objects in strong colours, the arrows in black, the rest in pale ones.
    size_t black = 0, strong = 0, pale = 0;
    const auto& p = picture.pixels;
    const size_t channels = size_t(picture.format.channels);
    for (size_t i = 0; i + 2 < p.size(); i += channels) {
        const int low = std::min({p[i], p[i + 1], p[i + 2]});
        const int high = std::max({p[i], p[i + 1], p[i + 2]});
        black += high == 0;
        strong += high - low > 100;
        pale += low > 150;
    }
    EXPECT_GT(black, 0u);
    EXPECT_GT(strong, 0u);
    EXPECT_GT(pale, 0u);
}

TEST_F(VectorsTest, OneDirectionIsEnoughAndScaleAppliesToTheMotionPass) {
    // A renderer's pass: picture channels first, the motion layer after them, forward only.
    const std::vector<std::string> names = {"R", "G", "B", "motion.x", "motion.y"};
    for (int frame = 0; frame < 4; ++frame) {
        OIIO::ImageSpec header(64, 40, 5, OIIO::TypeDesc::FLOAT);
        header.channelnames = names;
        std::vector<float> pixels(size_t(64 * 40 * 5), 9.0f);
        for (size_t i = 0; i < 64 * 40; ++i)
            pixels[i * 5 + 3] = 1.5f, pixels[i * 5 + 4] = -0.5f;
        const std::string path = In("pass.000" + std::to_string(frame) + ".exr");
        auto out = OIIO::ImageOutput::create(path);
        ASSERT_TRUE(out && out->open(path, header));
        ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()));
        out->close();
        WriteConstantFlo("fwd.000" + std::to_string(frame) + ".forward.flo", 3.0f, -0.5f);
    }
    const std::string retime = "retime @clip.%04d.png @~.%04d.png --speed 0.5 --quiet --vectors ";
    const auto to = [&](const std::string& name, const std::string& rest) {
        std::string line = retime + rest;
        line.replace(line.find('~'), 1, name);
        Run(line);
        return In(name + ".%04d.png");
    };
    const std::string pass = to("pass", "@pass.%04d.exr --vector-scale 2 1");
    const std::string flo = to("flo", "@fwd.%04d.flo");
    EXPECT_EQ(DifferingFrames(pass, flo), 0);
    EXPECT_GT(DifferingFrames(pass, to("unscaled", "@pass.%04d.exr")), 0);
}

TEST_F(VectorsTest, BadVectorFilesAreRefusedByNameWithNothingWritten) {
    Run("vectors @clip.%04d.png @v.%04d.flo --quality full --quiet");
    fs::create_directory(dir_ / "kept");
    for (const auto& e : fs::directory_iterator(dir_))
        if (e.path().extension() == ".flo")
            fs::copy_file(e.path(), dir_ / "kept" / e.path().filename());
    const std::string retime = "retime @clip.%04d.png @out.%04d.png --speed 0.5 --quiet --vectors ";
    const struct {
        const char* name;
        std::function<void()> damage;
        const char* files;
        std::vector<std::string> said;
    } cases[] = {
        {"a pair without vectors",
         [&] {
             fs::remove(In("v.0001.forward.flo"));
             fs::remove(In("v.0002.backward.flo"));
         },
         "@v.%04d.flo",
         {"no vectors between frames 1 and 2", "v.0001.forward.flo"}},
        {"another size",
         [&] { WriteConstantFlo("v.0002.forward.flo", 1, 1, 32, 40); },
         "@v.%04d.flo",
         {"v.0002.forward.flo is 32x40, the input 64x40"}},
        {"not a flow file",
         [&] { std::ofstream(In("v.0001.backward.flo")) << "this is not a flow"; },
         "@v.%04d.flo",
         {"v.0001.backward.flo", "PIEH"}},
        {"cut short after the header",
         [&] { fs::resize_file(In("v.0002.forward.flo"), 12 + 64 * 8 * 10); },
         "@v.%04d.flo",
         {"cannot read the vector file", "v.0002.forward.flo", "truncated"}},
        {"a value that is not a number",
         [&] {
             std::fstream file(In("v.0001.forward.flo"),
                               std::ios::in | std::ios::out | std::ios::binary);
             const float nan = std::nanf("");
             file.seekp(12 + 8 * 100);
             file.write(reinterpret_cast<const char*>(&nan), sizeof nan);
         },
         "@v.%04d.flo",
         {"v.0001.forward.flo is damaged"}},
        {"a damaged EXR file",
         [&] {
             Run("vectors @clip.%04d.png @e.%04d.exr --quiet");
             fs::resize_file(In("e.0002.exr"), fs::file_size(In("e.0002.exr")) / 2);
         },
         "@e.%04d.exr",
         {"cannot read the vector file", "e.0002.exr"}},
        {"no numbered files", [] {}, "@v.flo", {"--vectors wants numbered vector files"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (const auto& e : fs::directory_iterator(dir_ / "kept"))
            fs::copy_file(e.path(), dir_ / e.path().filename(),
                          fs::copy_options::overwrite_existing);
        c.damage();
        const std::string err = Refused(retime + c.files);
        for (const std::string& part : c.said)
            EXPECT_NE(err.find(part), std::string::npos) << err;
    }
}

TEST_F(VectorsTest, CommandRefusesWhatItCannotDo) {
    test::WriteSynthClip(In("one.%04d.png"), 1, SampleType::U8, 64, 40);
    Run("vectors @clip.%04d.png @v.%04d.exr --quiet");
    const struct {
        const char* line;
        const char* said;
    } cases[] = {
        {"vectors @one.%04d.png @w.%04d.exr", "vectors need two frames or more"},
        {"vectors @clip.%04d.png @w.%04d.png", "numbered vector files"},
        {"vectors @clip.%04d.png @v.%04d.exr", "v.0000.exr already exists"},
        {"vectors @clip.%04d.png @w.%04d.exr --quality none", "computes no vectors"},
        {"vectors @clip.%04d.png @missing/w.%04d.exr", "does not exist"},
        {"retime @clip.%04d.png @o.%04d.png --speed 0.5 --vector-scale 1 1", "give that too"},
        {"retime @clip.%04d.png @o.%04d.png --speed 0.5 --vectors @v.%04d.exr --vector-scale 1",
         "needs two numbers"},
        {"retime @clip.%04d.png @o.%04d.png --speed 0.5 --vectors @v.%04d.exr --vector-scale 1 "
         "y",
         "wants two numbers"},
    };
    for (const auto& c : cases) {
        const std::string err = Refused(c.line);
        EXPECT_NE(err.find(c.said), std::string::npos) << c.line << ": " << err;
    }
}

TEST_F(VectorsTest, VectorsOfTheSmallerFlowRetimeCloseToTheComputedFrames) {
    Run("vectors @clip.%04d.png @v.%04d.exr --quiet");
    // Frame 1's forward vectors go with its file; frame 2's backward ones stand in for them.
    fs::remove(In("v.0001.exr"));
    Run("retime @clip.%04d.png @a.%04d.png --speed 0.5 --quiet");
    Run("retime @clip.%04d.png @b.%04d.png --speed 0.5 --quiet --vectors @v.%04d.exr");
    for (int i = 0; i < 6; ++i)
        EXPECT_GT(test::FramePsnr(In("a.%04d.png"), i, In("b.%04d.png"), i), 30.0) << i;
}

// Every layer takes the files' vectors, held to its own matte: close to the layers' computed
// flows, and not the same frames as one layer moved by the same vectors.
TEST_F(VectorsTest, LayersTakeTheVectorsToo) {
    Run("synth @s.%04d.png --frames 3 --size 96x64 --steps 2 --quiet");
    Run("vectors @s.%04d.png @v.%04d.exr --quality full --quiet");
    const std::string retime = "retime @s.%04d.png @";
    const std::string rest = ".%04d.png --speed 0.5 --quality full --quiet";
    Run(retime + "computed" + rest + " --matte @matte_s.%04d.png");
    Run(retime + "layers" + rest + " --matte @matte_s.%04d.png --vectors @v.%04d.exr");
    Run(retime + "single" + rest + " --vectors @v.%04d.exr");
    for (int i = 0; i < 5; ++i)
        EXPECT_GT(test::FramePsnr(In("computed.%04d.png"), i, In("layers.%04d.png"), i), 30.0)
            << i;
    EXPECT_GT(DifferingFrames(In("layers.%04d.png"), In("single.%04d.png")), 0);
}

} // namespace
} // namespace quelmor::cli
