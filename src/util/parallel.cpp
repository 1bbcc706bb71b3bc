// Work across cores: threads started and joined within one call, tasks taken in turn.
#include "util/parallel.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <exception>
#include <thread>
#include <vector>

namespace kv {

unsigned workerThreads() {
    constexpr long kMax = 16;
    if (const char* env = std::getenv("KELVANE_THREADS")) {
        const long n = std::strtol(env, nullptr, 10);
        if (n >= 1) return static_cast<unsigned>(std::min(n, kMax));
    }
    return std::clamp(std::thread::hardware_concurrency(), 1u, unsigned(kMax));
}

void runInParallel(size_t n, const std::function<void(size_t)>& task) {
    std::vector<std::exception_ptr> errors(n + 1);
    auto guarded = [&](size_t i) {
        try {
            task(i);
        } catch (...) {
            errors[i] = std::current_exception();
        }
    };
    std::vector<std::thread> threads;
    try {
        threads.reserve(n);
        for (size_t i = 1; i < n; ++i) threads.emplace_back(guarded, i);
    } catch (...) {
        errors[n] = std::current_exception();  // the tasks not started are not run at all
    }
    if (n > 0 && !errors[n]) guarded(0);
    for (std::thread& t : threads) t.join();
    for (const std::exception_ptr& e : errors)
        if (e) std::rethrow_exception(e);
}

void runShared(size_t n, size_t threads, const std::function<void(size_t, size_t)>& task) {
    std::atomic<size_t> next{0};
    runInParallel(std::min(n, threads), [&](size_t w) {
        for (size_t i; (i = next.fetch_add(1, std::memory_order_relaxed)) < n;) task(i, w);
    });
}

bool Turns::wait(size_t k) {
    std::unique_lock<std::mutex> hold(lock_);
    changed_.wait(hold, [&] { return turn_ == k || stopped_; });
    return !stopped_;
}

void Turns::next() {
    {
        const std::lock_guard<std::mutex> hold(lock_);
        ++turn_;
    }
    changed_.notify_all();
}

void Turns::stop() {
    {
        const std::lock_guard<std::mutex> hold(lock_);
        stopped_ = true;
    }
    changed_.notify_all();
}

}  // namespace kv
