#include "player/input_commands.h"

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <iostream>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "player/command_input.h"
#include "player/display_text.h"
#include "player/exit_status.h"
#include "player/midi_input.h"
#include "player/midi_message_text.h"
#include "player/output_devices.h"
#include "player/show_file.h"
#include "player/time_code_printer.h"
#include "zell/format.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr auto kStep = 20ms;
constexpr auto kSendPatience = 5s;

volatile std::sig_atomic_t interrupted = 0;
extern "C" void OnInputInterrupt(int) {
    interrupted = 1;
}

// For who takes a function: Complain is two.
void Say(const std::string& message) {
    Complain(message);
}

/// What arrives on a thread of the platform's, for the main thread.
class Arrived {
public:
    struct Message {
        std::vector<std::uint8_t> bytes;
        double seconds;
    };

    void Add(const std::uint8_t* bytes, std::size_t count) {
        // Finer than the milliseconds of the platform.
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start_;
        const std::lock_guard lock(mutex_);
        if (messages_.size() < kMost)
            messages_.push_back({{bytes, bytes + count}, time.count()});
        else
            ++lost_;
        changed_.notify_all();
    }
    std::vector<Message> Wait() {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kStep, [this] { return !messages_.empty(); });
        std::vector<Message> messages;
        messages.swap(messages_);
        return messages;
    }
    std::uint64_t GetLost() {
        const std::lock_guard lock(mutex_);
        return lost_;
    }

private:
    // Whoever reads may be slower than a flood, and the device must not wait for that.
    static constexpr std::size_t kMost = 100'000;

    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Message> messages_;  // guarded by mutex_
    std::uint64_t lost_ = 0;         // guarded by mutex_
};

/// Hands every message of an input to a function on this thread until it is interrupted.
template <class Taken>
void Listen(const std::string& wanted, Taken taken) {
    const unsigned int device = MidiInput::Select(wanted);
    const std::string name = DisplayText(MidiInput::GetNames().at(device));
    Arrived arrived;
    const MidiInput input(device,
                          [&](const std::uint8_t* bytes, std::size_t count, double) { arrived.Add(bytes, count); });
    std::signal(SIGINT, OnInputInterrupt);
    std::signal(SIGTERM, OnInputInterrupt);
    bool wasLost = false;
    while (interrupted == 0 && std::ferror(stdout) == 0) {
        for (const Arrived::Message& message : arrived.Wait())
            taken(message);
        std::fflush(stdout);
        const bool isLost = MidiInput::IsLost(device);
        if (std::exchange(wasLost, isLost) != isLost)
            Complain("the input '" + name +
                     (isLost ? "' is lost; it will be heard again when it is back" : "' is there"));
    }
    if (const std::uint64_t lost = arrived.GetLost() + input.GetDiscarded() + input.GetLosses(); lost > 0)
        Complain(zell::format("at least %u messages were lost", lost));
}

void PrintReport(const CommandInput::Report& report) {
    std::printf("input: %s%s%s\n", report.input.empty() ? "none" : report.input.c_str(),
                report.input.empty() || report.isOpen ? "" : " (not there)",
                report.onlyPresses ? "" : ", every value of its controllers fires");
    for (const CommandInput::Command& command : report.commands)
        std::printf(
            "  %-16s  %s%s\n", command.name.c_str(), command.binding.empty() ? "-" : command.binding.c_str(),
            command.leastInterval == 0 ? "" : zell::format(", not again within %d ms", command.leastInterval).c_str());
}

/// Waits until the command is learned or given up. A line on standard input gives up.
void WaitForPedal(CommandInput& input) {
    const auto isGivenUp = std::make_shared<std::atomic<bool>>(false);
    std::thread([isGivenUp] {
        std::string line;
        if (std::getline(std::cin, line))
            *isGivenUp = true;
    }).detach();
    std::signal(SIGINT, OnInputInterrupt);
    for (bool hasGivenUp = false; !input.GetReport().learning.empty(); input.Poll()) {
        if ((*isGivenUp || interrupted != 0) && !std::exchange(hasGivenUp, true))
            input.GiveUp();
        std::this_thread::sleep_for(kStep);
    }
}

