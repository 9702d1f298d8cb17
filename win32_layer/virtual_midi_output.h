#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "win32_layer/midi_output_device.h"

namespace win32_layer {

/// A message that a virtual output has played.
struct PlayedMessage {
    std::vector<std::uint8_t> bytes;
    std::chrono::nanoseconds time;  // at wire speed: when its last byte is over
    std::size_t buffer;             // number of the stream buffer it came in, from 0
};

/// A MIDI output inside the process that keeps what it played.
///
/// Owner:   see MidiOutputDevice.
/// Threads: any.
/// Lock:    one of its own, a leaf.
/// Errors:  at wire speed a message that would wait behind more than 4,096 bytes
///          is discarded and counted.
class WIN32_LAYER_EXPORT VirtualMidiOutput : public MidiOutputDevice {
public:
    enum class Speed {
        kAtOnce,
        kWire  // 320 microseconds a byte, as MIDI 1.0's 31,250 baud
    };
    /// keep: false plays without keeping anything (a long run).
    explicit VirtualMidiOutput(std::wstring name, Speed speed = Speed::kAtOnce, bool keep = true);
    ~VirtualMidiOutput() override;

    std::wstring GetName() const override;
    std::string GetIdentity() const override;
    bool Open() override;
    void Close() override;
    void Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) override;
    void EndBuffer() override;

    std::vector<PlayedMessage> GetPlayed() const;
    std::size_t GetBufferCount() const;
    std::size_t GetDiscardedCount() const;
    /// Counts from 0 again, and leaves the wire free.
    void Clear();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace win32_layer
