#include "midi/persistent_midi.h"

#include <iomanip>
#include <ios>
#include <string>

#include "zell/cout_buffer.h"
#include "zell/note_name.h"

using vemo_midi::VoiceEvent;

namespace {

constexpr int kOctave = 12;
constexpr int kHighestNote = 127;

using Events = PersistentMIDI::Events;

Events TakeHeld(Events& held, const Events& events) {
    Events taken;
    for (const auto& [note, event] : events)
        if (held.erase(note) == 1)
            taken.emplace_hint(taken.end(), note, event);
    return taken;
}

void PrintEvent(zell::CoutBuffer& out, const std::string& name, const VoiceEvent& event) {
    out << "    " << std::setfill(' ') << std::left << std::setw(8) << name;
    event.WriteString(out.Stream());
    out << zell::endl;
}

}  // namespace

PersistentMIDI::PersistentMIDI(std::pair<unsigned char, unsigned char> range) {
    SetRange(range);
}

void PersistentMIDI::SetRange(std::pair<unsigned char, unsigned char> range) {
    range_ = range;
    isTransposable_ = !(range.first == 255 && range.second == 255);
}

void PersistentMIDI::AddEvent(const VoiceEvent& event) {
    const auto number = event.message.data1;
    switch (event.message.status & 0xF0) {
        case 0x80:
            // From both, because the range may have been set after the note was struck.
            switches_.erase(number);
            notes_.erase(number);
            break;
        case 0x90: (IsInRange_(number) ? notes_ : switches_)[number] = event; break;
        case 0xB0: ccs_[number] = event; break;
        case 0xC0:
            programChange_ = event;
            hasProgramChange_ = true;
            break;
        case 0xE0:
            pitchBend_ = event;
            hasPitchBend_ = true;
            break;
    }
}

VoiceEvent PersistentMIDI::AddEvent(const VoiceEvent& event, signed char transposition) {
    AddEvent(event);
    const auto kind = event.message.status & 0xF0;
    const bool isNote = kind == 0x80 || kind == 0x90;
    return isNote && IsInRange_(event.message.data1) ? GetTransposedEvent(event, transposition) : event;
}

unsigned char PersistentMIDI::GetTransposedNote(unsigned char note, signed char transposition) const {
    if (!isTransposable_ || transposition == 0)
        return note;
    int transposed = note + transposition;
    if (transposed < range_.first)
        transposed += kOctave;
    else if (transposed > range_.second)
        transposed -= kOctave;
    // Beyond an octave one fold may not be enough, and a byte above 127 would be
    // taken for a status by the device.
    while (transposed < 0)
        transposed += kOctave;
    while (transposed > kHighestNote)
        transposed -= kOctave;
    return static_cast<unsigned char>(transposed);
}

VoiceEvent PersistentMIDI::GetTransposedEvent(const VoiceEvent& event, signed char transposition) const {
    VoiceEvent transposed = event;
    transposed.message.data1 = GetTransposedNote(event.message.data1, transposition);
    return transposed;
}

Events PersistentMIDI::GetInverse_(const Events& held, const Events& exclusions) {
    Events inverse;
    for (const auto& [note, event] : held)
        if (!exclusions.contains(note))
            inverse.emplace_hint(inverse.end(), note,
                                 VoiceEvent(event.time, 0x80, event.message.status & 0x0F, note, event.message.data2));
    return inverse;
}

Events PersistentMIDI::GetInverseNotes(const Events& exclusions) const {
    return GetInverse_(notes_, exclusions);
}

Events PersistentMIDI::GetInverseSwitches(const Events& exclusions) const {
    return GetInverse_(switches_, exclusions);
}

Events PersistentMIDI::GetInverseCCs(const Events& exclusions) const {
    Events inverse;
    for (const auto& [controller, event] : ccs_) {
        if (exclusions.contains(controller))
            continue;
        inverse.emplace_hint(inverse.end(), controller, event)->second.message.data2 = 0;
    }
    return inverse;
}

Events PersistentMIDI::FilterNotes(const Events& events) {
    return TakeHeld(notes_, events);
}

Events PersistentMIDI::FilterSwitches(const Events& events) {
    return TakeHeld(switches_, events);
}

Events PersistentMIDI::FilterCCs(const Events& events) const {
    Events set;
    for (const auto& [controller, event] : events)
        if (ccs_.contains(controller))
            set.emplace_hint(set.end(), controller, event);
    return set;
}

void PersistentMIDI::PrintYourself() const {
    zell::CoutBuffer out;
    out << "PersistentMidi" << zell::endl;
    out << "  Notes:" << zell::endl;
    for (const auto& [note, event] : notes_)
        PrintEvent(out, zell::midi::GetNoteName(note), event);
    out << "  Switches:" << zell::endl;
    for (const auto& [note, event] : switches_)
        PrintEvent(out, zell::midi::GetNoteName(note), event);
    out << "  CCs:" << zell::endl;
    for (const auto& [controller, event] : ccs_)
        PrintEvent(out, std::to_string(controller), event);
    out << zell::endl;
}
