#pragma once
// When a tool run by Shell is stopped, decided apart from any process so that it can be tested on
// a clock of its own:
// - the tool exits and its pipes close: done;
// - the time limit passes with the tool still running: SIGTERM to its group, and `timedOut`;
// - the tool exits but something it started still holds a pipe: after a short drain, SIGTERM;
// - SIGTERM given, then the grace passes or everything has closed: SIGKILL, and done.

#include <chrono>

namespace quorv {

class StopPlan {
public:
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;

    // After the tool exits, how long whatever it left holding a pipe may still write.
    static constexpr Seconds drainPeriod{0.5};
    // Between SIGTERM and SIGKILL to the group.
    static constexpr Seconds gracePeriod{0.5};

    enum class Action { wait, terminate, kill, finish };

    // timeLimit in seconds; zero, less or not finite is no limit, and past a few decades a limit
    // is none either.
    StopPlan(Clock::time_point start, double timeLimit);

    // The deadline has come and the tool wasn't seen to exit: the caller looks once more
    // (it may have ended just in time, the news not yet read) before decide().
    bool dueForLastLook(Clock::time_point now) const;
    // The tool has exited (it is not reaped yet).
    void exited(Clock::time_point now);
    // What to do now, given whether either pipe is still open. kill and finish end the watch.
    Action decide(Clock::time_point now, bool pipesOpen);
    // When decide() has something new to say; Clock::time_point::max() for never.
    Clock::time_point wake() const;

    bool hasExited() const { return exited_; }
    bool timedOut() const { return timedOut_; }

private:
    Action terminate(Clock::time_point now);

    Clock::time_point deadline_;
    Clock::time_point drainEnd_ = Clock::time_point::max();
    Clock::time_point killAt_ = Clock::time_point::max();
    bool exited_ = false;
    bool termSent_ = false;
    bool timedOut_ = false;
};

}  // namespace quorv
