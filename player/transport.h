#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "player/command_answer.h"
#include "player/command_input.h"
#include "player/current_show.h"
#include "player/playback_feed.h"
#include "player/playback_host.h"
#include "player/show_control.h"
#include "player/show_state.h"
#include "player/time_code_control.h"
#include "player/transport_command.h"
#include "player/transport_snapshot.h"

namespace player {

/// Carries commands out, one after another, on a thread of its own; and goes
/// through the set list.
///
/// Owner:   the program; it owns the host. The current show and the feed outlive it.
/// Threads: any may post. Commands, and the host, run on the transport's thread,
///          but for the panic, which is carried out at once where it is posted.
///          Every command is answered exactly once, also at destruction.
/// Lock:    mutex_, a leaf, not held while a command runs.
/// Errors:  a command never throws: its answer says what went wrong. A failure of
///          the engine leads to the state fault.
class Transport {
public:
    struct Settings {
        std::string output;
        std::shared_ptr<const Show> show;
        double tempoScale = 1;
        int transposition = 0;
        bool holds = false;
        std::set<int> mutedChannels;  // 0..15, beside those of the show
        std::optional<BarBeat> from;  // of the first song
        std::optional<int> toBar;     // of the first song
        /// Nobody presses keys: goes on by itself at pauses and between songs.
        bool goesOn = false;
        /// Of shows opened later: whether their songs may lie outside their folder.
        bool allowOutside = false;
        std::optional<ShowState> resume;
        /// Null: no time code is to be had. It outlives the transport.
        TimeCodeControl* timeCode = nullptr;
        /// Null: pedals and show control are not heard. They outlive the transport.
        CommandInput* commandInput = nullptr;
        ShowControl* showControl = nullptr;
        /// Virtual time: runs on the clock's thread before every clock, and may
        /// post commands and wait for their answers.
        std::function<void()> beforeVirtualClock;
    };

    /// MidiDeviceUnavailable where the output cannot be opened.
    Transport(const Settings& settings, CurrentShow& currentShow, PlaybackFeed& feed);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    std::future<CommandAnswer> Post(const TransportCommand& command);
    /// Breaks off: state fault, with the reason among the messages.
    void PostFault(const std::string& reason);
    /// The same, unless it no longer plays or has played more than so many clocks.
    void PostSilence(const std::string& reason, std::uint64_t playedClocks);
    /// The device of the music is unplugged, and is back, which gives it the whole state.
    void PostOutputLoss();
    void PostOutputReturn();
    /// Something that the operator should read.
    void PostMessage(const std::string& text);

    std::shared_ptr<const TransportSnapshot> GetSnapshot() const;
    /// Waits until the snapshot's number exceeds number or the time has passed.
    std::shared_ptr<const TransportSnapshot> WaitForChange(std::uint64_t number,
                                                           std::chrono::milliseconds atMost) const;
    const PlaybackHost& GetHost() const { return host_; }
    /// Each null where none is to be had.
    const CommandInput* GetCommandInput() const { return commandInput_; }
    const ShowControl* GetShowControl() const { return showControl_; }
    const TimeCodeSender* GetTimeCode() const { return timeCode_ ? &timeCode_->GetSender() : nullptr; }

private:
    using Entry = TransportSnapshot::Entry;
    /// What the host was told to go on to.
    struct Followed {
        std::uint64_t token = 0;
        std::uint64_t entry = 0;  // its id
        std::size_t song = 0;
    };
    struct Request {
        std::function<CommandAnswer()> run;
        std::promise<CommandAnswer> answer;
    };

    void Run();
    std::future<CommandAnswer> PostShow(const std::string& path);
    std::future<CommandAnswer> Enqueue(std::function<CommandAnswer()> run);
    CommandAnswer Execute(const TransportCommand& command);
    CommandAnswer ExecuteSteering(const TransportCommand& command);
    CommandAnswer ExecuteInShow(const TransportCommand& command);

    void OpenShow(std::shared_ptr<const Show> show);
    void Resume(const ShowState& state);
    CommandAnswer SwitchToShow(std::shared_ptr<const Show> show);
    CommandAnswer SelectSong(std::size_t song);
    CommandAnswer GoToEntry(bool forward);
    CommandAnswer EditSetList(const TransportCommand& command);
    CommandAnswer Save();
    CommandAnswer ExecuteTimeCode(const TransportCommand& command);
    CommandAnswer ExecuteInput(const TransportCommand& command);
    CommandAnswer SetCommandInput(const std::string& device);
    CommandAnswer Go(const std::string& cue);

