#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/standard_midi_clock.h"
#include "midi/time_code_converter.h"
#include "midi/user_controls.h"
#include "midi/win32/midi_output_win32.h"
#include "player/cycle_filler.h"
#include "player/device_state.h"
#include "player/loaded_song.h"
#include "player/playback_feed.h"
#include "player/show.h"
#include "player/show_streams.h"
#include "player/time_code_sender.h"

namespace player {

/// Hosts the engine: owns every engine object, gives it songs, steers it by its
/// own rules and tells what it plays. It knows no terminal, file or option; it is
/// the example for every other host.
///
/// Owner:   the program. The feed, and what the settings' functions use, outlive
///          it. Not destroyed by one of its own callbacks.
/// Threads: SetShow() to Resend() on one thread, the transport's; the rest on any.
/// Lock:    the host mutex (held once around every transport call into the engine),
///          then the output's and a buffer's, then songMutex_. songMutex_ is never
///          held while the output is called or waited for, nor while the clock is
///          called.
/// Units:   ticks of the loaded song; tracks are MIDI channels 0..15 of port 0;
///          programs 0..127; trims in percent.
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
        /// Is told the place of every clock, and of where the show stands; may be null. It
        /// outlives the host.
        TimeCodeSender* timeCode = nullptr;
        /// Playback of an arming ended by itself, at a pause of the song or at its
        /// end. On a thread of the engine's, no lock held; must only post.
        std::function<void(std::uint64_t arming)> stopped;
        /// The music went on to the song of that plan. On the clock's thread, with the
        /// host mutex held; must only post.
        std::function<void(std::uint64_t token)> wentOn;
    };

    PlaybackHost(const Settings& settings, PlaybackFeed& feed);
    ~PlaybackHost();
    PlaybackHost(const PlaybackHost&) = delete;
    PlaybackHost& operator=(const PlaybackHost&) = delete;

    /// Stops, and begins to build the show's songs. No song is loaded afterwards.
    void SetShow(std::shared_ptr<const Show> show);
    /// Stops, waits until the song is built, and stands at its start.
    void Load(SongToPlay song);
    /// What the loaded song leads into at once, from the next clock after its last;
    /// empty: nothing.
    void Follow(std::optional<SongToPlay> next);
    /// Goes on from where it stands, after so many bars of clicks; returns the
    /// number of the arming. After a pause of the song, notes that ring sound on.
    std::uint64_t Play(int countInBars);
    /// Stops after the current clock and ends every note. Has stopped also where the
    /// device refused what ends the notes, and that is thrown.
    void Stop();
    /// Goes on at another place, playing if it was playing (then the new arming's
    /// number). Notes held at both places sound on.
    std::optional<std::uint64_t> Locate(std::uint32_t tick);
    /// The song of an arming has ended by itself: ends what still sounds.
    void FinishSong();
    /// The song of an arming has reached a pause: what rings is left alone.
    void FinishAtPause();
    void SetMuted(int channel, bool muted);
    void SetTrim(int channel, int trim);
    /// Sends the program, and keeps the song's own ones back.
    void SetProgram(int channel, int program);
    /// Back to the song's own programs.
    void FollowPrograms();
    void SetClickIsMuted(bool muted);
    void IncreaseGuiDelay() { output_->IncreaseGuiDelay(); }
    void DecreaseGuiDelay() { output_->DecreaseGuiDelay(); }
    /// The device hears nothing from now on: what it holds is what it holds now.
    void NoteOutputLoss();
    /// The device hears again, and is given the whole state.
    void NoteOutputReturn();
    /// Gives a device that has lost its state the whole of it at once: what sounds is ended
    /// and struck again.
    void Resend();
    /// Where nothing plays, sends the place as time code.
    void TellPlace();

    /// Silences the device at once: all notes off, every sounding note's own
    /// note-off, pedals up and all sound off on every channel. Playing goes on. Any
    /// thread; waits for nothing but a message on its way.
    void Panic();

    UserControls& GetUserControls() { return userControls_; }
    bool IsPlaying() const;
    /// Clicks before the music.
    bool IsCountingIn() const;
    /// Stands at a pause of the song with its notes ringing.
    bool IsAtPause() const;
    std::uint64_t GetArming() const;
    /// Of the song that is heard, as given in its plan.
    unsigned int GetSongNumber() const;
    /// Where the next clock falls.
    std::uint32_t GetTick() const;
    /// Empty unless a fill has failed.
    std::string GetFault() const;
    /// Clocks played since construction.
    std::uint64_t GetPlayedClocks() const;
    int GetGuiDelayMilliseconds() const { return *guiDelayMilliseconds_; }
    /// How many of the show's songs are built, and how many there are.
    std::pair<std::size_t, std::size_t> GetLoadProgress() const;
    /// Time of the host's clock: virtual or steady.
    std::chrono::nanoseconds GetTime() const;
    /// Waits until cycles (at most 4) unplayed cycles are filled, or no more will
    /// come; false when none came within atMost.
    bool WaitForFills(int cycles, std::chrono::milliseconds atMost) const;

