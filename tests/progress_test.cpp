#include "TestSupport.h"

#include <vector>

namespace {
// Records every fraction reported to it.
class RecordingProgress : public ZUIdleAndProgressClass {
public:
    using ZUIdleAndProgressClass::ZUIdleAndProgressClass;
    void ReportProgress(float fraction) override {
        seen.push_back(fraction);
        ZUIdleAndProgressClass::ReportProgress(fraction);
    }
    std::vector<float> seen;
};
} // namespace

TEST(ProgressChain, ChildReportsMapThroughTheParentsSubRange) {
    struct Case {
        const char* name;
        float low, high, child, expected;
        bool middleLevel = false; // a middle level with sub-range 0..0.5 between them
    };
    const Case cases[] = {
        {"middle of 0.2..0.4", 0.2f, 0.4f, 0.5f, 0.3f},
        {"start of sub-range", 0.2f, 0.4f, 0.0f, 0.2f},
        {"end of sub-range", 0.6f, 0.9f, 1.0f, 0.9f},
        {"whole range", 0.0f, 1.0f, 0.25f, 0.25f},
        {"three levels compose", 0.5f, 1.0f, 1.0f, 0.75f, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingProgress root;
        root.SetSubRange(c.low, c.high);
        ZUIdleAndProgressClass middle(&root);
        middle.SetSubRange(0.0f, 0.5f);
        ZUIdleAndProgressClass child(c.middleLevel ? &middle : &root);
        child.ReportProgress(c.child);
        EXPECT_FLOAT_EQ(child.progress, c.child);
        if (c.middleLevel) {
            EXPECT_FLOAT_EQ(middle.progress, 0.5f);
        }
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
