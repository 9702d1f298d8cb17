#include "midi/midi_buffer.h"

#include <chrono>

#include "vemo_core/callback_dispatcher.h"

MidiBuffer::MidiBuffer(std::uint8_t portCount, const std::string& name) : portCount_(portCount), name_(name) {}
MidiBuffer::~MidiBuffer() = default;

std::uint16_t MidiBuffer::GetPortEventCount(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    return portEventCounts_[portIndex];
}

void MidiBuffer::Reset() {
    std::scoped_lock lock(hasDataMutex_, mutex_);
    hasData_ = false;
    outputIsAbandoned_ = false;
    tickIndex_ = 0;
    isLastBuffer_ = false;
    isFirstBuffer_ = false;
    shouldSendAllNotesOff_ = false;
    clockNumber_ = 0;
    ResetPortEventCounts();
    currentProgramIds_.clear();
    hasPluginIds_ = false;
}

void MidiBuffer::ResetPortEventCounts() {
    std::lock_guard lock(mutex_);
    portEventCounts_.clear();
}

std::uint32_t MidiBuffer::GetTickIndex() const {
    std::lock_guard lock(mutex_);
    return tickIndex_;
}

void MidiBuffer::SetTickIndex(std::uint32_t tickIndex) {
    std::lock_guard lock(mutex_);
    tickIndex_ = tickIndex;
}

int MidiBuffer::GetClockNumber() const {
    std::lock_guard lock(mutex_);
    return clockNumber_;
}

void MidiBuffer::SetClockNumber(int clockNumber) {
    std::lock_guard lock(mutex_);
    clockNumber_ = clockNumber;
}

double MidiBuffer::GetClockTimeSeconds(double beatsPerMinute) const {
    return 1.0 / (clocksPerClick_ * (beatsPerMinute / 60.0));
}

std::uint8_t MidiBuffer::GetPortCount() const {
    std::lock_guard lock(mutex_);
    return portCount_;
}

bool MidiBuffer::GetIsFirstBuffer() const {
    std::lock_guard lock(mutex_);
    return isFirstBuffer_;
}

void MidiBuffer::SetIsFirstBuffer() {
    std::lock_guard lock(mutex_);
    isFirstBuffer_ = true;
}

bool MidiBuffer::GetIsLastBuffer() const {
    std::lock_guard lock(mutex_);
    return isLastBuffer_;
}

void MidiBuffer::SetIsLastBuffer(bool isLast) {
    std::lock_guard lock(mutex_);
    isLastBuffer_ = isLast;
    if (isLast)
        SetHasData(true);
}

bool MidiBuffer::GetShouldSendAllNotesOff() {
    std::lock_guard lock(mutex_);
    return std::exchange(shouldSendAllNotesOff_, false);
}

void MidiBuffer::SetShouldSendAllNotesOff() {
    std::lock_guard lock(mutex_);
    if (!isFirstBuffer_)
        shouldSendAllNotesOff_ = true;
}

bool MidiBuffer::GetShouldSendAllCCsOff() {
    std::lock_guard lock(mutex_);
    return std::exchange(shouldSendAllCCsOff_, false);
}

void MidiBuffer::SetShouldSendAllCCsOff() {
    std::lock_guard lock(mutex_);
    if (!isFirstBuffer_)
        shouldSendAllCCsOff_ = true;
}

void MidiBuffer::SetPluginIds(PluginIds&& ids) {
    std::lock_guard lock(mutex_);
    onDeckPluginIds_ = std::move(ids);
    hasPluginIds_ = true;
}

void MidiBuffer::SetHasData(bool hasData) {
    // One waiter at the most: either the filler waits for an empty buffer or the
    // player for a full one.
    std::lock_guard lock(hasDataMutex_);
    hasData_ = hasData;
    hasDataCondition_.notify_one();
}

bool MidiBuffer::WaitUntilNeedsData() {
    std::unique_lock lock(hasDataMutex_);
    hasDataCondition_.wait(lock, [this] { return !hasData_; });
    return true;
}

bool MidiBuffer::WaitUntilReadyForOutput() {
    std::unique_lock lock(hasDataMutex_);
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    return hasDataCondition_.wait_until(lock, giveUp, [this] { return hasData_ || outputIsAbandoned_; }) && hasData_;
}

void MidiBuffer::AbandonOutput() {
    std::lock_guard lock(hasDataMutex_);
    outputIsAbandoned_ = true;
    hasDataCondition_.notify_all();
}

void MidiBuffer::SendProgramChanges() {
    std::lock_guard lock(mutex_);
    if (!currentProgramIds_.empty())
        notify::callbackDispatcher.Notify(notify::names::currentProgramIds, &currentProgramIds_);
}

void MidiBuffer::FilterProgramChange(std::uint8_t portIndex, const vemo_midi::VoiceEvent& event) {
    const auto [status, data1, data2] = event.message;
    if ((status & 0xF0) != 0xC0)
        return;
    const auto key = static_cast<std::uint16_t>((portIndex << 8) | (status & 0x0F));
    currentProgramIds_[key] = data1;
}

namespace {

constexpr std::uint8_t kControlChange = 0xB0;
constexpr std::uint8_t kAllNotesOff = 123;
constexpr std::uint8_t kResetAllControllers = 121;

}  // namespace

void AddAllNotesOff(MidiBuffer& buffer) {
    for (std::uint16_t channel = 0; channel < 16; ++channel) {
        buffer.AddEventToBuffer(0, {0, kControlChange, channel, kAllNotesOff, 0});
        buffer.AddEventToBuffer(0, {0, kControlChange, channel, kResetAllControllers, 0});
    }
    buffer.DoneAddingEventsToBuffer();
}

void AddAllCCsOff(MidiBuffer& buffer) {
    for (std::uint16_t channel = 0; channel < 16; ++channel)
        buffer.AddEventToBuffer(0, {0, kControlChange, channel, kResetAllControllers, 0});
    buffer.DoneAddingEventsToBuffer();
}
