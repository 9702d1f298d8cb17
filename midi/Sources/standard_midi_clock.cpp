#include "midi/standard_midi_clock.h"

#include <stdexcept>

#include "zell/cout_buffer.h"

/// Counts one clock as in flight for as long as it lives.
class StandardMidiClock::Flight {
public:
    explicit Flight(StandardMidiClock& clock) : clock_(clock) {
        std::lock_guard lock(clock_.flightMutex_);
        ++clock_.clocksInFlight_;
    }
    ~Flight() {
        std::lock_guard lock(clock_.flightMutex_);
        if (--clock_.clocksInFlight_ == 0)
            clock_.landed_.notify_all();
    }
    Flight(const Flight&) = delete;
    Flight& operator=(const Flight&) = delete;

private:
    StandardMidiClock& clock_;
};

StandardMidiClock::StandardMidiClock() : pendingClockStates_(&pendingMemory_) {}
StandardMidiClock::~StandardMidiClock() = default;

void StandardMidiClock::SetTicksPerClock(unsigned int ticksPerClock) {
    std::lock_guard lock(GetMutex());
    clockState_.SetTicksPerClock(ticksPerClock);
}

void StandardMidiClock::SetClocksPerClick(int clocksPerClick, unsigned int validAt) {
    std::lock_guard lock(GetMutex());
    if (!playbackIsArmed_)
        deferredClocksPerClick_.emplace_back(clocksPerClick, validAt);
    else if (validAt == 0)
        clockState_.SetClocksPerClick(clocksPerClick);
    else if (!IsTooLate_("WARNING: SetClocksPerClick ignored. ", validAt))
        pendingClockStates_[validAt].SetClocksPerClick(clocksPerClick);
}

void StandardMidiClock::SetClockTime(double clockTime, unsigned int validAt) {
    std::lock_guard lock(GetMutex());
    if (!playbackIsArmed_)
        deferredClockTimes_.emplace_back(clockTime, validAt);
    else if (validAt == 0)
        clockState_.SetClockTime(clockTime);
    else if (!IsTooLate_("WARNING: SetClockTime ignored. ", validAt))
        pendingClockStates_[validAt].SetClockTime(clockTime);
}

void StandardMidiClock::SetTickIndex(unsigned int tickIndex, int clockNumber, unsigned int ticksPerClock,
                                     int clocksPerClick, double clockTime, unsigned int validAt) {
    const ClockState state(tickIndex, clockNumber, ticksPerClock, clocksPerClick, clockTime);
    std::lock_guard lock(GetMutex());
    if (!playbackIsArmed_) {
        deferredClocksPerClick_.clear();
        deferredClockTimes_.clear();
    } else if (validAt == 0) {
        clockState_ = state;
    } else if (!IsTooLate_("WARNING: SetTickIndex ignored. ", validAt)) {
        pendingClockStates_[validAt] = state;
    }
}

void StandardMidiClock::SetCaesura(unsigned int caesuraTickIndex, double clockTime, int clocksPerClick) {
    // Held from the comparison on: a clock that passes in between would leave a
    // caesura behind it, and the show would not pause.
    std::lock_guard lock(GetMutex());
    const unsigned int now = clockState_.GetTickIndex();
    if (caesuraTickIndex <= now) {
        zell::CoutBuffer() << "WARNING: Ignored caesura. caesuraTickIndex = " << caesuraTickIndex
                           << ", clockState_.GetTickIndex() = " << now << zell::endl;
        return;
    }
    caesuraIsSet_ = true;
    caesuraTickIndex_ = caesuraTickIndex;
    caesuraClockTime_ = clockTime;
    caesuraClocksPerClick_ = clocksPerClick;
}

void StandardMidiClock::ArmPlayback(unsigned int ticksPerClock, int clocksPerClick, double clockTime,
                                    unsigned int tickIndex, int clockNumber) {
    std::lock_guard lock(GetMutex());
    clockState_ = ClockState(tickIndex, clockNumber, ticksPerClock, clocksPerClick, clockTime);
    pendingClockStates_.clear();
    playbackIsArmed_ = true;
    caesuraIsSet_ = false;
    ++run_.arming;
    for (const auto& [deferred, validAt] : deferredClocksPerClick_)
        SetClocksPerClick(deferred, validAt);
    deferredClocksPerClick_.clear();
    for (const auto& [deferred, validAt] : deferredClockTimes_)
        SetClockTime(deferred, validAt);
    deferredClockTimes_.clear();
}

void StandardMidiClock::DisarmPlayback() {
    std::lock_guard lock(GetMutex());
    playbackIsArmed_ = false;
    caesuraIsSet_ = false;
    pendingClockStates_.clear();
    deferredClocksPerClick_.clear();
    deferredClockTimes_.clear();
}

void StandardMidiClock::ContinuousMode() {
    BeginRun();
    StartClock();
}

void StandardMidiClock::ConductBeat() {
    throw std::logic_error("Not implemented");
}

void StandardMidiClock::SetConductorClickTimerCallback(TimerCallback, void*) {
    throw std::logic_error("Not implemented.");
}

void StandardMidiClock::SetDownbeatTimerCallback(TimerCallback, void*) {
    throw std::logic_error("Not implemented.");
}

bool StandardMidiClock::GetPlaybackIsArmed() {
    std::lock_guard lock(GetMutex());
    return playbackIsArmed_;
}

void StandardMidiClock::WaitForClocksInFlight() {
    std::unique_lock lock(flightMutex_);
    landed_.wait(lock, [this] { return clocksInFlight_ == 0; });
}

bool StandardMidiClock::AdvanceClock() {
    return AdvanceClock(GetRun());
}

bool StandardMidiClock::AdvanceClock(const Run& run) {
    // Before the test, so that whoever disarms and then waits misses no clock
    // that was found armed.
    const Flight flight(*this);
    if (!GetPlaybackIsArmed())
        return false;
    double beatsPerMinute = 0;
    {
        std::lock_guard lock(GetMutex());
        if (run_ != run)
            return false;
        beatsPerMinute = clockState_.GetBeatsPerMinute();
    }
    DoMidiClockCallback(beatsPerMinute);

    std::lock_guard lock(GetMutex());
    // A host that stopped and went on elsewhere while the clock was with the
    // callback put the state where its next clock is: advancing it would skip
    // one, and scheduling would make two chains.
    if (run_ != run)
        return false;
    clockState_.AdvanceClock();
    const unsigned int now = clockState_.GetTickIndex();
    if (const auto due = pendingClockStates_.find(now); due != pendingClockStates_.end()) {
        clockState_ = due->second;
        pendingClockStates_.erase(due);
    }
    if (caesuraIsSet_ && caesuraTickIndex_ == now) {
        caesuraIsSet_ = false;
        return false;
    }
    SetClockTimer(clockState_.GetClockTime());
    return true;
}

StandardMidiClock::Run StandardMidiClock::GetRun() const {
    std::lock_guard lock(GetMutex());
    return run_;
}

StandardMidiClock::Run StandardMidiClock::BeginRun() {
    std::lock_guard lock(GetMutex());
    ++run_.start;
    return run_;
}

bool StandardMidiClock::IsTooLate_(const char* warning, unsigned int validAt) const {
    const unsigned int now = clockState_.GetTickIndex();
    if (validAt >= now)
        return false;
    zell::CoutBuffer() << warning << "validAt=" << validAt << ", tickIndex=" << now << zell::endl;
    return true;
}
