#include "input_port.h"

#include <stdexcept>
#include <utility>
#include <vector>

#include "client_name.h"
#include "jack_server.h"
#include "port_opening.h"

namespace win32_layer {

InputPort::InputPort(const DeviceAddress& address, Receiver receiver)
    : address_(address), receiver_(std::move(receiver)), input_(ApiOf(address), kClientName) {
    WriteErrorsTo(input_, complaint_);
    if (input_.getCurrentApi() != ApiOf(address))
        throw std::runtime_error("RtMidi lacks this kind of device");
    // Time code, clocks and the sensing of a live cable among them: whoever reads, chooses.
    input_.ignoreTypes(false, false, false);
    input_.setCallback(&OnMessage, this);
    ownPort_ = OpenPort(input_, address_, "in", complaint_);
    if (address_.server)
        address_.server->Watch(ownPort_);
}

InputPort::~InputPort() {
    if (address_.server)
        address_.server->Forget(ownPort_);
}

void InputPort::OnMessage(double, std::vector<unsigned char>* message, void* port) {
    if (!message->empty())
        static_cast<InputPort*>(port)->receiver_(message->data(), message->size());
}

}  // namespace win32_layer
