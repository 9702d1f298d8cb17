#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <iostream>
#include <mutex>
#include <thread>
#include <utility>

/// How long a thread test waits for what a working build does at once.
inline constexpr std::chrono::seconds kPatience{60};

/// Runs the work on a thread of its own. What hangs keeps its objects for ever,
/// so that no later test could run: the process ends with a failure.
template <class Work>
void MustEnd(const char* what, Work work) {
    std::packaged_task<void()> task(std::move(work));
    std::future<void> ended = task.get_future();
    std::thread thread(std::move(task));
    if (ended.wait_for(kPatience) != std::future_status::ready) {
        std::cerr << "FAILED: this hangs: " << what << std::endl;
        std::_Exit(EXIT_FAILURE);
    }
    thread.join();
    ended.get();
}

/// Asks again and again, for what no Count can follow; false where it stays untrue.
template <class Condition>
bool WaitUntil(const Condition& isTrue) {
    const auto end = std::chrono::steady_clock::now() + kPatience;
    while (!isTrue()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// What other threads have reached, for a test that waits for it.
class Count {
public:
    void Add() {
        std::lock_guard lock(mutex_);
        ++count_;
        changed_.notify_all();
    }
    int Get() const {
        std::lock_guard lock(mutex_);
        return count_;
    }
    bool WaitFor(int count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return count_ >= count; });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    int count_ = 0;
};

/// Holds a thread at a door until the test opens it.
class Door {
public:
    void Pass() {
        arrived_.Add();
        std::unique_lock lock(mutex_);
        opened_.wait(lock, [&] { return open_; });
    }
    bool WaitForArrival() { return arrived_.WaitFor(1); }
    void Open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        opened_.notify_all();
    }

private:
    Count arrived_;
    std::mutex mutex_;
    std::condition_variable opened_;
    bool open_ = false;
};
