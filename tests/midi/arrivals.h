#pragma once

#include <chrono>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/midi/patience.h"

/// What a callback is told, and when and on which thread.
///
/// Threads: any.
template <class Value>
class Arrivals {
public:
    struct Arrival {
        Value value;
        std::chrono::steady_clock::time_point time;
        std::thread::id thread;
    };

    std::function<void(Value)> Callback() {
        return [this](Value value) {
            {
                std::lock_guard lock(mutex_);
                arrivals_.push_back({value, std::chrono::steady_clock::now(), std::this_thread::get_id()});
            }
            count_.Add();
        };
    }
    bool WaitFor(int count) { return count_.WaitFor(count); }
    int Count() const { return count_.Get(); }
    std::vector<Arrival> Get() const {
        std::lock_guard lock(mutex_);
        return arrivals_;
    }

private:
    mutable std::mutex mutex_;
    std::vector<Arrival> arrivals_;
    ::Count count_;
};
