#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "midi/persistent_midi.h"
#include "vemo_core/voice_event.h"

/// One voice track's chase states at the beats of its song, packed, so that a
/// show of long songs fits in memory and a jump to any beat costs the same.
///
/// A state is a run of positions in the track's events: a whole state, then what
/// each beat changed, up to the beat asked for. Beats without a change share the
/// run before them. A run that has grown to more than twice its state gives way
/// to a new whole state, which the events since the last one have paid for: the
/// memory is linear in the events, and unpacking a state is linear in its size.
///
/// Owner:   MidiStream, one per track. A value: it keeps positions and no
///          pointers, and is asked with the events that it was built from.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   beats by index, 0 being the song's start; ticks.
/// Errors:  none.
class TrackSnapshots {
public:
    /// beatTicks ascend from 0; atStart is the state before the first event.
    TrackSnapshots(const std::vector<vemo_midi::VoiceEvent>& events, const std::vector<std::uint32_t>& beatTicks,
                   PersistentMIDI atStart);

    /// The last beat that has a snapshot: the first one after the track's last
    /// event, the song's last beat where events follow that, 0 without events.
    std::size_t GetLastBeat() const { return lastBeat_; }

    /// The state after every event before the beat, up to GetLastBeat().
    PersistentMIDI GetSnapshot(std::size_t beat, const std::vector<vemo_midi::VoiceEvent>& events) const;

private:
    struct Run {
        std::uint32_t beat;  // holds from this beat on, until the next run
        std::uint32_t begin;
        std::uint32_t end;
    };

    PersistentMIDI atStart_;
    std::vector<std::uint32_t> positions_;
    std::vector<Run> runs_;
    std::size_t lastBeat_ = 0;
};
