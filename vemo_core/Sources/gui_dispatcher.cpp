#include "vemo_core/gui_dispatcher.h"

#include <exception>
#include <type_traits>
#include <utility>

#include "vemo_core/exception_log.h"

namespace notify {

namespace {

template <class... Values>
void Send(const std::function<void(Values...)>& receive, std::type_identity_t<Values>... values) {
    if (!receive)
        return;
    try {
        receive(values...);
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
    Send(Current()->midiClockDebug, text);
}

void GuiDispatcher::SendMtcActiveStateNotification(bool isActive) {
    Send(Current()->mtcActiveState, isActive);
}

void GuiDispatcher::SendMtcFrameRateNotification(const std::string& name) {
    Send(Current()->mtcFrameRate, name);
}

void GuiDispatcher::SendMtcOutputPortNotification(unsigned int portIndex) {
    Send(Current()->mtcOutputPort, portIndex);
}

void GuiDispatcher::SendMidiNotification() {
    Send(Current()->midiActivity);
}

void GuiDispatcher::SendLearnedMIDICommand(unsigned int command) {
    Send(Current()->learnedMidiCommand, command);
}

void GuiDispatcher::SendMidiCommandCanceled(unsigned int commandId) {
    Send(Current()->midiCommandCanceled, commandId);
}

void GuiDispatcher::SendSourceConnected(unsigned int sourceIndex) {
    Send(Current()->sourceConnected, sourceIndex);
}

std::shared_ptr<const GuiDispatcher::Receiver> GuiDispatcher::Current() {
    const std::lock_guard lock(mutex_);
    return receiver_;
}

GuiDispatcher& guiDispatcher = *new GuiDispatcher;

}  // namespace notify
