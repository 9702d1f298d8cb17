// send_on_layer NAME: sends on that output, through the platform's calls, what a receiver can
// tell the way by: 2,000 notes, 2 ms apart, each with its number; a system-exclusive message of
// 20,000 bytes; and a last note. Prints "NUMBER NANOSECONDS" for each note, of the steady clock
// as the note is handed over.
#include <windows.h>

#include <mmsystem.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "win32_layer/layer.h"
#include "win32_layer/real_devices.h"

namespace {

using namespace std::chrono_literals;

constexpr int kNotes = 2000;
constexpr std::size_t kSystemExclusiveBytes = 20'000;

/// A stream whose buffers are waited for.
class Sender {
public:
    explicit Sender(UINT index) {
        midiStreamOpen(&stream_, &index, 1, reinterpret_cast<DWORD_PTR>(&OnMessage), reinterpret_cast<DWORD_PTR>(this),
                       CALLBACK_FUNCTION);
        midiStreamRestart(stream_);
    }
    ~Sender() { midiStreamClose(stream_); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    void Send(std::vector<DWORD> events) {
        MIDIHDR header{};
        header.lpData = reinterpret_cast<LPSTR>(events.data());
        header.dwBufferLength = header.dwBytesRecorded = static_cast<DWORD>(events.size() * sizeof(DWORD));
        const auto handle = reinterpret_cast<HMIDIOUT>(stream_);
        midiOutPrepareHeader(handle, &header, sizeof(header));
        std::unique_lock lock(mutex_);
        isDone_ = false;
        midiStreamOut(stream_, &header, sizeof(header));
        done_.wait(lock, [this] { return isDone_; });
        midiOutUnprepareHeader(handle, &header, sizeof(header));
    }

private:
    static void CALLBACK OnMessage(HMIDIOUT, UINT message, DWORD_PTR instance, DWORD_PTR, DWORD_PTR) {
        if (message != MOM_DONE)
            return;
        auto& self = *reinterpret_cast<Sender*>(instance);
        const std::lock_guard lock(self.mutex_);
        self.isDone_ = true;
        self.done_.notify_all();
    }

    HMIDISTRM stream_ = nullptr;
    std::mutex mutex_;
    std::condition_variable done_;
    bool isDone_ = false;
};

void SendNote(Sender& sender, int number) {
    const auto low = static_cast<DWORD>(number & 0x7F);
    const auto high = static_cast<DWORD>(number >> 7);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    sender.Send({0, 0, 0x90u | low << 8 | (high + 1) << 16});
    std::printf("%d %lld\n", number, static_cast<long long>(std::chrono::nanoseconds(now).count()));
}

std::vector<DWORD> SystemExclusive() {
    std::vector<std::uint8_t> bytes(kSystemExclusiveBytes);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<std::uint8_t>(i * 7 % 127);
    bytes.front() = 0xF0;
    bytes.back() = 0xF7;
    std::vector<DWORD> event = {0, 0, MEVT_F_LONG | static_cast<DWORD>(bytes.size())};
    event.resize(3 + bytes.size() / sizeof(DWORD));
    std::memcpy(event.data() + 3, bytes.data(), bytes.size());
    return event;
}

}  // namespace

int main(int, char** arguments) {
    const std::string wanted = arguments[1];
    const win32_layer::RealDevices devices([](const std::string& text) { std::cerr << text << '\n'; });
    const auto outputs = win32_layer::Layer::Instance().GetOutputs();
    UINT index = 0;
    while (index < outputs.size() && outputs[index]->GetName() != std::wstring(wanted.begin(), wanted.end()))
        ++index;
    if (index == outputs.size())
        return 1;
    Sender sender(index);
    auto due = std::chrono::steady_clock::now();
    for (int number = 0; number < kNotes; ++number) {
        std::this_thread::sleep_until(due += 2ms);
        SendNote(sender, number);
    }
    sender.Send(SystemExclusive());
    SendNote(sender, kNotes);
    return 0;
}
