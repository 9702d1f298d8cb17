#include "win32_layer/real_devices.h"

// A build without RtMidi: the system's devices are out of reach, the layer's own are not.

namespace win32_layer {

struct RealDevices::Impl {};

bool RealDevices::AreAvailable() {
    return false;
}

RealDevices::RealDevices(Say) {}
RealDevices::~RealDevices() = default;

}  // namespace win32_layer
