// The plug-in run by the stand-in host with 1, 2 and 3 workers makes the same pixels: the host's
// worker count reaches the plug-in's fork and nothing in the picture depends on it.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {

class SparkThreadsTest : public test::FolderTest {};

TEST_F(SparkThreadsTest, FramesAreBitIdenticalForEveryWorkerCount) {
    test::WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8, 128, 112);
    for (const char* threads : {"1", "2", "3"})
        Run("spark @c.%04d.png @t" + std::string(threads) +
            ".%04d.png --speed 0.4 --quality best --interpolation weighted --quiet --threads " +
            threads);
    test::ExpectSameFrames(In("t1.%04d.png"), In("t2.%04d.png"), "2 workers against 1");
    test::ExpectSameFrames(In("t1.%04d.png"), In("t3.%04d.png"), "3 workers against 1");
    EXPECT_EQ(OpenMedia(In("t1.%04d.png"))->FrameCount(), 7);
}

} // namespace
} // namespace quelmor::cli
