#include "midi/win32/data_buffer.h"

#include <chrono>
#include <cstring>
#include <utility>

#include "midi/Sources/win32/midi_call.h"
#include "midi/midi_implementation_error.h"
#include "midi/win32/device_diagnostics.h"
#include "zell/cout_buffer.h"
#include "zell/format.h"

namespace {

constexpr char kSource[] = "midi/Sources/win32/data_buffer";

// The platform's own MIDIEVENT ends in a parameter array and takes 16 bytes; a
// short event is its first three members.
struct StreamEvent {
    std::uint32_t deltaTime;
    std::uint32_t streamId;
    std::uint32_t event;
};
static_assert(sizeof(StreamEvent) == 12);

}  // namespace

DataBuffer::DataBuffer(std::uint16_t bufferSize, std::uint8_t portIndex, const std::string& name)
    : bufferSize_(bufferSize),
      maxEventCount_(static_cast<std::uint16_t>(bufferSize / sizeof(StreamEvent))),
      rawData_(std::make_unique<std::uint8_t[]>(bufferSize)),
      portIndex_(portIndex),
      name_(name),
      inUseMutex_(std::make_unique<std::mutex>()),
      midiStreamOutDone_(std::make_unique<std::condition_variable>()) {
    midiHeader_.lpData = reinterpret_cast<LPSTR>(rawData_.get());
    midiHeader_.dwUser = reinterpret_cast<DWORD_PTR>(this);
    midiHeader_.dwFlags = MHDR_ISSTRM;
}

DataBuffer::DataBuffer(DataBuffer&& other) noexcept
    : bufferSize_(std::exchange(other.bufferSize_, std::uint16_t{0})),
      maxEventCount_(std::exchange(other.maxEventCount_, std::uint16_t{0})),
      rawData_(std::move(other.rawData_)),
      eventCount_(std::exchange(other.eventCount_, std::uint16_t{0})),
      useChannel15_(other.useChannel15_),
      midiHeader_(other.midiHeader_),
      headerIsPrepared_(std::exchange(other.headerIsPrepared_, false)),
      preparedOutputHandle_(std::exchange(other.preparedOutputHandle_, nullptr)),
      tickIndex_(other.tickIndex_),
      portIndex_(other.portIndex_),
      name_(std::move(other.name_)),
      inUse_(std::exchange(other.inUse_, false)),
      inUseMutex_(std::move(other.inUseMutex_)),
      midiStreamOutDone_(std::move(other.midiStreamOutDone_)) {
    midiHeader_.dwUser = reinterpret_cast<DWORD_PTR>(this);
}

DataBuffer& DataBuffer::operator=(DataBuffer&& other) noexcept {
    if (this == &other)
        return *this;
    std::destroy_at(this);
    return *std::construct_at(this, std::move(other));
}

DataBuffer::~DataBuffer() = default;

void DataBuffer::AddVoiceEvent(const vemo_midi::VoiceEvent& event) {
    const std::uint32_t status = event.message.status;
    const std::uint32_t data1 = event.message.data1;
    const std::uint32_t data2 = event.message.data2;
    if (!event.IsValidVoiceEvent())
        zell::CoutBuffer() << "Attempting to add invalid voice event:"
                           << "\n  status = " << (status & 0xF0) << "\n  data1 = " << data1 << "\n  data2 = " << data2
                           << zell::endl;
    AddRecord((data2 << 16) | (data1 << 8) | status | (useChannel15_ ? 0x0Fu : 0u));
}

void DataBuffer::AddCallbackEvent(std::uint32_t event) {
    AddRecord(event);
}

void DataBuffer::AddRecord(std::uint32_t event) {
    if (GetBufferIsFull())
        return;
    const StreamEvent record{0, 0, event};
    std::memcpy(rawData_.get() + eventCount_ * sizeof(StreamEvent), &record, sizeof(record));
    ++eventCount_;
}

std::string DataBuffer::GetBufferName() const {
    return zell::format("%s data buffer %d", name_, portIndex_);
}

void DataBuffer::SetHeaderLengths() {
    midiHeader_.dwBufferLength = static_cast<DWORD>(eventCount_ * sizeof(StreamEvent));
    midiHeader_.dwBytesRecorded = midiHeader_.dwBufferLength;
}

MIDIHDR& DataBuffer::GetMidiHeader() {
    SetHeaderLengths();
    return midiHeader_;
}

void DataBuffer::PrepareHeader(HMIDIOUT handle) {
    SetHeaderLengths();
    const int line = __LINE__ + 1;
    const MMRESULT result = midiOutPrepareHeader(handle, &midiHeader_, sizeof(midiHeader_));
    if (result != MMSYSERR_NOERROR)
        ThrowMidiCallFailed(kSource, line, "calling midiOutPrepareHeader", result, GetMidiErrorAsString(result));
    headerIsPrepared_ = true;
    preparedOutputHandle_ = handle;
}

void DataBuffer::UnprepareHeader(HMIDIOUT handle) {
    const int line = __LINE__ + 1;
    const MMRESULT result = midiOutUnprepareHeader(handle, &midiHeader_, sizeof(midiHeader_));
    if (result != MMSYSERR_NOERROR)
        ThrowMidiCallFailed(kSource, line, "calling midiOutUnprepareHeader", result, GetMidiErrorAsString(result));
    headerIsPrepared_ = false;
    preparedOutputHandle_ = nullptr;
}

void DataBuffer::SetInUse() {
    std::lock_guard lock(*inUseMutex_);
    if (inUse_)
        throw MidiImplementationError(zell::format("%s in use", GetBufferName()));
    inUse_ = true;
}

bool DataBuffer::GetInUse() const {
    std::lock_guard lock(*inUseMutex_);
    return inUse_;
}

void DataBuffer::SignalMidiStreamOutDone() {
    // Notified under the lock: the waiter may drop the buffer as soon as it sees
    // that it is free.
    std::lock_guard lock(*inUseMutex_);
    inUse_ = false;
    midiStreamOutDone_->notify_one();
}

bool DataBuffer::WaitForMidiStreamOutDone(int seconds) {
    std::unique_lock lock(*inUseMutex_);
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    return midiStreamOutDone_->wait_until(lock, giveUp, [this] { return !inUse_; });
}
