// Writing on a second thread: order kept, failures reported, nothing left running.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "cli/WriteBehind.h"

namespace quelmor::cli {
namespace {

// Records what reaches it; slow, so that writes overlap the caller; fails on request.
class RecordingWriter final : public MediaWriter {
public:
    explicit RecordingWriter(int failAt = -1) : failAt_(failAt) {}
    const MediaFormat& Format() const override { return format_; }
    void Write(int number, const MediaFrame& frame) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        if (number == failAt_) throw MediaError("disk full at " + std::to_string(number));
        numbers.push_back(number);
        firstBytes.push_back(frame.pixels.at(0));
    }
    void Finish() override { finished = true; }

    std::vector<int> numbers;
    std::vector<int> firstBytes;
    bool finished = false;

private:
    MediaFormat format_{1, 1, 1, SampleType::U8};
    int failAt_;
};

MediaFrame Frame(int value) {
    MediaFrame f;
    f.Allocate({1, 1, 1, SampleType::U8});
    f.pixels[0] = uint8_t(value);
    return f;
}

TEST(WriteBehindTest, KeepsOrderAndFinishesAfterTheLastWrite) {
    RecordingWriter writer;
    {
        WriteBehind out(writer);
        for (int i = 0; i < 5; ++i)
            out.Write(10 + i, Frame(i * 3));
        out.Finish();
    }
    EXPECT_EQ(writer.numbers, (std::vector<int>{10, 11, 12, 13, 14}));
    EXPECT_EQ(writer.firstBytes, (std::vector<int>{0, 3, 6, 9, 12}));
    EXPECT_TRUE(writer.finished);
}

TEST(WriteBehindTest, ReportsAFailedWriteOnTheNextCall) {
    struct Case {
        const char* name;
        int failAt;
        int framesBeforeFinish;
        int writtenBeforeThrow;
    } cases[] = {
        {"failure reported by the next write", 2, 5, 2},
        {"failure of the last frame reported by Finish", 4, 5, 4},
    };
    for (const Case& c : cases) {
        RecordingWriter writer(c.failAt);
        bool thrown = false;
        {
            WriteBehind out(writer);
            try {
                for (int i = 0; i < c.framesBeforeFinish; ++i)
                    out.Write(i, Frame(i));
                out.Finish();
            } catch (const MediaError& e) {
                thrown = true;
                EXPECT_EQ(std::string(e.what()), "disk full at " + std::to_string(c.failAt))
                    << c.name;
            }
        }
        EXPECT_TRUE(thrown) << c.name;
        EXPECT_FALSE(writer.finished) << c.name;
        EXPECT_EQ(int(writer.numbers.size()), c.writtenBeforeThrow) << c.name;
    }
}

} // namespace
} // namespace quelmor::cli
