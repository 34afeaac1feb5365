// Worker control of the quelmor command: --threads is checked before anything is read or
// written, the default follows the cores this process may run on, and the pictures do not
// depend on the worker count.
#include <gtest/gtest.h>
#include <sched.h>

#include <string>
#include <vector>

#include "CliTestSupport.h"
#include "cli/Threads.h"

namespace quelmor::cli {
namespace {

class ThreadsTest : public test::FolderTest {};

TEST(ParseThreadsTest, TakesTheEdgesOfTheRange) {
    // The refusals outside the range are in the command's refusal suite.
    for (const char* good : {"1", "64", "0002"})
        EXPECT_EQ(ParseThreads(good), std::stoi(good)) << good;
}

TEST(AvailableCoresTest, FollowsTheAffinityMaskAFarmGrants) {
    cpu_set_t all;
    ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
    // One core granted, as a scheduler does for a task of one CPU.
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
        if (CPU_ISSET(cpu, &all)) {
            CPU_SET(cpu, &one);
            break;
        }
    ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
    const int granted = AvailableCores();
    ASSERT_EQ(sched_setaffinity(0, sizeof all, &all), 0);
    EXPECT_EQ(granted, 1);
    EXPECT_EQ(AvailableCores(), std::min(CPU_COUNT(&all), kMostThreads));
}

TEST_F(ThreadsTest, SynthWritesEveryFrameUnderItsOwnNumberOnAnyWorkerCount) {
    for (const char* threads : {"1", "3"})
        Run("synth @s" + std::string(threads) +
            ".%04d.png --frames 5 --steps 2 --size 40x24 "
            "--quiet --threads " +
            threads);
    test::ExpectSameFrames(In("s1.%04d.png"), In("s3.%04d.png"), "source frames");
    test::ExpectSameFrames(In("true_s1.%04d.png"), In("true_s3.%04d.png"), "true frames");
    EXPECT_EQ(OpenMedia(In("true_s3.%04d.png"))->FrameCount(), 10);
}

// The command's own workers and the plug-in's, run by the stand-in host: the worker count
// reaches every fork and nothing in the picture depends on it.
TEST_F(ThreadsTest, FramesAreBitIdenticalForEveryWorkerCount) {
    // Tall enough for three bands of rows in the engine's flow and warps.
    test::WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8, 128, 112);
    for (const std::string command : {"retime", "spark"}) {
        for (const char* threads : {"1", "2", "3"})
            Run(command + " @c.%04d.png @" + command + threads +
                ".%04d.png --speed 0.4 --quality best --interpolation weighted --quiet --threads " +
                threads);
        const std::string one = In(command + "1.%04d.png");
        test::ExpectSameFrames(one, In(command + "2.%04d.png"), command + ", 2 workers against 1");
        test::ExpectSameFrames(one, In(command + "3.%04d.png"), command + ", 3 workers against 1");
        // The slow motion made frames of its own, not copies of the source.
        EXPECT_EQ(OpenMedia(one)->FrameCount(), 7) << command;
        EXPECT_LT(test::FramePsnr(In("c.%04d.png"), 0, one, 1), 60.0) << command;
    }
}

} // namespace
} // namespace quelmor::cli
