#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "midi/midi_message.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_input.h"

/// Three inputs of the computer, 0 and 2 of which a user may choose.
class ThreeInputs {
public:
    ThreeInputs() {
        win32_layer::Layer::Instance().Reset();
        for (const wchar_t* name : {L"Keyboard", L"VEMO Out", L"Pedals"}) {
            inputs_.push_back(std::make_shared<win32_layer::VirtualMidiInput>(name));
            win32_layer::Layer::Instance().AddInput(inputs_.back());
        }
    }
    ~ThreeInputs() { win32_layer::Layer::Instance().Reset(); }
    ThreeInputs(const ThreeInputs&) = delete;
    ThreeInputs& operator=(const ThreeInputs&) = delete;

    win32_layer::VirtualMidiInput& operator[](std::size_t index) { return *inputs_[index]; }
    void Send(std::size_t index, const MIDIMessage& message) {
        std::vector<std::uint8_t> bytes{message.status, message.data1, message.data2};
        if (message.GetStatus() == 0xC0 || message.GetStatus() == 0xD0)
            bytes.pop_back();
        inputs_[index]->Send(bytes);
    }

private:
    std::vector<std::shared_ptr<win32_layer::VirtualMidiInput>> inputs_;
};
