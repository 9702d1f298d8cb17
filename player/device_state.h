#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "vemo_core/voice_event.h"

namespace player {

/// What one output device holds after the messages sent to it: sounding notes,
/// controllers, registered parameters and programs of its 16 channels. From it the host ends every note
/// by its own note-off, also for devices that ignore the channel-mode messages.
///
/// Owner:   the playback host; a value.
/// Threads: one at a time. Apply() allocates nothing.
/// Units:   channels 0..15; 7-bit values.
class DeviceState {
public:
    static constexpr int kChannels = 16;
    /// Pitch bend range, fine tuning and coarse tuning.
    static constexpr int kRegisteredParameters = 3;
    /// Controllers from here on are channel-mode messages and no state.
    static constexpr int kStateControllers = 120;
    static constexpr std::uint8_t kUnknown = 0xFF;

    DeviceState();

    /// Channel-mode messages change nothing here, as some devices ignore them; only the
    /// channel pressure ends with "reset all controllers", since nothing else ends it.
    void Apply(const std_midi::VoiceMessage& message);

    /// How many note-ons without a note-off.
    int GetSounding(int channel, int note) const { return notes_[Index(channel, note)]; }
    /// kUnknown until one was sent.
    std::uint8_t GetController(int channel, int controller) const { return controllers_[Index(channel, controller)]; }
    std::uint8_t GetProgram(int channel) const { return programs_[static_cast<std::size_t>(channel)]; }

    /// Every controller, registered parameter, pressure, bend and program of the channel
    /// that was ever sent. What data entry means depends on what is selected: it goes out
    /// for its parameter, and after that the selection that the device holds. The steps of
    /// 96 and 97 are not kept.
    void AppendState(int channel, std::vector<vemo_midi::VoiceEvent>& events) const;

    /// Strikes every note that sounds on the channel, as it was last struck.
    void AppendNotes(int channel, std::vector<vemo_midi::VoiceEvent>& events) const;
    /// One note-off for every note that sounds on the channel.
    void AppendNoteOffs(int channel, std::vector<vemo_midi::VoiceEvent>& events) const;
    /// Pedals that hold notes, up, where they are down.
    void AppendPedalsUp(int channel, std::vector<vemo_midi::VoiceEvent>& events) const;

private:
    /// Data entry as it was sent. Some devices clear the fine part when they hear the
    /// coarse one, so the order counts.
    struct Parameter {
        std::uint8_t coarse = kUnknown;
        std::uint8_t fine = kUnknown;
        bool coarseIsLast = false;
    };

    void TakeController(int channel, std::uint8_t controller, std::uint8_t value);
    void AppendParameters(int channel, std::vector<vemo_midi::VoiceEvent>& events) const;
    static std::size_t Index(int channel, int number) { return static_cast<std::size_t>(channel * 128 + number); }

    std::array<std::uint8_t, kChannels * 128> notes_{};
    std::array<std::uint8_t, kChannels * 128> velocities_{};
    std::array<std::uint8_t, kChannels * 128> controllers_;
    std::array<std::array<Parameter, kRegisteredParameters>, kChannels> parameters_{};
    std::array<bool, kChannels> selectsRegistered_{};  // the last selection: registered or not
    std::array<std::uint8_t, kChannels> pressures_;
    std::array<std::uint8_t, kChannels> programs_;
    std::array<std_midi::VoiceMessage, kChannels> bends_{};  // status 0 until one was sent
};

}  // namespace player