private:
    // Callbacks of the output.
    void FillBuffer(MidiBuffer& buffer);
    void ClockIsActive();
    bool CyclePlayed(std::uint32_t tick);
    void Stopped();

    // Under songMutex_.
    PlaybackRecord MakeRecord(PlaybackRecord::Kind kind, int transposition);
    void CountInPlayed(const CycleFiller::Cycle& cycle, std::unique_lock<std::mutex>& lock);
    void GoOnTo(const std::shared_ptr<LoadedSong>& song, std::unique_lock<std::mutex>& lock);
    void PublishSong();
    /// What is filled next is of the song that is heard.
    bool FillsHeardSong() const { return filler_.GetSong() == song_; }
    void ResumeFromPause(std::uint32_t tick, double& clockTime, int& clocksPerClick);
    std::uint32_t Place() const;

    std::uint64_t StartAt(std::uint32_t tick, int countInBars);
    void Disarm();
    void EndNotes();
    void SendEndings(const std::vector<vemo_midi::VoiceEvent>& events);
    void SendOwnEvents(const std::vector<vemo_midi::VoiceEvent>& events);
    void RequireSong() const;
    /// While nothing plays, under songMutex_.
    void LocateTimeCode(std::uint32_t tick);

    PlaybackFeed& feed_;
    TimeCodeSender* const timeCode_;
    const std::function<void()> beforeVirtualClock_;
    const std::function<void(std::uint64_t)> stopped_;
    const std::function<void(std::uint64_t)> wentOn_;
    const std::shared_ptr<std::atomic<int>> guiDelayMilliseconds_;

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
    std::unique_ptr<ShowStreams> streams_;
    std::optional<TimeCodeConverter> axis_;  // of the show
    CycleFiller filler_;
    std::shared_ptr<LoadedSong> song_;     // that is heard
    std::shared_ptr<LoadedSong> follow_;   // what it leads into
    std::shared_ptr<LoadedSong> retired_;  // is not destroyed on the clock's thread
    std::uint32_t startTick_ = 0;          // where the next start or the running arming began
    bool deviceIsFresh_ = true;
    std::optional<CycleFiller::Sounding> sounding_;
    bool playedSinceArming_ = false;
    bool isCountingIn_ = false;
    bool isAtPause_ = false;
    bool panicked_ = false;  // since the start: what should sound on may not sound
    std::uint64_t playedClocks_ = 0;
    DeviceState playedState_;
    std::optional<DeviceState> lostState_;  // when the device was lost
    double sentClockTime_ = 0;
    std::chrono::nanoseconds songStartTime_{0};
    bool hasSongStartTime_ = false;
    bool songStarted_ = false;
    std::string fault_;

    std::shared_ptr<MidiBuffer> ownBuffer_;
    std::unique_ptr<MidiOutputWin32> output_;
};

}  // namespace player
