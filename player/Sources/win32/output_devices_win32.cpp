#include "player/output_devices.h"

// The system has the devices, and no way to see what they are sent: the program
// refuses what would need it.

namespace player {

OutputDevices::OutputDevices() = default;
OutputDevices::~OutputDevices() = default;

bool OutputDevices::CanRecord() {
    return false;
}
void OutputDevices::Observe(Observer) {}
void OutputDevices::UseVirtualTime(std::function<std::chrono::nanoseconds()>) {}

}  // namespace player
