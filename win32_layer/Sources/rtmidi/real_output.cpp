#include "real_output.h"

#include <chrono>
#include <utility>

#include "output_port.h"
#include "port_line.h"
#include "queued_sender.h"
#include "win32_layer/layer.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr auto kFlushTime = 500ms;

}  // namespace

class RealOutput::Line : public PortLine {
public:
    Line(const DeviceAddress& address, const RealDevices::Say& say)
        : PortLine(address, say), sender_(address.GetDisplayName(), say) {}

    QueuedSender& GetSender() { return sender_; }

protected:
    void Work() override {
        OutputPort port(address_);
        // Its messages are as urgent as the clock that sends them. Not before: the threads
        // that JACK's library starts with the port would inherit it.
        Layer::GiveTimerPriority();
        TellOpen();
        sender_.Run(port);
    }
    void End() override { sender_.Close(SteadyClock::now()); }

private:
    QueuedSender sender_;
};

RealOutput::RealOutput(DeviceAddress address, RealDevices::Say say)
    : address_(std::move(address)), say_(std::move(say)) {}

RealOutput::~RealOutput() = default;

std::wstring RealOutput::GetName() const {
    return address_.GetPlatformName();
}

std::string RealOutput::GetIdentity() const {
    return address_.GetIdentity();
}

bool RealOutput::Open() {
    if (openings_ > 0) {
        ++openings_;
        return true;
    }
    auto line = std::make_shared<Line>(address_, say_);
    if (!PortLine::Open(line))
        return false;
    const std::lock_guard lock(mutex_);
    line_ = std::move(line);
    openings_ = 1;
    return true;
}

void RealOutput::Close() {
    if (--openings_ > 0)
        return;
    std::shared_ptr<Line> line;
    {
        const std::lock_guard lock(mutex_);
        line.swap(line_);
    }
    line->GetSender().Close(SteadyClock::now() + kFlushTime);
}

void RealOutput::Play(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds) {
    std::shared_ptr<Line> line;
    {
        const std::lock_guard lock(mutex_);
        line = line_;
    }
    if (line && count > 0)
        line->GetSender().Add(bytes, count);
}

}  // namespace win32_layer
