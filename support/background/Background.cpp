#include "support/background/Background.hpp"

#include <sys/resource.h>
#include <unistd.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "support/posix/Compat.hpp"

namespace quorv {
namespace {

thread_local bool isWorker = false;

class Pool {
public:
    Pool() {
        const unsigned n = std::max(2u, std::thread::hardware_concurrency());
        for (unsigned i = 0; i < n; ++i) threads_.emplace_back([this] { loop(); });
    }
    ~Pool() {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        cv_.notify_all();
        for (auto& t : threads_) t.join();
    }
    void push(std::function<void()> fn) {
        {
            std::lock_guard lock(mutex_);
            queue_.push_back(std::move(fn));
        }
        cv_.notify_one();
    }
    unsigned size() const { return static_cast<unsigned>(threads_.size()); }

private:
    void loop() {
        isWorker = true;
        // Utility priority: background work yields to what the user is doing.
        compat::lowerThreadPriority(10);
        for (;;) {
            std::function<void()> fn;
            {
                std::unique_lock lock(mutex_);
                cv_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
                if (queue_.empty()) return;  // stopping, and everything queued is done
                fn = std::move(queue_.front());
                queue_.pop_front();
            }
            fn();
        }
    }

    std::mutex mutex_;
    std::condition_variable cv_;
    std::deque<std::function<void()>> queue_;
    bool stopping_ = false;
    std::vector<std::thread> threads_;
};

Pool& pool() {
    static Pool p;
    return p;
}

}  // namespace

void Background::enqueue(std::function<void()> fn) { pool().push(std::move(fn)); }

void Background::post(std::function<void()> fn) {
    enqueue([fn = std::move(fn), h = currentHost()] {
        HostScope scope(h);
        fn();
    });
}

bool Background::onWorker() { return isWorker; }

unsigned Background::workers() { return pool().size(); }

}  // namespace quorv
