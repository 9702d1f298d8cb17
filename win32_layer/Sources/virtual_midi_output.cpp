#include "win32_layer/virtual_midi_output.h"

#include <algorithm>
#include <utility>

namespace win32_layer {

namespace {

// MIDI 1.0: a start bit, 8 data bits and a stop bit at 31,250 baud.
constexpr std::chrono::microseconds kWireTimePerByte{320};
// What may wait for the wire: about as much as interfaces buffer.
constexpr std::size_t kWireQueueBytes = 4096;

}  // namespace

struct VirtualMidiOutput::Impl {
    /// Bytes of all messages lie in one array: a long song has millions of them.
    struct Record {
        std::size_t offset;
        std::size_t count;
        std::chrono::nanoseconds time;
        std::size_t buffer;
    };

    const std::wstring name;
    const Speed speed;
    const bool keep;
    mutable std::mutex mutex;
    // Guarded by mutex.
    std::vector<std::uint8_t> bytes{};
    std::vector<Record> records{};
    std::size_t bufferCount = 0;
    std::size_t discardedCount = 0;
    std::chrono::nanoseconds wireIsFree{0};
};

VirtualMidiOutput::VirtualMidiOutput(std::wstring name, Speed speed, bool keep)
    : impl_(new Impl{std::move(name), speed, keep, {}}) {}

VirtualMidiOutput::~VirtualMidiOutput() = default;

std::wstring VirtualMidiOutput::GetName() const {
    return impl_->name;
}

std::string VirtualMidiOutput::GetIdentity() const {
    std::string identity = "virtual:";
    for (const wchar_t character : impl_->name)
        identity += static_cast<char>(character);
    return identity;
}

bool VirtualMidiOutput::Open() {
    return true;
}

void VirtualMidiOutput::Close() {}

void VirtualMidiOutput::Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
    const std::lock_guard lock(impl_->mutex);
    // The wire is reckoned and not waited for: nobody is held up, and virtual time
    // gives the same result as real time.
    if (impl_->speed == Speed::kWire) {
        const auto start = std::max(time, impl_->wireIsFree);
        const auto end = start + kWireTimePerByte * static_cast<std::int64_t>(count);
        if (end - time > kWireTimePerByte * static_cast<std::int64_t>(kWireQueueBytes)) {
            ++impl_->discardedCount;
            return;
        }
        impl_->wireIsFree = end;
        time = end;
    }
    if (!impl_->keep)
        return;
    impl_->records.push_back({impl_->bytes.size(), count, time, impl_->bufferCount});
    impl_->bytes.insert(impl_->bytes.end(), bytes, bytes + count);
}

void VirtualMidiOutput::EndBuffer() {
    const std::lock_guard lock(impl_->mutex);
    ++impl_->bufferCount;
}

std::vector<PlayedMessage> VirtualMidiOutput::GetPlayed() const {
    const std::lock_guard lock(impl_->mutex);
    std::vector<PlayedMessage> played;
    played.reserve(impl_->records.size());
    for (const Impl::Record& record : impl_->records) {
        const auto first = impl_->bytes.begin() + static_cast<std::ptrdiff_t>(record.offset);
        played.push_back({{first, first + static_cast<std::ptrdiff_t>(record.count)}, record.time, record.buffer});
    }
    return played;
}

std::size_t VirtualMidiOutput::GetBufferCount() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->bufferCount;
}

std::size_t VirtualMidiOutput::GetDiscardedCount() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->discardedCount;
}

void VirtualMidiOutput::Clear() {
    const std::lock_guard lock(impl_->mutex);
    impl_->bytes.clear();
    impl_->records.clear();
    impl_->bufferCount = 0;
    impl_->discardedCount = 0;
    impl_->wireIsFree = std::chrono::nanoseconds(0);
}

}  // namespace win32_layer
