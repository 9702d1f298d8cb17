#pragma once

#include <array>
#include <bitset>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "midi/how_to_play.h"
#include "midi/how_to_play_with_midi_clock.h"
#include "midi/midi_buffer.h"
#include "midi/quorvel_midi_stream.h"
#include "midi/standard_midi_clock.h"
#include "midi/user_controls.h"
#include "midi/win32/midi_output_win32.h"
#include "player/device_state.h"
#include "player/imported_song.h"
#include "player/playback_feed.h"

namespace player {

/// Hosts the engine: owns every engine object, gives it songs, steers it by its
/// own rules and tells what it plays. It knows no terminal, file or option; it is
/// the example for every other host.
///
/// Owner:   the program. The feed, and what the settings' functions use, outlive
///          it. Not destroyed by one of its own callbacks.
/// Threads: Load() to Panic() on one thread, the transport's; the rest on any.
/// Lock:    the host mutex (held once around every transport call into the engine),
///          then the output's and a buffer's, then songMutex_. songMutex_ is never
///          held while the output is called or waited for, nor while the clock is
///          called.
/// Units:   ticks of the loaded song; tracks are MIDI channels 0..15 of port 0.
/// Errors:  what the engine throws passes (MidiDeviceUnavailable from the
///          constructor); std::logic_error for a call that the state forbids.
///          What a fill throws ends the song: GetFault() tells.
class PlaybackHost {
public:
    struct Settings {
        /// The output device, as MidiOutputWin32::CreateSynthOutput() takes it.
        std::string output;
        /// Real time where empty. Else virtual time: called before every clock on
        /// the clock's thread, with the next cycle filled (or nothing left to wait
        /// for), and may steer meanwhile.
        std::function<void()> beforeVirtualClock;
        /// Playback of an arming ended by itself. On a thread of the engine's, no
        /// lock held; must only post.
        std::function<void(std::uint64_t arming)> stopped;
    };

    PlaybackHost(const Settings& settings, PlaybackFeed& feed);
    ~PlaybackHost();
    PlaybackHost(const PlaybackHost&) = delete;
    PlaybackHost& operator=(const PlaybackHost&) = delete;

    /// Stops, and stands at startTick of the song, rounded down to a clock. What
    /// lies at or after endTick (if any) will not be played. songNumber counts the
    /// songs of the run from 1.
    void Load(std::shared_ptr<const ImportedSong> song, unsigned int songNumber, std::uint32_t startTick,
              std::optional<std::uint32_t> endTick);
    /// Goes on from where it stands; returns the number of the arming.
    std::uint64_t Play();
    /// Stops after the current clock and ends every note.
    void Stop();
    /// Goes on at another place, playing if it was playing (then the new arming's
    /// number). Notes held at both places sound on.
    std::optional<std::uint64_t> Locate(std::uint32_t tick);
    /// The song of an arming has ended by itself: ends what still sounds.
    void FinishSong();
    void SetMuted(int channel, bool muted);
    /// Silences the device at once: all notes off, every sounding note's own
    /// note-off, pedals up and all sound off on every channel. Playing goes on.
    void Panic();

    UserControls& GetUserControls() { return userControls_; }
    bool IsPlaying() const;
    std::uint64_t GetArming() const;
    /// Of the loaded song, as given to Load().
    unsigned int GetSongNumber() const;
    /// Where the next clock falls.
    std::uint32_t GetTick() const;
    /// Empty unless a fill has failed.
    std::string GetFault() const;
    /// Clocks played since construction.
    std::uint64_t GetPlayedClocks() const;
    /// Time of the host's clock: virtual or steady.
    std::chrono::nanoseconds GetTime() const;
    /// Waits until cycles (at most 4) unplayed cycles are filled, or no more will
    /// come; false when none came within atMost.
    bool WaitForFills(int cycles, std::chrono::milliseconds atMost) const;

private:
    /// How the first cycle after a start makes the device hold what the song wants.
    enum class Start {
        kCold,            // nothing was ever sent: the whole state
        kFresh,           // nothing sounds: the whole state
        kAfterSeek,       // compare with what sounds
        kTransposedSeek,  // end what sounds, transposed as it was; then the whole state
        kRunning          // no start
    };
    struct FilledCycle {
        std::uint32_t tick = 0;
        signed char transposition = 0;
        std::vector<std_midi::VoiceMessage> messages;
    };
    struct Sounding {
        std::uint32_t tick = 0;  // the first tick not played
        signed char transposition = 0;
    };
    // What the song holds at the place where playing starts.
    struct HeldState {
        std::array<std::bitset<128>, DeviceState::kChannels> notes;
        std::array<std::bitset<128>, DeviceState::kChannels> controllers;
    };
    // The ring's four cycles, and what the clock has not yet reported.
    static constexpr std::uint64_t kRememberedCycles = 8;

