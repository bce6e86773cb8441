#include "support/process/StopPlan.hpp"

#include <algorithm>
#include <cmath>

namespace quorv {

namespace {

StopPlan::Clock::duration span(StopPlan::Seconds s) { return std::chrono::duration_cast<StopPlan::Clock::duration>(s); }

}  // namespace

StopPlan::StopPlan(Clock::time_point start, double timeLimit) {
    // It must stay clear of the clock's range.
    const double limit = std::min(timeLimit, 1e9);
    const bool limited = std::isfinite(limit) && limit > 0;
    deadline_ = limited ? start + span(Seconds(limit)) : Clock::time_point::max();
}

bool StopPlan::dueForLastLook(Clock::time_point now) const { return !termSent_ && !exited_ && now >= deadline_; }

void StopPlan::exited(Clock::time_point now) {
    if (exited_) return;
    exited_ = true;
    drainEnd_ = std::min(deadline_, now + span(drainPeriod));
}

StopPlan::Action StopPlan::terminate(Clock::time_point now) {
    termSent_ = true;
    killAt_ = now + span(gracePeriod);
    return Action::terminate;
}

StopPlan::Action StopPlan::decide(Clock::time_point now, bool pipesOpen) {
    if (!termSent_ && !exited_ && now >= deadline_) {
        timedOut_ = true;
        return terminate(now);
    }
    if (!termSent_ && exited_ && pipesOpen && now >= drainEnd_) return terminate(now);
    // Whatever ignored SIGTERM, or never held the pipe, goes now.
    if (termSent_ && (now >= killAt_ || (exited_ && !pipesOpen))) return Action::kill;
    if (exited_ && !pipesOpen) return Action::finish;
    return Action::wait;
}

StopPlan::Clock::time_point StopPlan::wake() const {
    if (termSent_) return killAt_;
    return exited_ ? drainEnd_ : deadline_;
}

}  // namespace quorv
