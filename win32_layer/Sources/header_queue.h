#pragma once

#include <windows.h>

#include <mmsystem.h>

#include <chrono>

namespace win32_layer {

/// Stream headers in the order in which they were handed over, linked through
/// the headers themselves: a send must not allocate, it is made by the clock.
///
/// Owner:   a stream, by value.
/// Threads: one at a time (MidiStreams' lock).
/// Lock:    none.
class HeaderQueue {
public:
    using Time = std::chrono::steady_clock::time_point;

    bool IsEmpty() const { return !first_; }
    void Push(LPMIDIHDR header);
    /// Appends everything that the other holds, and empties it.
    void Take(HeaderQueue& other);
    /// Null when empty.
    LPMIDIHDR Pop();

    /// For the first header; the queue must not be empty.
    Time GetFirstDue() const;
    void SetAllDue(Time due);
    static void SetDue(LPMIDIHDR header, Time due);

private:
    LPMIDIHDR first_ = nullptr;
    LPMIDIHDR last_ = nullptr;
};

}  // namespace win32_layer