    // Callbacks of the output.
    void FillBuffer(MidiBuffer& buffer);
    void ClockIsActive();
    bool CyclePlayed(std::uint32_t tick);
    void Stopped();

    // Under songMutex_.
    void FillCycle(MidiBuffer& buffer);
    void EnqueueSong(MidiBuffer& buffer, std::uint32_t endTick, FilledCycle& cycle);
    void CompleteStart(MidiBuffer& buffer, FilledCycle& cycle);
    void SilenceMutedChannels(MidiBuffer& buffer, FilledCycle& cycle);
    void Append(MidiBuffer& buffer, FilledCycle& cycle, const vemo_midi::VoiceEvent& event);
    void PrepareStart(std::uint32_t tick);
    HeldState FindHeldState(std::uint32_t tick);
    signed char FillTransposition();
    PlaybackRecord MakeRecord(PlaybackRecord::Kind kind);
    void PublishSongStart();

    std::uint64_t StartAt(std::uint32_t tick);
    void Disarm();
    void EndNotes();
    void SendOwnEvents(const std::vector<vemo_midi::VoiceEvent>& events);

    PlaybackFeed& feed_;
    const std::function<void()> beforeVirtualClock_;
    const std::function<void(std::uint64_t)> stopped_;
    const std::shared_ptr<MidiBuffer> scratchBuffer_;

    mutable std::recursive_mutex hostMutex_;
    UserControls userControls_;
    std::unique_ptr<StandardMidiClock> clock_;

    // Guarded by hostMutex_.
    std::uint64_t arming_ = 0;
    std::uint64_t clockArming_ = 0;  // of the latest clock
    bool clockIsUnplayed_ = false;   // a clock came and its cycle has not been played
    bool firstClockOfArming_ = false;
    bool playing_ = false;
    bool closing_ = false;
    std::chrono::nanoseconds clockTime_{0};  // when the current clock began

    mutable std::mutex songMutex_;
    mutable std::condition_variable filled_;
    // Guarded by songMutex_ to the end of the list.
    HowToPlay fillTracker_;               // ahead of the music
    HowToPlayWithMidiClock playTracker_;  // at the cycle that is played next
    std::shared_ptr<const ImportedSong> song_;
    std::unique_ptr<QuorvelMidiStream> stream_;
    unsigned int songNumber_ = 0;
    std::uint32_t ticksPerClock_ = 1;
    std::uint32_t endTick_ = 0;    // exclusive
    std::uint32_t startTick_ = 0;  // where the next start or the running arming began
    std::uint32_t fillTick_ = 0;
    std::uint32_t enqueuedTick_ = 0;
    bool portWasFull_ = false;
    bool lastIsFilled_ = false;
    bool wantsCycles_ = false;
    bool deviceIsFresh_ = true;
    Start start_ = Start::kCold;
    signed char previousTransposition_ = 0;
    bool seekBeforeFill_ = false;
    std::optional<Sounding> sounding_;
    bool playedSinceArming_ = false;
    bool panicked_ = false;  // since the start: what should sound on may not sound
    HeldState endedAtStart_;
    HeldState heldAtStart_;
    std::array<FilledCycle, kRememberedCycles> cycles_;
    std::uint64_t filledCount_ = 0;
    std::uint64_t playedCount_ = 0;
    std::uint64_t playedBefore_ = 0;  // in earlier armings
    DeviceState filledState_;
    DeviceState playedState_;
    std::set<unsigned short> mutedTracks_;
    std::set<unsigned short> pendingUnmutes_;
    std::set<unsigned short> channelsToSilence_;
    double sentClockTime_ = 0;
    std::chrono::nanoseconds songStartTime_{0};
    bool hasSongStartTime_ = false;
    bool songStarted_ = false;
    std::string fault_;
    std::vector<vemo_midi::VoiceEvent> noteOffs_;

    std::shared_ptr<MidiBuffer> ownBuffer_;
    std::unique_ptr<MidiOutputWin32> output_;
};

}  // namespace player
