#pragma once

#include <cstdint>
#include <string>

#include "midi/vemo_midi_export.h"

/// A MIDI source or destination that the user may choose. A value.
///
/// Owner:   whoever asked for the list.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   the index is that of the device, among all of them.
/// Errors:  none. A default one has no name, and its index means nothing.
class VEMO_MIDI_EXPORT MidiEndPoint {
public:
    MidiEndPoint();
    MidiEndPoint(std::int32_t sourceIndex, std::string sourceName);
    MidiEndPoint(const MidiEndPoint&);
    MidiEndPoint(MidiEndPoint&&) noexcept;
    MidiEndPoint& operator=(const MidiEndPoint&);
    MidiEndPoint& operator=(MidiEndPoint&&) noexcept;
    ~MidiEndPoint();

    std::int32_t GetSourceIndex() const { return sourceIndex_; }
    std::string GetSourceName() const { return sourceName_; }

private:
    std::int32_t sourceIndex_ = 0;
    std::string sourceName_;
};
