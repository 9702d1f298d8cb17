#include "midi/win32/midi_input_win32.h"

#include "midi/Sources/midi_input_factory.h"
#include "midi/midi_message_dispatcher.h"

std::unique_ptr<MidiInputInterface> CreateMidiInput(unsigned char portIndex, MidiMessageDispatcher* dispatcher) {
    return std::make_unique<MidiInputWin32<MidiMessageDispatcher>>(portIndex, dispatcher);
}
