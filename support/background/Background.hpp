#pragma once
// The process's one pool for blocking work (walks, tool runs, probes). Workers run at low
// priority and each task runs against the host of the thread that submitted it.

#include <functional>
#include <future>
#include <memory>
#include <type_traits>

#include "support/host/Host.hpp"

namespace quorv {

class Background {
public:
    // Runs fn on a worker and returns its future. Called from a worker itself, fn runs at once on
    // the calling thread, so a task that waits for another task can never starve the pool.
    template <class F>
    static auto run(F&& fn) -> std::future<std::invoke_result_t<F>> {
        using R = std::invoke_result_t<F>;
        auto task = std::make_shared<std::packaged_task<R()>>(std::forward<F>(fn));
        auto future = task->get_future();
        if (onWorker()) {
            (*task)();
        } else {
            enqueue([task, h = currentHost()] {
                HostScope scope(h);
                (*task)();
            });
        }
        return future;
    }

    // Runs fn and waits for it: the usual way for an engine to hand work off and take it back.
    template <class F>
    static auto await(F&& fn) -> std::invoke_result_t<F> {
        return run(std::forward<F>(fn)).get();
    }

    // Fire and forget; the pool finishes it before the process exits normally.
    static void post(std::function<void()> fn);

    static bool onWorker();
    static unsigned workers();

private:
    static void enqueue(std::function<void()> fn);
};

}  // namespace quorv
