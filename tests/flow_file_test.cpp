#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/FlowFile.h"

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

using namespace quelmor::test;

namespace {

std::string TempPath(const std::string& name) {
    return ::testing::TempDir() + "quelmor_flow_file_" + name;
}

void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

std::vector<uint8_t> ReadBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void Append32(std::vector<uint8_t>& bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i)
        bytes.push_back(uint8_t(value >> (8 * i)));
}

std::vector<uint8_t> FloBytes(uint32_t width, uint32_t height, const std::vector<float>& values) {
    std::vector<uint8_t> bytes = {'P', 'I', 'E', 'H'};
    Append32(bytes, width);
    Append32(bytes, height);
    for (float v : values)
        Append32(bytes, std::bit_cast<uint32_t>(v));
    return bytes;
}

bool SameBits(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.pixelBytes != b.pixelBytes ||
        a.dataType != b.dataType)
        return false;
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.RowAddress(y), b.RowAddress(y), size_t(a.width) * a.pixelBytes) != 0)
            return false;
    return true;
}

} // namespace

TEST(FlowFile, RoundTripIsBitExactForEveryFloat) {
    // Awkward values included: signed zero, the smallest subnormal, huge, infinite and NaN with a
    // payload; the odd size catches rows and columns swapped.
    const float special[] = {0.0f,
                             -0.0f,
                             std::numeric_limits<float>::denorm_min(),
                             1e30f,
                             -std::numeric_limits<float>::infinity(),
                             std::bit_cast<float>(0x7fc12345u),
                             0.1f,
                             -123.456f};
    DQImagePtr flow = MakeFlow(7, 5, [&](int x, int y, float& u, float& v) {
        u = special[(x + 3 * y) % 8];
        v = std::sin(float(x * 13 + y)) * 40.0f;
    });
    const std::string path = TempPath("round.flo");
    ASSERT_EQ(WriteFlow(flow.get(), path), 0);
    EXPECT_EQ(ReadBytes(path).size(), 12u + 7 * 5 * 8);
    DQImagePtr back = ReadFlow(path);
    ASSERT_TRUE(back);
    EXPECT_TRUE(SameBits(*flow, *back));
    std::remove(path.c_str());
}

TEST(FlowFile, ReadsAFileWrittenByHand) {
    // Two pixels wide, one high: (1.5, -2) then (0.25, 3), little-endian after the tag and sizes.
    const std::vector<uint8_t> bytes = {'P',  'I',  'E',  'H',  2,    0,    0,    0,    1,    0,
                                        0,    0,    0x00, 0x00, 0xc0, 0x3f, 0x00, 0x00, 0x00, 0xc0,
                                        0x00, 0x00, 0x80, 0x3e, 0x00, 0x00, 0x40, 0x40};
    const std::string path = TempPath("hand.flo");
    WriteBytes(path, bytes);
    DQImagePtr flow = ReadFlow(path);
    ASSERT_TRUE(flow);
    EXPECT_EQ(flow->width, 2);
    EXPECT_EQ(flow->height, 1);
    EXPECT_EQ(flow->channels, 2);
    EXPECT_EQ(flow->dataType, DQ_FLOAT);
    const float expected[] = {1.5f, -2.0f, 0.25f, 3.0f};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(flow->Row<float>(0)[i], expected[i]) << i;
    // And writing it again gives the same bytes.
    const std::string again = TempPath("hand_again.flo");
    ASSERT_EQ(WriteFlow(flow.get(), again), 0);
    EXPECT_EQ(ReadBytes(again), bytes);
    std::remove(path.c_str());
    std::remove(again.c_str());
}

