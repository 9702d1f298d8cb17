#include "port_line.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <thread>
#include <utility>

namespace win32_layer {

namespace {

using namespace std::chrono_literals;

constexpr auto kOpeningPatience = 2s;

std::atomic<int> lines{0};

}  // namespace

PortLine::PortLine(DeviceAddress address, RealDevices::Say say) : address_(std::move(address)), say_(std::move(say)) {
    ++lines;
}

PortLine::~PortLine() {
    --lines;
}

bool PortLine::Open(const std::shared_ptr<PortLine>& line) {
    try {
        std::thread([line] { line->Run(); }).detach();
    } catch (const std::exception&) {  // no thread left
        return false;
    }
    std::unique_lock lock(line->mutex_);
    line->changed_.wait_for(lock, kOpeningPatience, [&] { return line->isOpen_ || line->hasEnded_; });
    if (line->isOpen_ && !line->hasEnded_)
        return true;
    line->End();
    line->changed_.notify_all();
    return false;
}

int PortLine::Count() {
    return lines;
}

void PortLine::TellOpen() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
}

void PortLine::Run() {
    try {
        Work();
    } catch (const std::exception& error) {
        say_("MIDI device '" + address_.GetDisplayName() + "' cannot be opened: " + error.what());
    }
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
}

}  // namespace win32_layer
