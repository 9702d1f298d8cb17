#include "player/midi_input.h"
#include "win32_layer/layer.h"

namespace player {

bool MidiInput::IsLost(unsigned int device) {
    return win32_layer::Layer::Instance().IsInputLost(device);
}

}  // namespace player
