#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "win32_layer/midi_input_device.h"

namespace win32_layer {

/// A MIDI input inside the process: whoever has it plays the controller.
///
/// Owner:   see MidiInputDevice.
/// Threads: any.
/// Lock:    one of its own, before those of the layer.
class WIN32_LAYER_EXPORT VirtualMidiInput : public MidiInputDevice {
public:
    explicit VirtualMidiInput(std::wstring name);
    ~VirtualMidiInput() override;

    std::wstring GetName() const override;
    std::string GetIdentity() const override;
    bool Open(Sink sink) override;
    void Close() override;

    /// As they come over the wire, whole messages or not. Heard by nobody where the
    /// input is not open.
    void Send(const std::vector<std::uint8_t>& bytes);
    /// The next opens are refused, or not any more.
    void SetRefusesOpen(bool refuses);
    bool IsOpen() const;

private:
    const std::wstring name_;
    mutable std::mutex mutex_;
    // Guarded by mutex_.
    Sink sink_;
    bool refusesOpen_ = false;
};

}  // namespace win32_layer
