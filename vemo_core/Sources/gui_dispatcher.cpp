#include "vemo_core/gui_dispatcher.h"

#include <exception>
#include <utility>

#include "vemo_core/exception_log.h"

namespace notify {

namespace {

template <class Value>
void Send(const std::function<void(Value)>& receive, Value value) {
    if (!receive)
        return;
    try {
        receive(value);
    } catch (const std::exception& error) {
        VemoLogException(error.what(), "vemo_core/Sources/gui_dispatcher", __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", "vemo_core/Sources/gui_dispatcher", __LINE__);
    }
}

}  // namespace

GuiDispatcher::GuiDispatcher() : receiver_(std::make_shared<Receiver>()) {}
GuiDispatcher::~GuiDispatcher() = default;

void GuiDispatcher::SetReceiver(Receiver receiver) {
    std::shared_ptr<const Receiver> next = std::make_shared<Receiver>(std::move(receiver));
    const std::lock_guard lock(mutex_);
    receiver_.swap(next);
}

void GuiDispatcher::SendGuiDelayMessage(int milliseconds) {
    Send(Current()->guiDelay, milliseconds);
}

void GuiDispatcher::SendMidiClockDebugMessage(const std::string& text) {
    Send<const std::string&>(Current()->midiClockDebug, text);
}

void GuiDispatcher::SendMtcActiveStateNotification(bool isActive) {
    Send(Current()->mtcActiveState, isActive);
}

void GuiDispatcher::SendMtcFrameRateNotification(const std::string& name) {
    Send<const std::string&>(Current()->mtcFrameRate, name);
}

void GuiDispatcher::SendMtcOutputPortNotification(unsigned int portIndex) {
    Send(Current()->mtcOutputPort, portIndex);
}

std::shared_ptr<const GuiDispatcher::Receiver> GuiDispatcher::Current() {
    const std::lock_guard lock(mutex_);
    return receiver_;
}

GuiDispatcher& guiDispatcher = *new GuiDispatcher;

}  // namespace notify
