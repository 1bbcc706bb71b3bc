// Work split across the cores, inside one call: threads start and end within runInParallel, so
// nothing runs between the host's calls.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>

namespace kv {

// How many threads work shared out across cores may use: KELVANE_THREADS when it is set to 1 or
// more, else one per core; at most 16.
unsigned workerThreads();

// Runs task(i) for every i in [0, n): task 0 on the calling thread, each other on a thread of
// its own. Every thread has ended when it returns; an exception thrown by a task (or a thread
// that cannot be started) is passed on after that.
void runInParallel(size_t n, const std::function<void(size_t)>& task);

// Runs task(i, w) for every i in [0, n) on at most `threads` threads (the calling one among
// them; w < threads tells which), each taking the next i not taken yet, so that tasks of uneven
// cost keep every thread busy. Ends and passes exceptions on as runInParallel does.
void runShared(size_t n, size_t threads, const std::function<void(size_t, size_t)>& task);

// Turns taken in order across threads: turn k comes when turns 0 to k - 1 have ended. Every turn
// must be ended (next) or all stopped (stop), else the later ones wait for ever.
class Turns {
public:
    bool wait(size_t k);  // waits for turn k; false when the turns were stopped
    void next();          // ends the current turn
    void stop();          // ends every turn waited for now or later, which then gives false

private:
    std::mutex lock_;
    std::condition_variable changed_;
    size_t turn_ = 0;
    bool stopped_ = false;
};

}  // namespace kv
