#include "midi/midi_clock.h"

#include <utility>

MidiClock::MidiClock() = default;
MidiClock::~MidiClock() = default;

void MidiClock::SetMidiClockCallback(std::function<void(double)> callback) {
    auto next = std::make_shared<const std::function<void(double)>>(std::move(callback));
    std::lock_guard lock(callbackMutex_);
    // The one before dies after the lock is released: what it captured may call
    // back into the clock when it is destroyed.
    callback_.swap(next);
}

void MidiClock::DoMidiClockCallback(double beatsPerMinute) {
    std::shared_ptr<const std::function<void(double)>> callback;
    {
        std::lock_guard lock(callbackMutex_);
        callback = callback_;
    }
    if (!callback)
        throw std::bad_function_call();
    (*callback)(beatsPerMinute);
}
