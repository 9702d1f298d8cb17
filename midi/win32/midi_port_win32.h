#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "midi/midi_port.h"
#include "midi/vemo_midi_export.h"

/// A port of the platform of no particular direction. The platform's ports have
/// no unique ids: any is accepted, and it reports 0.
class VEMO_MIDI_EXPORT MidiPortWin32 : public MidiPort {
public:
    MidiPortWin32(std::uint8_t portIndex, bool);
    ~MidiPortWin32() override;

    bool SetUniqueId(int id) override;
    std::string GetDisplayName() override;
    int GetUniqueId() override;

protected:
    std::recursive_mutex mutex_;
};
