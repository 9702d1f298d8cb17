#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "midi/msc_command.h"
#include "midi/msc_command_format.h"
#include "midi/msc_cue_number.h"
#include "midi/vemo_midi_export.h"

/// The cue that a show's other machines call for, as MIDI Show Control 1.1 sends
/// it: GO, to music or to audio effects. A value.
///
/// Owner:   whoever received it.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   bytes.
/// Errors:  std::runtime_error from the parsing constructor for whatever is not
///          such a message.
class VEMO_MIDI_EXPORT MscMessage {
public:
    /// data: the message from the device id on, without the F0 7F before it, and
    /// up to its F7 or the zero that closes its third field. What follows is not
    /// looked at.
    MscMessage(const std::uint8_t* data, std::size_t size);
    MscMessage(const MscMessage&);
    MscMessage(MscMessage&&) noexcept;
    MscMessage& operator=(const MscMessage&);
    MscMessage& operator=(MscMessage&&) noexcept;
    ~MscMessage();

    /// Of the machine that is meant, whichever it is.
    std::uint8_t DeviceId() const { return deviceId_; }
    MscCommandFormat Format() const { return format_; }
    MscCommand Command() const { return command_; }
    MscCueNumber EventId() const { return cue_; }

private:
    static MscCueNumber ReadMscCueNumber_(const std::uint8_t* data, std::size_t size);
    /// Leaves position on the byte that ends the field.
    static std::string ReadMscCueValue_(const std::uint8_t*& position, std::size_t size);

    std::uint8_t deviceId_;
    MscCommandFormat format_;
    MscCommand command_;
    MscCueNumber cue_;
};
