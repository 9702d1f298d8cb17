#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "player/playback_feed.h"
#include "player/playback_host.h"
#include "player/song_source.h"
#include "player/transport_command.h"

namespace player {

/// What the transport knows at one moment. Immutable and numbered: a higher number
/// is later.
struct TransportSnapshot {
    struct Track {
        int channel = 1;  // 1..16
        std::string name;
        int program = 1;  // 1..128
        bool muted = false;
    };

    std::uint64_t number = 0;
    TransportState state = TransportState::kEmpty;
    unsigned int song = 0;  // from 1; 0: none
    std::string title;
    std::uint32_t tick = 0;  // where it stands; while playing, where it started
    double tempoScale = 1;
    int transposition = 0;
    std::vector<Track> tracks;
    std::vector<std::string> messages;  // the latest, oldest first
};

/// How a command went.
struct CommandAnswer {
    bool done = false;
    std::string message;  // why not, or what there is to say
};

/// Carries commands out, one after another, on a thread of its own; and goes from
/// song to song.
///
/// Owner:   the program; it owns the host. Songs and feed outlive it.
/// Threads: any may post. Commands, and the host, run on the transport's thread.
///          Every command is answered exactly once, also at destruction.
/// Lock:    mutex_, a leaf, not held while a command runs.
/// Errors:  a command never throws: its answer says what went wrong. A failure of
///          the engine leads to the state fault.
class Transport {
public:
    struct Settings {
        std::string output;
        double tempoScale = 1;
        int transposition = 0;
        std::set<int> mutedChannels;  // 0..15
        std::optional<BarBeat> from;  // of the first song
        std::optional<int> toBar;     // of the first song
        /// Virtual time: runs on the clock's thread before every clock, and may
        /// post commands and wait for their answers.
        std::function<void()> beforeVirtualClock;
    };

    /// MidiDeviceUnavailable where the output cannot be opened.
    Transport(const Settings& settings, const SongSource& songs, PlaybackFeed& feed);
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    std::future<CommandAnswer> Post(const TransportCommand& command);
    /// Breaks off: state fault, with the reason among the messages.
    void PostFault(const std::string& reason);

    std::shared_ptr<const TransportSnapshot> GetSnapshot() const;
    /// Waits until the snapshot's number exceeds number or the time has passed.
    std::shared_ptr<const TransportSnapshot> WaitForChange(std::uint64_t number,
                                                           std::chrono::milliseconds atMost) const;
    const PlaybackHost& GetHost() const { return host_; }

private:
    struct Request {
        std::function<CommandAnswer()> run;
        std::promise<CommandAnswer> answer;
    };

    void Run();
    std::future<CommandAnswer> Enqueue(std::function<CommandAnswer()> run);
    CommandAnswer Execute(const TransportCommand& command);
    void LoadSong(std::size_t index, std::uint32_t startTick, std::optional<std::uint32_t> endTick);
    void SongStopped(std::uint64_t arming);
    CommandAnswer Mute(int channel, bool muted);
    void Fail(const std::string& reason);
    void PublishEnd();
    void PublishSnapshot();

    const SongSource& songs_;
    PlaybackFeed& feed_;

    mutable std::mutex mutex_;
    std::condition_variable posted_;
    mutable std::condition_variable changed_;
    // Guarded by mutex_.
    std::deque<Request> requests_;
    bool exit_ = false;
    std::shared_ptr<const TransportSnapshot> snapshot_;

    // The transport thread's own.
    TransportState state_ = TransportState::kEmpty;
    std::size_t songIndex_ = 0;
    std::shared_ptr<const ImportedSong> song_;
    std::set<int> mutedChannels_;
    std::uint64_t arming_ = 0;
    std::uint64_t snapshotNumber_ = 0;
    std::deque<std::string> messages_;

    PlaybackHost host_;
    std::thread thread_;
};

/// The tick of a bar and beat of a song. std::invalid_argument with one line where
/// the song has no such bar or beat.
std::uint32_t TickOfBarBeat(const ImportedSong& song, const BarBeat& place);

}  // namespace player
