#pragma once

#include <map>
#include <utility>

#include "midi/vemo_midi_export.h"
#include "vemo_core/voice_event.h"

/// What must be sounding or set on one voice track's channel after some of its
/// events have played, so that a song can start, stop or change key anywhere.
/// Held notes inside the track's note range follow a transposition; those outside
/// it are switches of an instrument (articulations, splits) and never do.
///
/// Owner:   a value; MidiStream holds one per track.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   events as they stand in the song, untransposed; semitones.
/// Errors:  none; any event is accepted.
class VEMO_MIDI_EXPORT PersistentMIDI {
public:
    /// Events by note or controller number.
    using Events = std::map<unsigned char, vemo_midi::VoiceEvent>;

    /// The range (255, 255): every note is a switch, nothing is transposed.
    PersistentMIDI() = default;
    /// Lowest and highest note that follow a transposition.
    explicit PersistentMIDI(std::pair<unsigned char, unsigned char> range);
    void SetRange(std::pair<unsigned char, unsigned char> range);

    /// A note-on counts as held whatever its velocity, also 0.
    void AddEvent(const vemo_midi::VoiceEvent& event);
    /// Records the event and returns what is to be sent.
    vemo_midi::VoiceEvent AddEvent(const vemo_midi::VoiceEvent& event, signed char transposition);

    /// A note that leaves the range is folded back by one octave; by more only
    /// while it is no MIDI note at all.
    unsigned char GetTransposedNote(unsigned char note, signed char transposition) const;
    vemo_midi::VoiceEvent GetTransposedEvent(const vemo_midi::VoiceEvent& event, signed char transposition) const;

    /// The events that end what is held, but for the excluded numbers: a note-off
    /// with the note-on's velocity, a controller's value 0.
    Events GetInverseNotes(const Events& exclusions) const;
    Events GetInverseSwitches(const Events& exclusions) const;
    Events GetInverseCCs(const Events& exclusions) const;

    /// Those of the given events whose note is held here; it is held no longer.
    Events FilterNotes(const Events& events);
    Events FilterSwitches(const Events& events);
    /// Those of the given events whose controller is set here; it stays set.
    Events FilterCCs(const Events& events) const;

    const Events& GetNotes() const { return notes_; }
    const Events& GetSwitches() const { return switches_; }
    const Events& GetCCs() const { return ccs_; }
    /// Valid where HasProgramChange().
    const vemo_midi::VoiceEvent& GetProgramChange() const { return programChange_; }
    bool HasProgramChange() const { return hasProgramChange_; }
    /// Valid where GetHasPitchBend().
    const vemo_midi::VoiceEvent& GetPitchBend() const { return pitchBend_; }
    bool GetHasPitchBend() const { return hasPitchBend_; }
    void SetHasPitchBend(bool hasPitchBend) { hasPitchBend_ = hasPitchBend; }

    /// Notes, switches and controllers, to the console.
    void PrintYourself() const;

private:
    static Events GetInverse_(const Events& held, const Events& exclusions);
    bool IsInRange_(unsigned char note) const { return range_.first <= note && note <= range_.second; }

    std::pair<unsigned char, unsigned char> range_{255, 255};
    bool isTransposable_ = false;
    Events switches_;
    Events ccs_;
    Events notes_;
    vemo_midi::VoiceEvent programChange_;
    vemo_midi::VoiceEvent pitchBend_;
    bool hasProgramChange_ = false;
    bool hasPitchBend_ = false;
};
