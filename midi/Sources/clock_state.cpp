#include "midi/clock_state.h"

#include <limits>

ClockState::ClockState() = default;

ClockState::ClockState(unsigned int tickIndex, int clockNumber, unsigned int ticksPerClock, int clocksPerClick,
                       double clockTime) {
    SetTickIndex(tickIndex);
    SetClockNumber(clockNumber);
    SetTicksPerClock(ticksPerClock);
    SetClocksPerClick(clocksPerClick);
    SetClockTime(clockTime);
}

ClockState::~ClockState() = default;

ClockState& ClockState::operator=(const ClockState& other) {
    if (this == &other)
        return *this;
    std::scoped_lock lock(mutex_, other.mutex_);
    if (other.tickIndexIsSet_)
        SetTickIndex(other.tickIndex_);
    if (other.clockNumberIsSet_)
        SetClockNumber(other.clockNumber_);
    if (other.ticksPerClockIsSet_)
        SetTicksPerClock(other.ticksPerClock_);
    if (other.clocksPerClickIsSet_)
        SetClocksPerClick(other.clocksPerClick_);
    if (other.clockTimeIsSet_)
        SetClockTime(other.clockTime_);
    return *this;
}

unsigned int ClockState::GetTickIndex() const {
    std::lock_guard lock(mutex_);
    return tickIndex_;
}

int ClockState::GetClockNumber() const {
    std::lock_guard lock(mutex_);
    return clockNumber_;
}

unsigned int ClockState::GetTicksPerClock() const {
    std::lock_guard lock(mutex_);
    return ticksPerClock_;
}

int ClockState::GetClocksPerClick() const {
    std::lock_guard lock(mutex_);
    return clocksPerClick_;
}

double ClockState::GetClockTime() const {
    std::lock_guard lock(mutex_);
    return clockTime_;
}

void ClockState::SetTickIndex(unsigned int tickIndex) {
    std::lock_guard lock(mutex_);
    tickIndex_ = tickIndex;
    tickIndexIsSet_ = true;
}

void ClockState::SetClockNumber(int clockNumber) {
    std::lock_guard lock(mutex_);
    clockNumber_ = clockNumber;
    clockNumberIsSet_ = true;
}

void ClockState::SetTicksPerClock(unsigned int ticksPerClock) {
    std::lock_guard lock(mutex_);
    ticksPerClock_ = ticksPerClock;
    ticksPerClockIsSet_ = true;
}

void ClockState::SetClocksPerClick(int clocksPerClick) {
    std::lock_guard lock(mutex_);
    clocksPerClick_ = clocksPerClick;
    clocksPerClickIsSet_ = true;
}

void ClockState::SetClockTime(double clockTime) {
    std::lock_guard lock(mutex_);
    clockTime_ = clockTime;
    clockTimeIsSet_ = true;
}

double ClockState::GetBeatsPerMinute() const {
    std::lock_guard lock(mutex_);
    const double secondsPerClick = clocksPerClick_ * clockTime_;
    return secondsPerClick == 0 ? 0 : 60.0 / secondsPerClick;
}

void ClockState::AdvanceClock() {
    std::lock_guard lock(mutex_);
    // A number that a host set at the end of its range must not overflow.
    const bool last = clockNumber_ == std::numeric_limits<int>::max() || clockNumber_ + 1 >= clocksPerClick_;
    clockNumber_ = last ? 0 : clockNumber_ + 1;
    tickIndex_ += ticksPerClock_;
}
