#include <csignal>
#include <memory>
#include <utility>

#include "player/output_devices.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {

using win32_layer::Layer;

OutputDevices::OutputDevices() {
    // Whoever reads standard output may go away, as head does; this system would
    // end the show by a signal where others let the writing fail.
    std::signal(SIGPIPE, SIG_IGN);
    Layer::Instance().AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
        L"Virtual MIDI Output", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
}

OutputDevices::~OutputDevices() {
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

}  // namespace player
