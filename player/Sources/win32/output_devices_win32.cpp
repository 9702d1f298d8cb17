#include "player/output_devices.h"

#include <utility>

// The system has the devices, and no way to see what they are sent: the program
// refuses what would need it.

namespace player {

struct OutputDevices::Impl {
    Say say;
};

OutputDevices::OutputDevices(Kinds, Say say) : impl_(std::make_unique<Impl>(Impl{std::move(say)})) {}
OutputDevices::~OutputDevices() = default;

bool OutputDevices::CanRecord() {
    return false;
}
void OutputDevices::Observe(Observer) {}
void OutputDevices::UseVirtualTime(std::function<std::chrono::nanoseconds()>) {}
void OutputDevices::ObserveChanges(ChangeObserver) {}

bool OutputDevices::IsLost(std::size_t) {
    return false;
}

std::string OutputDevices::SelectDefault() const {
    const std::string first = Select("0");
    impl_->say("plays on '" + GetNames().front() + "'");
    return first;
}

}  // namespace player
