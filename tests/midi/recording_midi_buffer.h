#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "midi/midi_buffer.h"
#include "zell/format.h"

/// A cycle buffer that keeps what it was given, in order, and takes no more than a
/// set number of events per port.
class RecordingMidiBuffer : public MidiBuffer {
public:
    struct Sent {
        std::uint8_t port;
        vemo_midi::VoiceEvent event;
    };
    static constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();

    explicit RecordingMidiBuffer(std::size_t portCapacity = kNoLimit, std::uint8_t portCount = 4)
        : MidiBuffer(portCount, "recording"), portCapacity_(portCapacity) {}

    bool AddEventToBuffer(std::uint8_t port, const vemo_midi::VoiceEvent& event) override {
        if (GetBufferIsFull(port))
            return false;
        sent_.push_back({port, event});
        ++counts_[port];
        return true;
    }
    void DoneAddingEventsToBuffer() override {}
    bool GetBufferIsFull(std::uint8_t port) override {
        return port >= GetPortCount() || counts_[port] >= portCapacity_;
    }
    void* GetPacketDataAtPortIndex(std::uint8_t) override { return nullptr; }

    const std::vector<Sent>& GetSent() const { return sent_; }

    /// What was sent since the last call, as "port@tick status data1 data2", the
    /// bytes in hexadecimal. The room of the ports is as new.
    std::vector<std::string> Take() {
        std::vector<std::string> texts;
        for (const auto& [port, event] : sent_)
            texts.push_back(zell::format("%u@%u %02x %02x %02x", port, event.time, event.message.status,
                                         event.message.data1, event.message.data2));
        Clear();
        return texts;
    }
    void Clear() {
        sent_.clear();
        counts_.clear();
    }

private:
    const std::size_t portCapacity_;
    std::vector<Sent> sent_;
    std::map<std::uint8_t, std::size_t> counts_;
};
