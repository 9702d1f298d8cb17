#include <algorithm>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "player/output_devices.h"
#include "win32_layer/layer.h"
#include "win32_layer/real_devices.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {

using win32_layer::Layer;

struct OutputDevices::Impl {
    Say say;
    std::optional<win32_layer::RealDevices> realDevices;
    std::size_t virtualIndex = 0;
};

OutputDevices::OutputDevices(Kinds kinds, Say say) : impl_(std::make_unique<Impl>()) {
    // Whoever reads standard output may go away, as head does; this system would
    // end the show by a signal where others let the writing fail.
    std::signal(SIGPIPE, SIG_IGN);
    impl_->say = std::move(say);
    if (kinds == Kinds::kAll)
        impl_->realDevices.emplace(impl_->say);
    impl_->virtualIndex = GetNames().size();
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Virtual MIDI Output", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
}

OutputDevices::~OutputDevices() {
    ObserveChanges({});
    impl_->realDevices.reset();
    Layer::Instance().Reset();
}

bool OutputDevices::CanRecord() {
    return true;
}

void OutputDevices::Observe(Observer observer) {
    Layer::Instance().SetObserver(std::move(observer));
}

void OutputDevices::UseVirtualTime(std::function<std::chrono::nanoseconds()> time) {
    Layer::Instance().SetDelivery(time ? win32_layer::Delivery::kInline : win32_layer::Delivery::kThread);
    Layer::Instance().SetTimeSource(std::move(time));
}

void OutputDevices::ObserveChanges(ChangeObserver observer) {
    if (!observer) {
        Layer::Instance().SetOutputObserver({});
        return;
    }
    Layer::Instance().SetOutputObserver(
        [observer = std::move(observer)](std::size_t index, win32_layer::OutputChange change) {
            observer(index, change == win32_layer::OutputChange::kLost ? Change::kLost : Change::kReturned);
        });
}

bool OutputDevices::IsLost(std::size_t index) {
    return Layer::Instance().IsOutputLost(index);
}

std::string OutputDevices::SelectDefault() const {
    const std::vector<std::string> names = GetNames();
    // The kernel's loop is there on every machine, and nobody hears it.
    const auto isInstrument = [](const std::string& name) { return name.find("Midi Through") == std::string::npos; };
    const auto end = names.begin() + static_cast<std::ptrdiff_t>(impl_->virtualIndex);
    const auto first = std::find_if(names.begin(), end, isInstrument);
    if (first != end)
        impl_->say("plays on '" + *first + "'");
    return std::to_string(first - names.begin());
}

}  // namespace player