    CommandAnswer Start();
    CommandAnswer StopMusic();
    CommandAnswer PauseMusic();
    CommandAnswer LocateTo(std::uint32_t tick);
    CommandAnswer LocateMarker(bool forward);
    CommandAnswer LocateMeasure(bool forward);
    CommandAnswer Mute(int channel, bool muted);
    CommandAnswer MuteGroup(int number, bool muted);
    CommandAnswer UnmuteAll();
    CommandAnswer Trim(int channel, int trim);
    CommandAnswer ChooseProgram(int channel, int program);
    CommandAnswer ChoosePatch(bool forward);
    CommandAnswer StepTempo(bool faster);
    CommandAnswer StepTransposition(int semitones);

    SongToPlay PlanOf(std::size_t index) const;
    std::set<int> StartMutes() const;
    std::set<int> MutesOfNextSong() const;
    std::set<unsigned short> MutedTracks(std::size_t index, const std::set<int>& channels) const;
    void LoadSong(std::size_t index, std::optional<std::size_t> entry);
    void LoadSong(std::size_t index, std::optional<std::size_t> entry, const std::set<int>& mutes);
    void UpdateNext();
    std::optional<std::size_t> NextPlayable(std::optional<std::size_t> entry, bool forward) const;
    std::size_t FindSong(const std::string& name) const;
    std::optional<std::size_t> IndexOf(const std::string& key) const;
    const ShowSong& CurrentSong() const;
    bool SongHasChannel(int channel) const;
    int TrimOf(int channel) const;
    void SetTempoScale(double scale);
    void SetTransposition(int semitones);
    std::string StopHost();
    void StopIfSounding();

    void SongStopped(std::uint64_t arming);
    void WentOn(std::uint64_t token);
    void Fail(const std::string& reason);
    void Say(const std::string& text);
    void PublishEnd();
    void PublishSnapshot();
    void DescribeSong(TransportSnapshot& snapshot) const;

    CurrentShow& currentShow_;
    PlaybackFeed& feed_;
    const bool goesOn_;
    const bool allowOutside_;
    TimeCodeControl* const timeCode_;
    CommandInput* const commandInput_;
    ShowControl* const showControl_;

    mutable std::mutex mutex_;
    std::condition_variable posted_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<Request> requests_;
    bool exit_ = false;
    std::shared_ptr<const TransportSnapshot> snapshot_;

    // The transport thread's own.
    TransportState state_ = TransportState::kEmpty;
    std::shared_ptr<const Show> show_;
    std::vector<Entry> setList_;
    std::optional<std::size_t> entry_;
    std::optional<std::size_t> song_;                     // in the show
    const std::set<int> alwaysMuted_;                     // 0..15
    std::optional<int> toBar_;                            // of the song that is loaded first
    std::set<int> mutes_;                                 // 0..15
    std::map<int, int> trims_;                            // by channel 0..15
    std::map<std::string, std::map<int, int>> programs_;  // by song key and channel 0..15; 0..127
    std::map<std::string, bool> clickMutes_;              // by song key
    std::optional<std::size_t> patch_;
    bool holds_ = false;
    double tempoScale_ = 1;
    int transposition_ = 0;
    std::uint64_t arming_ = 0;
    std::uint64_t entryIds_ = 0;
    std::uint64_t plans_ = 0;
    std::deque<Followed> followed_;  // the latest, oldest first
    bool isStarting_ = true;
    bool pausedInCountIn_ = false;
    std::uint64_t snapshotNumber_ = 0;
    std::uint64_t messageNumber_ = 0;
    std::uint64_t carriedOut_ = 0;
    std::deque<TransportSnapshot::Message> messages_;

    PlaybackHost host_;
    std::thread thread_;
    std::mutex readersMutex_;
    std::vector<std::thread> readers_;  // of show files; guarded by readersMutex_
};

/// The tick of a bar and beat of a song. std::invalid_argument with one line where
/// the song has no such bar or beat.
std::uint32_t TickOfBarBeat(const ImportedSong& song, const BarBeat& place);

}  // namespace player
