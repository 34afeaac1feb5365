// Flow files in OpenEXR: bit-exact round trips, the channel names written, and the motion layers
// and plain two-channel images that are read.
#include "cli/ExrFlowFile.h"
#include "flow/FlowFile.h"

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>

using namespace quelmor::cli;

namespace {

std::string TempPath(const std::string& name) {
    return ::testing::TempDir() + "quelmor_exr_flow_" + name;
}

DQImagePtr Flow(int width, int height) {
    DQImagePtr flow = DQMakeImage(width, height, 2, DQ_FLOAT);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            flow->Row<float>(y)[2 * x] = std::sin(0.3f * x + y) * 17.0f + 1e-7f * x;
            flow->Row<float>(y)[2 * x + 1] = -0.1f * y + std::cos(float(x));
        }
    return flow;
}

bool SameBits(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.channels != b.channels) return false;
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.RowAddress(y), b.RowAddress(y), size_t(a.width) * a.pixelBytes) != 0)
            return false;
    return true;
}

// Writes a float EXR with the given channels, channel c of pixel (x, y) being 100 c + x + y / 8.
void WriteChannels(const std::string& path, const std::vector<std::string>& names) {
    OIIO::ImageSpec header(5, 3, int(names.size()), OIIO::TypeDesc::FLOAT);
    header.channelnames = names;
    std::vector<float> pixels(size_t(5 * 3) * names.size());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            for (size_t c = 0; c < names.size(); ++c)
                pixels[(y * 5 + x) * names.size() + c] = 100.0f * c + x + y / 8.0f;
    auto out = OIIO::ImageOutput::create(path);
    ASSERT_TRUE(out && out->open(path, header));
    ASSERT_TRUE(out->write_image(OIIO::TypeDesc::FLOAT, pixels.data()));
    out->close();
}

} // namespace

TEST(ExrFlowFile, RoundTripIsBitExactWithTheDirectionsChannelNames) {
    DQImagePtr flow = Flow(23, 11);
    for (auto [direction, layer] : {std::pair{FlowDirection::Forward, "forward"},
                                    std::pair{FlowDirection::Backward, "backward"}}) {
        SCOPED_TRACE(layer);
        const std::string path = TempPath(std::string(layer) + ".exr");
        std::string reason;
        ASSERT_EQ(WriteExrFlow(*flow, path, direction, &reason), 0) << reason;
        auto in = OIIO::ImageInput::open(path);
        ASSERT_TRUE(in);
        EXPECT_EQ(in->spec().channelnames,
                  (std::vector<std::string>{std::string(layer) + ".u", std::string(layer) + ".v"}));
        EXPECT_EQ(in->spec().format, OIIO::TypeDesc::FLOAT);
        in.reset();
        DQImagePtr back = ReadExrFlow(path, &reason);
        ASSERT_TRUE(back) << reason;
        EXPECT_TRUE(SameBits(*flow, *back));
        std::remove(path.c_str());
    }
}

TEST(ExrFlowFile, ReadsTheMotionLayerOrTheFirstTwoChannels) {
    const struct {
        const char* name;
        std::vector<std::string> channels;
        int u, v; // channels expected in x and y
    } cases[] = {
        {"motion layer among others", {"R", "G", "B", "A", "forward.u", "forward.v"}, 4, 5},
        {"backward only", {"backward.v", "backward.u"}, 1, 0},
        {"plain u and v", {"Y", "u", "v"}, 1, 2},
        {"renderer's motion layer", {"R", "G", "B", "motionvector.x", "motionvector.y"}, 3, 4},
        {"both directions", {"backward.u", "backward.v", "forward.u", "forward.v"}, 2, 3},
        {"render pass in R and G", {"R", "G", "B", "A"}, 0, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = TempPath("layers.exr");
        WriteChannels(path, c.channels);
        std::string reason;
        DQImagePtr flow = ReadExrFlow(path, &reason);
        ASSERT_TRUE(flow) << reason;
        EXPECT_EQ(flow->Row<float>(2)[2 * 4], 100.0f * c.u + 4 + 2 / 8.0f);
        EXPECT_EQ(flow->Row<float>(2)[2 * 4 + 1], 100.0f * c.v + 4 + 2 / 8.0f);
        std::remove(path.c_str());
    }
    const std::string one = TempPath("one.exr");
    WriteChannels(one, {"Y"});
    std::string reason;
    EXPECT_FALSE(ReadExrFlow(one, &reason));
    EXPECT_NE(reason.find("fewer than two channels"), std::string::npos);
    EXPECT_FALSE(ReadExrFlow(TempPath("missing.exr"), &reason));
    EXPECT_NE(reason.find("cannot open"), std::string::npos);
    std::remove(one.c_str());
}

TEST(ExrFlowFile, ReadFlowAndWriteFlowTakeEXRByName) {
    RegisterExrFlowFiles();
    DQImagePtr flow = Flow(9, 7);
    const std::string path = TempPath("by_name.EXR");
    ASSERT_EQ(WriteFlow(flow.get(), path), 0);
    auto in = OIIO::ImageInput::open(path);
    ASSERT_TRUE(in) << "written as EXR, not .flo";
    in.reset();
    DQImagePtr back = ReadFlow(path);
    ASSERT_TRUE(back);
    EXPECT_TRUE(SameBits(*flow, *back));
    std::remove(path.c_str());
}
