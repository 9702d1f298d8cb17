#pragma once

#include <latch>
#include <thread>

/// Runs both at the same moment, the first on this thread, and returns when both have.
template <class First, class Second>
void AtOnce(const First& first, const Second& second) {
    std::latch both(2);
    std::thread other([&] {
        both.arrive_and_wait();
        second();
    });
    both.arrive_and_wait();
    first();
    other.join();
}
