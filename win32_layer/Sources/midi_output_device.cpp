#include "win32_layer/midi_output_device.h"

namespace win32_layer {

MidiOutputDevice::~MidiOutputDevice() = default;

}  // namespace win32_layer
