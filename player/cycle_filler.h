#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "midi/midi_buffer.h"
#include "midi/midi_stream.h"
#include "midi/time_code_converter.h"
#include "midi/user_controls.h"
#include "player/device_state.h"
#include "player/loaded_song.h"
#include "player/show_streams.h"

namespace player {

/// Fills the output's cycles with a song, up to four ahead of what is heard, so that
/// the device always holds what belongs to the place: after starts, seeks, mutes and
/// transpositions, and from one song into the next without a gap.
///
/// Owner:   the playback host; streams and user controls outlive it.
/// Threads: one at a time: the host calls it with its song mutex held, and Fill()
///          with the buffer's mutex as well.
/// Units:   ticks of the song; track ids 0..15.
/// Errors:  what the engine throws passes from Fill().
class CycleFiller {
public:
    /// One filled cycle, until it is played.
    struct Cycle {
        std::shared_ptr<LoadedSong> song;
        std::uint32_t tick = 0;
        signed char transposition = 0;
        int countInLeft = 0;  // clocks of the count-in, with this one; 0: music
        int countInClocksPerBar = 0;
        int countInClockNumber = 0;
        // On the show's axis, in seconds: where the cycle begins and where the next one does.
        std::pair<double, double> timeCode;
        std::vector<std_midi::VoiceMessage> messages;
    };
    /// What the device has heard of a song.
    struct Sounding {
        std::uint32_t tick = 0;  // the first tick not played
        signed char transposition = 0;
    };
    struct StartAt {
        std::shared_ptr<LoadedSong> song;
        std::uint32_t tick = 0;
        std::optional<Sounding> sounding;  // empty: nothing of the song sounds
        bool deviceIsFresh = false;        // nothing was ever sent to it
        int countInBars = 0;
    };

    explicit CycleFiller(UserControls& userControls);

    /// For all starts from now on.
    void SetStreams(ShowStreams* streams);
    /// The time axis of the show that the streams are of.
    void SetTimeAxis(const TimeCodeConverter& axis) { axis_ = axis; }
    /// Makes the song the stream's current one, once it is built.
    void Select(const std::shared_ptr<LoadedSong>& song);
    /// The ring is empty, and the device holds this.
    void Start(const StartAt& start, const DeviceState& device);
    /// No more cycles are wanted until the next start.
    void Stop();
    /// Goes back to the song that is heard, where what was filled is of the next one
    /// already and will not be played.
    void ReturnTo(const std::shared_ptr<LoadedSong>& song);
    /// The song that was entered is heard, and the user's controls are its own.
    void SongIsHeard() { isAhead_ = false; }
    const std::shared_ptr<LoadedSong>& GetSong() const { return song_; }
    /// What the song's end leads into at once; null: nothing.
    void SetNext(std::shared_ptr<LoadedSong> next);
    void Fill(MidiBuffer& buffer);
    /// The song ends with this buffer, whatever is in it.
    void BreakOff(MidiBuffer& buffer);
    /// The oldest filled cycle, until CountPlayed(). While playing only.
    const Cycle& GetOldest() const { return cycles_[playedCount_ % kRememberedCycles]; }
    void CountPlayed() { ++playedCount_; }

    bool GetIsPlaying() const { return wantsCycles_; }
    bool GetLastIsFilled() const { return lastIsFilled_; }
    std::uint64_t GetFilledCount() const { return filledCount_; }
    std::uint64_t GetPlayedCount() const { return playedCount_; }
    /// Before anything is filled: within the click. A count-in ends where the music's
    /// first click goes on.
    int GetFirstClockNumber() const { return CountInClockNumber(countInLeft_); }

