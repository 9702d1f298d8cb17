#include "midi/win32/midi_buffer_win32.h"

#include <exception>
#include <stdexcept>

MidiBuffer* CreateMidiBuffer(std::uint8_t portCount, std::uint16_t dataBufferSize, const std::string& name) {
    return new MidiBufferWin32(portCount, dataBufferSize, name);
}

MidiBufferWin32::MidiBufferWin32(std::uint8_t portCount, std::uint16_t dataBufferSize, const std::string& name)
    : MidiBuffer(portCount, name), dataBufferSize_(dataBufferSize) {
    for (std::uint8_t port = 0; port < portCount; ++port)
        dataBuffers_.push_back(CreateDataBuffer(port));
}

MidiBufferWin32::~MidiBufferWin32() = default;

std::shared_ptr<DataBuffer> MidiBufferWin32::CreateDataBuffer(std::uint8_t portIndex) const {
    auto buffer = std::make_shared<DataBuffer>(dataBufferSize_, portIndex, GetName());
    if (portIndex != 0)
        buffer->SetUseChannel15();
    return buffer;
}

bool MidiBufferWin32::AddEventToBuffer(std::uint8_t portIndex, const vemo_midi::VoiceEvent& event) {
    std::lock_guard lock(mutex_);
    if (GetBufferIsFull(portIndex))
        return false;
    FilterProgramChange(portIndex, event);
    dataBuffers_[portIndex]->AddVoiceEvent(event);
    return true;
}

void MidiBufferWin32::DoneAddingEventsToBuffer() {}

bool MidiBufferWin32::GetBufferIsFull(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    return portIndex >= dataBuffers_.size() || dataBuffers_[portIndex]->GetBufferIsFull();
}

void* MidiBufferWin32::GetPacketDataAtPortIndex(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    return GetDataBuffer(portIndex).GetRawData();
}

std::uint16_t MidiBufferWin32::GetPortEventCount(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    return portIndex < dataBuffers_.size() ? dataBuffers_[portIndex]->GetEventCount() : std::uint16_t{0};
}

void MidiBufferWin32::ResetPortEventCounts() {
    std::lock_guard lock(mutex_);
    for (const auto& buffer : dataBuffers_)
        buffer->ResetEventCount();
}

void MidiBufferWin32::SetTickIndex(std::uint32_t tickIndex) {
    std::lock_guard lock(mutex_);
    MidiBuffer::SetTickIndex(tickIndex);
    if (!dataBuffers_.empty())
        dataBuffers_.front()->SetTickIndex(tickIndex);
}

void MidiBufferWin32::AddPositionCallback() {
    std::lock_guard lock(mutex_);
    GetDataBuffer(0).AddCallbackEvent(0x42000000);
}

DataBuffer& MidiBufferWin32::GetDataBuffer(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    if (portIndex >= dataBuffers_.size())
        throw std::out_of_range("invalid vector subscript");
    return *dataBuffers_[portIndex];
}

void MidiBufferWin32::PrepareHeaders(HMIDIOUT handle) {
    std::lock_guard lock(mutex_);
    for (const auto& buffer : dataBuffers_)
        buffer->PrepareHeader(handle);
}

void MidiBufferWin32::UnprepareHeaders(HMIDIOUT handle) {
    std::lock_guard lock(mutex_);
    std::exception_ptr firstError;
    for (const auto& buffer : dataBuffers_) {
        try {
            buffer->UnprepareHeader(handle);
        } catch (...) {
            if (!firstError)
                firstError = std::current_exception();
        }
    }
    if (firstError)
        std::rethrow_exception(firstError);
}

void MidiBufferWin32::QuarantineDataBuffer(std::uint8_t portIndex, HMIDIOUT handle) {
    std::lock_guard lock(mutex_);
    GetDataBuffer(portIndex);
    // Put in place also where it cannot be prepared: a port must never be left with
    // the buffer that the stream holds. The stream tries again before it sends.
    auto replacement = CreateDataBuffer(portIndex);
    quarantinedDataBuffers_.push_back(dataBuffers_[portIndex]);
    dataBuffers_[portIndex] = replacement;
    replacementsToPrepare_.insert(portIndex);
    PrepareReplacement(portIndex, handle);
}

void MidiBufferWin32::PrepareReplacement(std::uint8_t portIndex, HMIDIOUT handle) {
    std::lock_guard lock(mutex_);
    if (!replacementsToPrepare_.contains(portIndex))
        return;
    GetDataBuffer(portIndex).PrepareHeader(handle);
    replacementsToPrepare_.erase(portIndex);
}

void MidiBufferWin32::CleanUpQuarantinedDataBuffers(HMIDIOUT handle) {
    std::lock_guard lock(mutex_);
    for (std::size_t i = 0; i < quarantinedDataBuffers_.size();) {
        DataBuffer& buffer = *quarantinedDataBuffers_[i];
        const bool streamIsOpen = buffer.GetPreparedOutputHandle() == handle;
        if (streamIsOpen && buffer.GetInUse()) {
            ++i;
            continue;
        }
        if (streamIsOpen)
            buffer.UnprepareHeader(handle);
        quarantinedDataBuffers_.erase(quarantinedDataBuffers_.begin() + static_cast<std::ptrdiff_t>(i));
    }
}

void MidiBufferWin32::DropQuarantinedDataBuffers(HMIDIOUT closedHandle) {
    std::lock_guard lock(mutex_);
    std::erase_if(quarantinedDataBuffers_,
                  [=](const auto& buffer) { return buffer->GetPreparedOutputHandle() == closedHandle; });
}

bool MidiBufferWin32::GetHasQuarantinedDataBuffers() const {
    std::lock_guard lock(mutex_);
    return !quarantinedDataBuffers_.empty();
}

std::uint32_t MidiBufferWin32::GetQuarantinedDataBufferCount() const {
    std::lock_guard lock(mutex_);
    return static_cast<std::uint32_t>(quarantinedDataBuffers_.size());
}

void MidiBufferWin32::RetainDataBufferLock(std::uint8_t portIndex) {
    std::lock_guard lock(mutex_);
    retainedPorts_.insert(portIndex);
}
