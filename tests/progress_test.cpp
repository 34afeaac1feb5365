#include "MemoryClipEngine.h"
#include "TestSupport.h"

#include <vector>

using namespace quelmor::test;

TEST(ProgressChain, ChildReportsMapThroughTheParentsSubRange) {
    struct Case {
        float low, high, child, expected;
        bool middleLevel = false; // a middle level with sub-range 0..0.5 between them
    };
    const Case cases[] = {{0.2f, 0.4f, 0.5f, 0.3f},
                          {0.2f, 0.4f, 0.0f, 0.2f},
                          {0.6f, 0.9f, 1.0f, 0.9f},
                          {0.5f, 1.0f, 1.0f, 0.75f, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.low << ".." << c.high << " at " << c.child);
        RecordingProgress root;
        root.SetSubRange(c.low, c.high);
        ZUIdleAndProgressClass middle(&root);
        middle.SetSubRange(0.0f, 0.5f);
        ZUIdleAndProgressClass child(c.middleLevel ? &middle : &root);
        child.ReportProgress(c.child);
        EXPECT_FLOAT_EQ(child.progress, c.child);
        EXPECT_FLOAT_EQ(middle.progress, c.middleLevel ? 0.5f : 0.0f);
        ASSERT_EQ(root.seen.size(), 1u);
        EXPECT_FLOAT_EQ(root.seen[0], c.expected);
        EXPECT_FLOAT_EQ(root.progress, c.expected);
    }
}

TEST(ProgressChain, InterruptedStoresProgressThenThrows) {
    RecordingProgress parent;
    ZUIdleAndProgressClass child(&parent);
    child.SetInterrupted(true);
    EXPECT_TRUE(child.IsInterrupted());
    try {
        child.ReportProgress(0.7f);
        ADD_FAILURE() << "an interrupted report must throw";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrInterrupted);
    }
    EXPECT_FLOAT_EQ(child.progress, 0.7f);
    EXPECT_TRUE(parent.seen.empty()) << "the report must stop before the parent";

    // An interrupted parent stops a child's report on its way up.
    RecordingProgress top;
    top.SetInterrupted(true);
    ZUIdleAndProgressClass below(&top);
    EXPECT_THROW(below.ReportProgress(0.1f), DQErr);
    EXPECT_FLOAT_EQ(below.progress, 0.1f);
}

TEST(ProgressChain, SubRangeHelpers) {
    RecordingProgress p;
    p.ReportProgress(0.4f);
    p.CollapseSubRange();
    EXPECT_FLOAT_EQ(p.rangeLow, 0.4f);
    EXPECT_FLOAT_EQ(p.rangeHigh, 0.4f);
    p.SetSubRange(0.4f, 0.8f)->FinishSubRange();
    p.RepeatProgress();
    ASSERT_EQ(p.seen.size(), 3u);
    EXPECT_FLOAT_EQ(p.seen[1], 0.8f);
    EXPECT_FLOAT_EQ(p.seen[2], 0.8f);
}

TEST(ProgressChain, BandProgressPollsTheSharedWord) {
    RecordingProgress driver;
    int shared = 0;
    ZUIldeAndProgressMPInterruptible band(&driver, false, &shared);
    band.ReportProgress(0.5f);
    EXPECT_TRUE(driver.seen.empty()) << "a band that is not the master forwards nothing";
    shared = 1;
    EXPECT_THROW(band.ReportProgress(0.6f), DQErr);

    // The master forwards, and an interruption above it raises the shared word for the others.
    shared = 0;
    ZUIldeAndProgressMPInterruptible master(&driver, true, &shared);
    master.ReportProgress(0.25f);
    ASSERT_EQ(driver.seen.size(), 1u);
    driver.SetInterrupted(true);
    try {
        master.ReportProgress(0.5f);
        ADD_FAILURE() << "the master must pass the interruption on";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrInterrupted);
    }
    EXPECT_EQ(shared, 1);
    master.ReportProgress(0.75f); // a raised word makes the master return quietly
}
