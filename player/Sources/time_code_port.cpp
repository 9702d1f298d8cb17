#include "player/time_code_port.h"

#include <windows.h>

#include <mmsystem.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

#include "midi/vemo_midi_error.h"
#include "midi/win32/device_diagnostics.h"
#include "player/output_devices.h"
#include "vemo_core/exception_log.h"
#include "zell/format.h"
#include "zell/thread_names.h"

namespace player {

using namespace std::chrono_literals;

namespace {

constexpr char kSource[] = "player/Sources/time_code_port";
constexpr std::size_t kFullFrameBytes = 10;
// A third of a second at the fastest rate.
constexpr std::size_t kMostQueued = 40;
// For a full frame to come back from the device, and for a device at the end.
constexpr auto kPatience = 1s;

struct Message {
    std::array<std::uint8_t, kFullFrameBytes> bytes{};
    std::size_t count = 0;
};

}  // namespace

/// What the port and its thread share; the thread may outlive the port.
struct TimeCodePort::Line {
    void Run();
    bool Play(const Message& message);
    static void CALLBACK OnMessage(HMIDIOUT output, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR);

    HMIDIOUT output = nullptr;  // the thread's own from its start on
    // Of the thread, and of the device between sending and MOM_DONE.
    MIDIHDR header{};
    Message longMessage;

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::array<Message, kMostQueued> queue;
    std::size_t first = 0;
    std::size_t count = 0;
    bool headerIsOut = false;
    bool exit = false;
    bool ended = false;
    bool isFailing = false;
    std::uint64_t lost = 0;
};

TimeCodePort::TimeCodePort(unsigned int device) : device_(device), line_(std::make_shared<Line>()) {
    const MMRESULT result = midiOutOpen(&line_->output, device, reinterpret_cast<DWORD_PTR>(&Line::OnMessage),
                                        reinterpret_cast<DWORD_PTR>(line_.get()), CALLBACK_FUNCTION);
    if (result != MMSYSERR_NOERROR)
        throw VemoMidiError(
            zell::format("MIDI output %d cannot be opened for time code: %s", device, GetMidiOutErrorText(result)));
    try {
        std::thread([line = line_] { line->Run(); }).detach();
    } catch (...) {
        midiOutClose(line_->output);
        throw;
    }
}

TimeCodePort::~TimeCodePort() {
    std::unique_lock lock(line_->mutex);
    line_->exit = true;
    line_->changed.notify_all();
    line_->changed.wait_for(lock, kPatience, [this] { return line_->ended; });
}

void TimeCodePort::Send(const std::uint8_t* bytes, std::size_t count) {
    Line& line = *line_;
    const std::lock_guard lock(line.mutex);
    if (line.count == kMostQueued) {
        line.lost += line.count;
        line.isFailing = true;
        line.count = 0;
    }
    Message& message = line.queue[(line.first + line.count) % kMostQueued];
    message.count = std::min(count, kFullFrameBytes);
    std::copy_n(bytes, message.count, message.bytes.begin());
    ++line.count;
    line.changed.notify_all();
}

void TimeCodePort::Drop() {
    const std::lock_guard lock(line_->mutex);
    line_->count = 0;
}

TimeCodePort::State TimeCodePort::GetState() const {
    const std::lock_guard lock(line_->mutex);
    return line_->isFailing || OutputDevices::IsLost(device_) ? State::kFailing : State::kWorking;
}

std::uint64_t TimeCodePort::GetLostCount() const {
    const std::lock_guard lock(line_->mutex);
    return line_->lost;
}

void TimeCodePort::Line::Run() {
    try {
        zell::threadNames.SetNameOfCurrentThread("time_code_port");
        SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
        header.lpData = reinterpret_cast<LPSTR>(longMessage.bytes.data());
        header.dwBufferLength = kFullFrameBytes;
        midiOutPrepareHeader(output, &header, sizeof(header));
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return count > 0 || exit; });
            if (exit)
                break;
            const Message message = queue[first];
            first = (first + 1) % kMostQueued;
            --count;
            lock.unlock();
            const bool isPlayed = Play(message);
            lock.lock();
            // A device that keeps a full frame takes no other: its pieces alone are no help.
            isFailing = !isPlayed || headerIsOut;
            lost += isPlayed ? 0u : 1u;
        }
        lock.unlock();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
    // A device that still holds the full frame gives it back for this.
    if (midiOutUnprepareHeader(output, &header, sizeof(header)) == MIDIERR_STILLPLAYING) {
        midiOutReset(output);
        midiOutUnprepareHeader(output, &header, sizeof(header));
    }
    midiOutClose(output);
    const std::lock_guard lock(mutex);
    ended = true;
    changed.notify_all();
}

bool TimeCodePort::Line::Play(const Message& message) {
    if (message.bytes[0] != 0xF0) {
        const DWORD packed = message.bytes[0] | static_cast<DWORD>(message.bytes[1]) << 8;
        return midiOutShortMsg(output, packed) == MMSYSERR_NOERROR;
    }
    {
        const std::lock_guard lock(mutex);
        if (headerIsOut)  // the device has kept the full frame before this one
            return false;
        headerIsOut = true;
    }
    longMessage = message;
    header.dwBufferLength = static_cast<DWORD>(longMessage.count);
    const bool isOut = midiOutLongMsg(output, &header, sizeof(header)) == MMSYSERR_NOERROR;
    std::unique_lock lock(mutex);
    if (!isOut) {
        headerIsOut = false;
        return false;
    }
    // The pieces behind it must not overtake it.
    return changed.wait_for(lock, kPatience, [this] { return !headerIsOut; });
}

void CALLBACK TimeCodePort::Line::OnMessage(HMIDIOUT, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
    if (message != MOM_DONE)
        return;
    auto& line = *reinterpret_cast<Line*>(instance);
    const std::lock_guard lock(line.mutex);
    line.headerIsOut = false;
    line.changed.notify_all();
}

}  // namespace player
