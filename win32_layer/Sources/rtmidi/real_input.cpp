#include "real_input.h"

#include <utility>

#include "input_port.h"
#include "port_line.h"

namespace win32_layer {

class RealInput::Line : public PortLine {
public:
    Line(DeviceAddress address, RealDevices::Say say, Sink sink)
        : PortLine(std::move(address), std::move(say)), sink_(std::move(sink)) {}

    void Close() {
        const std::lock_guard lock(mutex_);
        End();
        changed_.notify_all();
    }

protected:
    void Work() override {
        const InputPort port(address_, [this](const std::uint8_t* bytes, std::size_t count) { Hear(bytes, count); });
        TellOpen();
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return !sink_; });
    }
    void End() override { sink_ = {}; }

private:
    void Hear(const std::uint8_t* bytes, std::size_t count) {
        const std::lock_guard lock(mutex_);
        if (sink_)
            sink_(bytes, count);
    }

    Sink sink_;  // empty: it has to end; guarded by mutex_
};

RealInput::RealInput(DeviceAddress address, RealDevices::Say say)
    : address_(std::move(address)), say_(std::move(say)) {}

RealInput::~RealInput() = default;

std::wstring RealInput::GetName() const {
    return address_.GetPlatformName();
}

std::string RealInput::GetIdentity() const {
    return address_.GetIdentity();
}

bool RealInput::Open(Sink sink) {
    auto line = std::make_shared<Line>(address_, say_, std::move(sink));
    if (!PortLine::Open(line))
        return false;
    line_ = std::move(line);
    return true;
}

void RealInput::Close() {
    std::exchange(line_, nullptr)->Close();
}

}  // namespace win32_layer
