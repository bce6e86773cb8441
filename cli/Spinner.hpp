#pragma once
// A spinner on standard error while something long runs, only when standard error is a terminal,
// so that output that is piped or captured never holds it.

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

namespace cli {

class Spinner {
public:
    // Shows nothing for the first few tenths of a second: quick work stays quiet.
    explicit Spinner(std::string text);
    ~Spinner();
    Spinner(const Spinner&) = delete;
    Spinner& operator=(const Spinner&) = delete;
    // Changes what it says, for work that reports how far it has got.
    void setText(std::string text);
    // Stops and clears the line.
    void stop();

private:
    std::mutex mutex_;
    std::string text_;
    std::atomic<bool> stopping_{false};
    std::thread thread_;
};

}  // namespace cli
