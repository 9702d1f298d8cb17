#include "player/device_state.h"

namespace player {

namespace {

constexpr std::uint8_t kPedals[] = {64, 66, 69};  // damper, sostenuto, hold 2
constexpr std::uint8_t kReleaseVelocity = 64;

constexpr std::uint8_t kDataEntry = 6;
constexpr std::uint8_t kFineDataEntry = 38;
constexpr std::uint8_t kDataIncrement = 96;
constexpr std::uint8_t kFineNonRegistered = 98;
constexpr std::uint8_t kNonRegistered = 99;
constexpr std::uint8_t kFineRegistered = 100;
constexpr std::uint8_t kRegistered = 101;
constexpr std::uint8_t kResetAllControllers = 121;

bool IsParameterController(int controller) {
    return controller == kDataEntry || controller == kFineDataEntry ||
           (controller >= kDataIncrement && controller <= kRegistered);
}

}  // namespace

DeviceState::DeviceState() {
    controllers_.fill(kUnknown);
    pressures_.fill(kUnknown);
    programs_.fill(kUnknown);
}

void DeviceState::Apply(const std_midi::VoiceMessage& message) {
    const int channel = message.status & 0x0F;
    const std::uint8_t data1 = message.data1 & 0x7F;
    std::uint8_t& count = notes_[Index(channel, data1)];
    switch (message.status & 0xF0) {
        case 0x80:
            if (count > 0)
                --count;
            break;
        case 0x90:
            if (count < 0xFF)
                ++count;
            velocities_[Index(channel, data1)] = message.data2;
            break;
        case 0xB0: TakeController(channel, data1, message.data2); break;
        case 0xC0: programs_[static_cast<std::size_t>(channel)] = data1; break;
        case 0xD0: pressures_[static_cast<std::size_t>(channel)] = data1; break;
        case 0xE0: bends_[static_cast<std::size_t>(channel)] = message; break;
        default: break;
    }
}

void DeviceState::TakeController(int channel, std::uint8_t controller, std::uint8_t value) {
    const auto id = static_cast<std::size_t>(channel);
    if (controller == kResetAllControllers && pressures_[id] != kUnknown)
        pressures_[id] = 0;
    if (controller >= kStateControllers)
        return;
    controllers_[Index(channel, controller)] = value;
    if (controller >= kFineNonRegistered && controller <= kRegistered)
        selectsRegistered_[id] = controller >= kFineRegistered;
    if (controller != kDataEntry && controller != kFineDataEntry)
        return;
    const std::uint8_t selected = GetController(channel, kFineRegistered);
    if (!selectsRegistered_[id] || GetController(channel, kRegistered) != 0 || selected >= kRegisteredParameters)
        return;
    Parameter& parameter = parameters_[id][selected];
    parameter.coarseIsLast = controller == kDataEntry;
    (parameter.coarseIsLast ? parameter.coarse : parameter.fine) = value;
}

void DeviceState::AppendState(int channel, std::vector<vemo_midi::VoiceEvent>& events) const {
    const auto id = static_cast<std::uint16_t>(channel);
    for (int controller = 0; controller < kStateControllers; ++controller)
        if (const std::uint8_t value = GetController(channel, controller);
            value != kUnknown && !IsParameterController(controller))
            events.emplace_back(0, std::uint8_t{0xB0}, id, static_cast<std::uint8_t>(controller), value);
    AppendParameters(channel, events);
    if (const std::uint8_t pressure = pressures_[id]; pressure != kUnknown)
        events.emplace_back(0, std::uint8_t{0xD0}, id, pressure, std::uint8_t{0});
    if (const std_midi::VoiceMessage& bend = bends_[id]; bend.status != 0)
        events.emplace_back(0, std::uint8_t{0xE0}, id, bend.data1, bend.data2);
    if (const std::uint8_t program = GetProgram(channel); program != kUnknown)
        events.emplace_back(0, std::uint8_t{0xC0}, id, program, std::uint8_t{0});
}

void DeviceState::AppendParameters(int channel, std::vector<vemo_midi::VoiceEvent>& events) const {
    const auto id = static_cast<std::uint16_t>(channel);
    const auto append = [&](std::uint8_t controller, std::uint8_t value) {
        if (value != kUnknown)
            events.emplace_back(0, std::uint8_t{0xB0}, id, controller, value);
    };
    std::uint8_t number = 0;
    for (const Parameter& parameter : parameters_[id]) {
        const std::uint8_t selected = number++;
        if (parameter.coarse == kUnknown && parameter.fine == kUnknown)
            continue;
        append(kRegistered, 0);
        append(kFineRegistered, selected);
        if (parameter.coarseIsLast)
            append(kFineDataEntry, parameter.fine);
        append(kDataEntry, parameter.coarse);
        if (!parameter.coarseIsLast)
            append(kFineDataEntry, parameter.fine);
    }
    const bool isRegistered = selectsRegistered_[id];
    for (const std::uint8_t selector :
         {isRegistered ? kRegistered : kNonRegistered, isRegistered ? kFineRegistered : kFineNonRegistered})
        append(selector, GetController(channel, selector));
}

void DeviceState::AppendNotes(int channel, std::vector<vemo_midi::VoiceEvent>& events) const {
    for (int note = 0; note < 128; ++note)
        for (int count = GetSounding(channel, note); count > 0; --count)
            events.emplace_back(0, std::uint8_t{0x90}, static_cast<std::uint16_t>(channel),
                                static_cast<std::uint8_t>(note), velocities_[Index(channel, note)]);
}

void DeviceState::AppendNoteOffs(int channel, std::vector<vemo_midi::VoiceEvent>& events) const {
    for (int note = 0; note < 128; ++note)
        for (int count = GetSounding(channel, note); count > 0; --count)
            events.emplace_back(0, std::uint8_t{0x80}, static_cast<std::uint16_t>(channel),
                                static_cast<std::uint8_t>(note), kReleaseVelocity);
}

void DeviceState::AppendPedalsUp(int channel, std::vector<vemo_midi::VoiceEvent>& events) const {
    for (const std::uint8_t pedal : kPedals) {
        const std::uint8_t value = GetController(channel, pedal);
        if (value != kUnknown && value != 0)
            events.emplace_back(0, std::uint8_t{0xB0}, static_cast<std::uint16_t>(channel), pedal, std::uint8_t{0});
    }
}

}  // namespace player