std::vector<std::uint8_t> BytesOf(const ShowControlGo& go) {
    std::vector<std::uint8_t> bytes = {0xF0,
                                       0x7F,
                                       static_cast<std::uint8_t>(go.deviceId),
                                       0x02,
                                       static_cast<std::uint8_t>(go.isForEffects ? 0x17 : 0x11),
                                       0x01};
    const auto add = [&bytes](const std::string& field) {
        if (field.find_first_not_of("0123456789.") != std::string::npos)
            throw std::invalid_argument("'" + field + "' is no cue: digits and points are");
        bytes.insert(bytes.end(), field.begin(), field.end());
    };
    if (go.cue.empty() && !(go.list.empty() && go.path.empty()))
        throw std::invalid_argument("a cue list or path goes with a cue");
    add(go.cue);
    if (!go.list.empty() || !go.path.empty()) {
        bytes.push_back(0);
        add(go.list);
    }
    if (!go.path.empty()) {
        bytes.push_back(0);
        add(go.path);
    }
    bytes.push_back(0xF7);
    return bytes;
}

/// Sends one long message and waits until the device has taken it.
void SendLong(unsigned int device, std::vector<std::uint8_t> bytes) {
    const auto check = [](MMRESULT result) {
        if (result != MMSYSERR_NOERROR)
            throw std::runtime_error(zell::format("the output refuses it: error %d", result));
    };
    HMIDIOUT output = nullptr;
    check(midiOutOpen(&output, device, 0, 0, CALLBACK_NULL));
    MIDIHDR header = {};
    header.lpData = reinterpret_cast<char*>(bytes.data());
    header.dwBufferLength = static_cast<DWORD>(bytes.size());
    MMRESULT result = midiOutPrepareHeader(output, &header, sizeof(header));
    if (result == MMSYSERR_NOERROR)
        result = midiOutLongMsg(output, &header, sizeof(header));
    // Comes back with the answer of the device; there is no other way to hear of it
    // without a callback.
    const auto start = std::chrono::steady_clock::now();
    bool isStuck = false;
    while (midiOutUnprepareHeader(output, &header, sizeof(header)) == MIDIERR_STILLPLAYING) {
        if (std::chrono::steady_clock::now() - start > kSendPatience && !std::exchange(isStuck, true))
            midiOutReset(output);
        std::this_thread::sleep_for(1ms);
    }
    midiOutClose(output);
    check(result);
    if (isStuck)
        throw std::runtime_error("the output does not take it");
}

}  // namespace

int MonitorInput(const std::string& input) {
    try {
        const OutputDevices devices(OutputDevices::Kinds::kAll, Say);
        if (input.empty()) {
            for (const std::string& name : MidiInput::GetNames())
                std::puts(name.c_str());
            return kDone;
        }
        Listen(input, [](const Arrived::Message& message) {
            std::printf("%10.3f  %s\n", message.seconds,
                        DescribeMidiMessage(message.bytes.data(), message.bytes.size()).c_str());
        });
        return kDone;
    } catch (const std::exception& error) {
        return Complain(error.what(), kRefused);
    }
}

int FollowTimeCodeInput(const std::string& input) {
    try {
        const OutputDevices devices(OutputDevices::Kinds::kAll, Say);
        TimeCodePrinter printer;
        Listen(input, [&printer](const Arrived::Message& message) {
            printer.Take(message.bytes.data(), message.bytes.size(), message.seconds);
        });
        return printer.PrintSummary() ? kDone : kFailed;
    } catch (const std::exception& error) {
        return Complain(error.what(), kRefused);
    }
}

int LearnCommand(const LearnRequest& request) {
    try {
        const ShowDocument show = ReadShowFile(request.show);
        const OutputDevices devices(OutputDevices::Kinds::kAll, Say);
        if (!request.input.empty()) {
            const std::string name = MidiInput::GetNames().at(MidiInput::Select(request.input));
            if (show.showControl && show.showControl->input == name)
                throw std::invalid_argument("'" + DisplayText(name) +
                                            "' is the input of show control, and a device can be opened once");
        }
        CommandInput input({request.input, request.file, [](CommandKind) {}, Say});
        input.OpenShow(request.show, show.kind);
        int status = kDone;
        if (!request.forgotten.empty())
            input.Unlearn(request.forgotten);
        if (!request.command.empty()) {
            std::fprintf(stderr, "%s (10 seconds; Enter gives up)\n", input.Learn(request.command).c_str());
            WaitForPedal(input);
            if (input.GetReport().learned == 0)
                status = kFailed;
        }
        const CommandInput::Report report = input.GetReport();
        PrintReport(report);
        return report.isKept && !report.commands.empty() ? status : kFailed;
    } catch (const std::exception& error) {
        return Complain(error.what(), kRefused);
    }
}

int SendShowControl(const ShowControlGo& go) {
    try {
        const OutputDevices devices(OutputDevices::Kinds::kAll, Say);
        SendLong(static_cast<unsigned int>(std::stoul(OutputDevices::Select(go.output))), BytesOf(go));
        return kDone;
    } catch (const std::exception& error) {
        return Complain(error.what(), kRefused);
    }
}

}  // namespace player
