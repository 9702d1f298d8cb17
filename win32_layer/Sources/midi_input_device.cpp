#include "win32_layer/midi_input_device.h"

namespace win32_layer {

MidiInputDevice::~MidiInputDevice() = default;

}  // namespace win32_layer
