#include "midi/how_to_play_with_midi_clock.h"

#include <optional>
#include <stdexcept>

namespace {

/// Gives the caller's lock back when the call into the clock ends, however it does.
class Released {
public:
    explicit Released(std::unique_lock<std::mutex>& lock) : lock_(lock) { lock_.unlock(); }
    ~Released() { lock_.lock(); }
    Released(const Released&) = delete;
    Released& operator=(const Released&) = delete;

private:
    std::unique_lock<std::mutex>& lock_;
};

}  // namespace

HowToPlayWithMidiClock::HowToPlayWithMidiClock(UserControls& userControls, MidiClock& midiClock)
    : HowToPlay(userControls), midiClock_(midiClock) {}
HowToPlayWithMidiClock::HowToPlayWithMidiClock(const HowToPlayWithMidiClock& other) = default;
HowToPlayWithMidiClock::HowToPlayWithMidiClock(HowToPlayWithMidiClock&& other) noexcept = default;
HowToPlayWithMidiClock::~HowToPlayWithMidiClock() = default;

void HowToPlayWithMidiClock::AdvanceToTickIndex(unsigned int tickIndex) {
    HowToPlay::AdvanceToTickIndex(tickIndex);
    if (UpdateClockTime())
        midiClock_.SetClockTime(GetClockTime(), tickIndex);
    if (UpdateClocksPerClick())
        midiClock_.SetClocksPerClick(GetClocksPerClick(), tickIndex);
}

void HowToPlayWithMidiClock::AdvanceToTickIndexWithLock(unsigned int tickIndex, std::unique_lock<std::mutex>& lock) {
    HowToPlay::AdvanceToTickIndex(tickIndex);
    // Read while the lock is held: once it is released another thread may have
    // moved the tracker, and the clock would get the values of another place.
    std::optional<double> clockTime;
    std::optional<int> clocksPerClick;
    if (UpdateClockTime())
        clockTime = GetClockTime();
    if (UpdateClocksPerClick())
        clocksPerClick = GetClocksPerClick();
    if (!clockTime && !clocksPerClick)
        return;
    const Released released(lock);
    if (clockTime)
        midiClock_.SetClockTime(*clockTime, tickIndex);
    if (clocksPerClick)
        midiClock_.SetClocksPerClick(*clocksPerClick, tickIndex);
}

void HowToPlayWithMidiClock::SetHighSpeed() {
    HowToPlay::SetHighSpeed();
    midiClock_.SetClockTime(GetClockTime(), 0);
}

void HowToPlayWithMidiClock::GetCaesuraResumeParams(unsigned int tickIndex, double* clockTime, int* clocksPerClick) {
    const std::optional<unsigned int> beat = FindFirstBeatFrom_(tickIndex);
    if (!beat)
        throw std::out_of_range("HowToPlayWithMidiClock exceeded the limits of the beat map.");
    if (clockTime)
        *clockTime = GetClockTimeAtTickIndex_(*beat);
    if (clocksPerClick)
        *clocksPerClick = GetClocksPerClickAtTickIndex(*beat);
}
