#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "midi/standard_midi_clock.h"
#include "midi/win32/midi_output_win32.h"
#include "tests/midi/patience.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

using Bytes = std::vector<std::uint8_t>;

inline std::vector<Bytes> PlayedBytes(const win32_layer::VirtualMidiOutput& device) {
    std::vector<Bytes> played;
    for (const auto& message : device.GetPlayed())
        played.push_back(message.bytes);
    return played;
}

/// A clock of which the test gives every pulse.
class HandClock : public StandardMidiClock {
public:
    /// 120 clicks to the minute, of 24 clocks of 20 ticks.
    void Arm() { ArmPlayback(20, 24, 1.0 / 48, 0, 0); }
    void Pulse(int pulses = 1) {
        while (pulses-- > 0)
            AdvanceClock();
    }

protected:
    void SetClockTimer(double) override {}
    void StartClock() override {}
};

/// An output on a virtual device, with a host that feeds it: cycle n is at tick
/// 20 n, with clock number n modulo 24 and one note-on of key n on port 0.
///
/// Threads: the test changes the hooks only while the queue thread is parked.
class OutputRig {
public:
    explicit OutputRig(win32_layer::Delivery delivery = win32_layer::Delivery::kInline) {
        win32_layer::Layer::Instance().Reset();
        win32_layer::Layer::Instance().AddOutput(device);
        win32_layer::Layer::Instance().SetDelivery(delivery);
        output = CreateOutput();
        output->Initialize(kPorts);
        output->CreateSynthOutput("");
    }
    ~OutputRig() {
        output.reset();
        win32_layer::Layer::Instance().Reset();
    }

    std::unique_ptr<MidiOutputWin32> CreateOutput() {
        return std::make_unique<MidiOutputWin32>(
            kPorts, [this](MidiBuffer& buffer) { Fill(buffer); }, [this](std::uint32_t tick) { downbeat(tick); },
            [this] { stopped.Add(); }, [this] { active.Add(); },
            [this](std::uint32_t tick) { return caesuraTick == tick; }, clock, &hostMutex);
    }
    void Prime() {
        nextCycle = 0;
        std::unique_lock host(hostMutex);
        output->PrimeBuffers(host);
    }
    bool Start() {
        Prime();
        clock.Arm();
        return output->ArmPlayback();
    }
    MidiBufferWin32& PlayBuffer() { return static_cast<MidiBufferWin32&>(output->GetPlayBuffer()); }
    /// What the device has played since the last call.
    std::vector<Bytes> TakePlayed() {
        std::vector<Bytes> played = PlayedBytes(*device);
        device->Clear();
        return played;
    }

    static constexpr std::uint8_t kPorts = 3;
    static constexpr std::uint32_t kNoTick = 0xFFFF'FFFF;

    std::shared_ptr<win32_layer::VirtualMidiOutput> device =
        std::make_shared<win32_layer::VirtualMidiOutput>(L"Stage Piano");
    std::recursive_mutex hostMutex;
    HandClock clock;
    std::function<void(MidiBuffer&, int cycle)> fill = [](MidiBuffer&, int) {};
    std::function<void(std::uint32_t)> downbeat = [](std::uint32_t) {};
    std::atomic<std::uint32_t> caesuraTick{kNoTick};
    std::atomic<int> nextCycle{0};
    Count stopped;
    Count active;
    std::unique_ptr<MidiOutputWin32> output;

private:
    void Fill(MidiBuffer& buffer) {
        const int cycle = nextCycle++;
        {
            std::lock_guard lock(buffer.GetMutex());
            buffer.SetTickIndex(static_cast<std::uint32_t>(20 * cycle));
            buffer.SetClockNumber(cycle % 24);
            buffer.SetClocksPerClick(24);
            buffer.AddEventToBuffer(0, {0, 0x90, 0, static_cast<std::uint8_t>(cycle & 0x7F), 100});
            fill(buffer, cycle);
            buffer.DoneAddingEventsToBuffer();
        }
        buffer.SetHasData(true);
    }
};
