// When a tool is stopped, walked through on a clock of the test's own: no process, no waiting.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/process/StopPlan.hpp"

namespace {

using quorv::StopPlan;
using Action = StopPlan::Action;
using Clock = StopPlan::Clock;

Clock::time_point at(double seconds) {
    return Clock::time_point() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

// One moment of a run: the time, whether the tool exits at it, whether a pipe is still open, and
// what the plan must say then.
struct Step {
    double time;
    bool exitsNow;
    bool pipesOpen;
    Action expected;
};

struct Story {
    std::string name;
    double limit;
    std::vector<Step> steps;
    bool timedOut;
};

TEST(StopPlan, EveryWayARunEnds) {
    const Story stories[] = {
        {"exits and closes its pipes", 10,
         {{0.0, false, true, Action::wait}, {0.2, true, true, Action::wait}, {0.3, false, false, Action::finish}}, false},
        {"outlives its limit, goes on SIGTERM", 1,
         {{0.5, false, true, Action::wait}, {1.0, false, true, Action::terminate}, {1.1, true, false, Action::kill}}, true},
        {"ignores SIGTERM: killed after the grace", 1,
         {{1.0, false, true, Action::terminate}, {1.4, false, true, Action::wait}, {1.5, false, true, Action::kill}}, true},
        {"leaves a child holding the pipe: drained, then stopped", 10,
         {{0.1, true, true, Action::wait}, {0.59, false, true, Action::wait}, {0.6, false, true, Action::terminate},
          {0.7, false, false, Action::kill}},
         false},
        {"the drain never runs past the limit", 1,
         {{0.9, true, true, Action::wait}, {1.0, false, true, Action::terminate}}, false},
        {"no limit: only the tool's own end finishes it", 0,
         {{1e6, false, true, Action::wait}, {2e6, true, false, Action::finish}}, false},
        {"a limit that isn't a number is none", std::nan(""), {{1e6, false, true, Action::wait}}, false},
        {"a limit of centuries is none", 1e12, {{1e8, false, true, Action::wait}}, false},
    };
    for (const auto& story : stories) {
        StopPlan plan(at(0), story.limit);
        for (const auto& step : story.steps) {
            if (step.exitsNow) plan.exited(at(step.time));
            EXPECT_EQ(plan.decide(at(step.time), step.pipesOpen), step.expected) << story.name << " at " << step.time;
        }
        EXPECT_EQ(plan.timedOut(), story.timedOut) << story.name;
    }
}

TEST(StopPlan, ALastLookIsDueOnlyAtTheDeadlineOfARunningTool) {
    StopPlan plan(at(0), 2);
    EXPECT_FALSE(plan.dueForLastLook(at(1.99)));
    EXPECT_TRUE(plan.dueForLastLook(at(2)));
    // Seen to have ended just in time: not a timeout.
    plan.exited(at(2));
    EXPECT_FALSE(plan.dueForLastLook(at(2)));
    EXPECT_EQ(plan.decide(at(2), false), Action::finish);
    EXPECT_FALSE(plan.timedOut());
}

TEST(StopPlan, WakesAtTheNextMomentThatCanChangeItsMind) {
    StopPlan plan(at(0), 5);
    EXPECT_EQ(plan.wake(), at(5));
    plan.exited(at(1));
    EXPECT_EQ(plan.wake(), at(1.5));  // the end of the drain
    EXPECT_EQ(plan.decide(at(1.5), true), Action::terminate);
    EXPECT_EQ(plan.wake(), at(2.0));  // the end of the grace
    StopPlan endless(at(0), 0);
    EXPECT_EQ(endless.wake(), Clock::time_point::max());
}

}  // namespace
