#include "real_input.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include "input_port.h"

namespace win32_layer {

namespace {

using namespace std::chrono_literals;

constexpr auto kOpeningPatience = 2s;

std::atomic<int> lines{0};

}  // namespace

/// What the device and the thread share; the thread may outlive the device.
struct RealInput::Line {
    Line(DeviceAddress of, RealDevices::Say sayTo, Sink heardBy)
        : address(std::move(of)), say(std::move(sayTo)), sink(std::move(heardBy)) {
        ++lines;
    }
    ~Line() { --lines; }

    void Run();
    void Hear(const std::uint8_t* bytes, std::size_t count);

    const DeviceAddress address;
    const RealDevices::Say say;
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    Sink sink;  // empty: it has to end
    bool isOpen = false;
    bool hasEnded = false;
};

void RealInput::Line::Run() {
    try {
        const InputPort port(address, [this](const std::uint8_t* bytes, std::size_t count) { Hear(bytes, count); });
        std::unique_lock lock(mutex);
        isOpen = true;
        changed.notify_all();
        changed.wait(lock, [this] { return !sink; });
    } catch (const std::exception& error) {
        say("MIDI input '" + address.GetDisplayName() + "' cannot be opened: " + error.what());
    }
    const std::lock_guard lock(mutex);
    hasEnded = true;
    changed.notify_all();
}

void RealInput::Line::Hear(const std::uint8_t* bytes, std::size_t count) {
    const std::lock_guard lock(mutex);
    if (sink)
        sink(bytes, count);
}

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
    try {
        std::thread([line] { line->Run(); }).detach();
    } catch (const std::exception&) {  // no thread left
        return false;
    }
    std::unique_lock lock(line->mutex);
    line->changed.wait_for(lock, kOpeningPatience, [&] { return line->isOpen || line->hasEnded; });
    if (!line->isOpen || line->hasEnded) {
        line->sink = {};
        line->changed.notify_all();
        return false;
    }
    line_ = line;
    return true;
}

void RealInput::Close() {
    const std::shared_ptr<Line> line = std::exchange(line_, nullptr);
    const std::lock_guard lock(line->mutex);
    line->sink = {};
    line->changed.notify_all();
}

int RealInput::CountLines() {
    return lines;
}

}  // namespace win32_layer