    /// ringing: notes may sound, whether it plays or not.
    /// False where it was muted already.
    bool Mute(unsigned short id, bool ringing);
    void Unmute(unsigned short id, bool ringing);
    /// Instead of the song's; the host sends it at once.
    void SetUserProgram(unsigned short id, unsigned char program);
    void FollowPrograms();
    /// The next cycle gives back the controllers and bends that a silencing has reset;
    /// no note is struck again.
    void Restore() { restore_ = true; }
    ShowStreams* GetStreams() const { return streams_; }

private:
    /// How a cycle makes the device hold what the song wants.
    enum class Entry {
        kCold,            // nothing was ever sent: the whole state
        kFresh,           // nothing sounds: the whole state
        kAfterSeek,       // compare with what sounds
        kTransposedSeek,  // end what sounds, transposed as it was; then the whole state
        kRunning          // it holds it
    };
    using ByChannel = std::array<std::bitset<128>, DeviceState::kChannels>;
    struct HeldState {
        ByChannel notes;
        ByChannel controllers;
    };
    struct ClickNote {
        unsigned short id = 0;
        std::uint8_t note = 0;
        int clocksLeft = 0;
    };
    // The ring's four cycles, and what the clock has not yet reported.
    static constexpr std::uint64_t kRememberedCycles = 8;

    int CountInClockNumber(int clocksLeft) const;
    Cycle& BeginCycle();
    void EndCycle(MidiBuffer& buffer);
    bool EnterNext(MidiBuffer& buffer, Cycle& cycle);
    void FillCountIn(MidiBuffer& buffer);
    void EnqueueSong(MidiBuffer& buffer, std::uint32_t endTick, Cycle& cycle);
    void EnqueueRunning(MidiBuffer& buffer, std::uint32_t endTick, Cycle& cycle);
    void UnmutePending();
    void Absorb(MidiBuffer& buffer, Cycle& cycle);
    void Append(MidiBuffer& buffer, Cycle& cycle, const vemo_midi::VoiceEvent& event);
    void EndEveryNote(MidiBuffer& buffer, Cycle& cycle);
    void RestoreState(MidiBuffer& buffer, Cycle& cycle);
    void CompleteState(MidiBuffer& buffer, Cycle& cycle);
    void CompletePrograms(MidiBuffer& buffer, Cycle& cycle, bool enters);
    void SilenceMutedChannels(MidiBuffer& buffer, Cycle& cycle);
    void FillClick(MidiBuffer& buffer, Cycle& cycle, int clockNumber, int clocksPerClick, bool startsBar,
                   const ShowDocument::ClickTrack& click);
    void EndClick(MidiBuffer& buffer, Cycle& cycle);
    HeldState FindHeldState(std::uint32_t tick);
    signed char Transposition();

    UserControls& userControls_;
    const std::shared_ptr<MidiBuffer> scratchBuffer_;
    ShowStreams* streams_ = nullptr;
    std::optional<TimeCodeConverter> axis_;  // at the song that is filled
    std::shared_ptr<LoadedSong> song_;
    std::shared_ptr<LoadedSong> selected_;  // whose stream stream_ is
    std::shared_ptr<LoadedSong> next_;
    MidiStream* stream_ = nullptr;

    std::uint32_t fillTick_ = 0;
    std::uint32_t enqueuedTick_ = 0;
    bool portWasFull_ = false;
    bool lastIsFilled_ = false;
    bool wantsCycles_ = false;
    bool isAhead_ = false;  // in a song that is not heard yet
    bool seekBeforeFill_ = false;
    bool restore_ = false;
    bool deviceIsFresh_ = false;
    bool completePrograms_ = false;
    Entry entry_ = Entry::kCold;
    std::optional<Sounding> sounding_;
    signed char previousTransposition_ = 0;
    int countInLeft_ = 0;
    int countInClocksPerBar_ = 0;
    // Of the cycle that enters a place.
    std::size_t ownMessages_ = 0;  // before the song's
    ByChannel endedAtStart_;
    HeldState heldAtStart_;

    std::array<Cycle, kRememberedCycles> cycles_;
    std::uint64_t filledCount_ = 0;
    std::uint64_t playedCount_ = 0;
    DeviceState state_;  // once what is filled is played
    std::set<unsigned short> pendingUnmutes_;
    std::set<unsigned short> channelsToSilence_;
    std::optional<ClickNote> clickNote_;
    std::vector<vemo_midi::VoiceEvent> ownEvents_;
};

}  // namespace player