TEST(FlowFile, RefusesDamagedFilesWithAMessage) {
    const std::vector<float> six(6, 1.0f);
    std::vector<uint8_t> wrongTag = FloBytes(3, 1, six);
    wrongTag[3] = 'X';
    std::vector<uint8_t> shortData = FloBytes(3, 1, six);
    shortData.resize(shortData.size() - 1);
    std::vector<uint8_t> extra = FloBytes(3, 1, six);
    extra.push_back(0);
    const struct {
        const char* name;
        std::vector<uint8_t> bytes;
        const char* reason;
    } cases[] = {
        {"wrong tag", wrongTag, "not a .flo file"},
        {"empty", {}, "truncated"},
        {"header cut", {'P', 'I', 'E', 'H', 3, 0, 0}, "truncated"},
        {"data cut", shortData, "truncated"},
        {"no data", FloBytes(3, 1, {}), "truncated"},
        {"trailing byte", extra, "too long"},
        {"zero width", FloBytes(0, 1, {}), "impossible size"},
        {"negative height", FloBytes(1, 0xffffffffu, {}), "impossible size"},
        {"huge", FloBytes(1u << 20, 1u << 20, {}), "impossible size"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string path = TempPath("damaged.flo");
        WriteBytes(path, c.bytes);
        testing::internal::CaptureStderr();
        DQImagePtr flow = ReadFlow(path);
        const std::string message = testing::internal::GetCapturedStderr();
        EXPECT_FALSE(flow);
        EXPECT_NE(message.find(path), std::string::npos) << message;
        EXPECT_NE(message.find(c.reason), std::string::npos) << message;
        std::remove(path.c_str());
    }
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ReadFlow(TempPath("missing.flo")));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("cannot open"), std::string::npos);
}

TEST(FlowFile, WritesShortFlowDecodedAndRefusesOneChannel) {
    DQImagePtr words = MakeImage(6, 4, 2, DQ_USHORT, Fill(32767));
    words->SetFlowPixel(2, 1, 6, 1.5f, -4.0f);
    const std::string path = TempPath("short.flo");
    ASSERT_EQ(WriteFlow(words.get(), path), 0);
    DQImagePtr back = ReadFlow(path);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->Row<float>(0)[0], 0.0f); // 32767 decodes to 0 exactly
    EXPECT_NEAR(back->Row<float>(1)[4], 1.5f, 6.0f / 32767);
    EXPECT_NEAR(back->Row<float>(1)[5], -4.0f, 6.0f / 32767);
    std::remove(path.c_str());

    DQImagePtr one = MakeImage(6, 4, 1, DQ_FLOAT, Fill(1));
    testing::internal::CaptureStderr();
    EXPECT_EQ(WriteFlow(one.get(), path), kDQErrBadArgument);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Write Flow needs more than 1 channel!\n");
    EXPECT_TRUE(ReadBytes(path).empty());

    DQImagePtr flow = ConstantFlow(3, 3, 1, 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(WriteFlow(flow.get(), "/nonexistent-folder/flow.flo"), kDQErrFile);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("can't write flow file"),
              std::string::npos);
}

namespace {
int writtenByTestKind = 0;
int WriteTestKind(const DQImage& flow, const std::string& path, std::string*) {
    ++writtenByTestKind;
    return WriteFloFile(flow, path, nullptr);
}
DQImagePtr ReadTestKind(const std::string&, std::string* reason) {
    *reason = "test kind reads nothing";
    return nullptr;
}
} // namespace

TEST(FlowFile, OtherKindsGoThroughTheirRegisteredReaderAndWriter) {
    RegisterFlowFileKind(".testflow", ReadTestKind, WriteTestKind);
    DQImagePtr flow = ConstantFlow(3, 2, 0.5f, 2.0f);
    const std::string path = TempPath("kind.TESTFLOW");
    EXPECT_EQ(WriteFlow(flow.get(), path), 0);
    EXPECT_EQ(writtenByTestKind, 1);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(ReadFlow(path));
    EXPECT_NE(testing::internal::GetCapturedStderr().find("test kind reads nothing"),
              std::string::npos);
    // The file itself is a plain .flo, which the built-in reader takes under its own name.
    std::string reason;
    EXPECT_TRUE(ReadFloFile(path, &reason)) << reason;
    std::remove(path.c_str());
}
