#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "player/clock_statistics.h"
#include "player/midi_file_import.h"
#include "player/midi_file_reader.h"
#include "player/output_devices.h"
#include "player/play_options.h"
#include "player/playback_feed.h"
#include "player/position_writer.h"
#include "player/recording.h"
#include "player/script.h"
#include "player/script_runner.h"
#include "player/song_source.h"
#include "player/transport.h"
#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"
#include "zell/errors.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr int kDone = 0;
constexpr int kFailed = 1;
constexpr int kRefused = 2;
constexpr int kInterrupted = 130;
constexpr auto kLongestSilence = 5s;
constexpr auto kOutputPatience = 2s;

volatile std::sig_atomic_t interrupted = 0;
extern "C" void OnInterrupt(int) {
    interrupted = 1;
}

void Complain(const std::string& message) {
    std::fprintf(stderr, "vemo_player: %s\n", message.c_str());
}

/// What the engine's threads report, until the main thread prints it: standard error
/// may be as stuck as standard output, and the clock must not wait for it. Bounded;
/// a line that repeats the one before is left out.
class Reports {
public:
    void Add(const std::string& line) {
        std::lock_guard lock(mutex_);
        if (line == latest_ || lines_.size() >= kMostLines)
            return;
        lines_.push_back(line);
        latest_ = line;
    }
    /// On the main thread alone.
    void Print() {
        std::vector<std::string> lines;
        {
            std::lock_guard lock(mutex_);
            lines.swap(lines_);
        }
        for (const std::string& line : lines)
            Complain(line);
    }

private:
    static constexpr std::size_t kMostLines = 200;

    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::string latest_;              // guarded by mutex_
};

SongSource ReadSongs(const std::vector<std::string>& files) {
    SongSource songs;
    int number = 0;
    for (const std::string& file : files) {
        ++number;
        songs.Add(std::to_string(number) + " " + file, ImportMidiFile(ReadMidiFile(file), number));
    }
    return songs;
}

Script ReadScript(const std::string& file) {
    if (file.empty())
        return {};
    std::ifstream input(file);
    std::ostringstream text;
    text << input.rdbuf();
    if (!input)
        throw std::invalid_argument(file + ": cannot be read");
    return Script::Parse(text.str(), file);
}

void CheckPlaces(const PlayOptions& options, const SongSource& songs) {
    if ((options.fromBar || options.toBar) && songs.GetCount() != 1)
        throw std::invalid_argument("--from and --to go with a single file");
    if (!options.fromBar && !options.toBar)
        return;
    const auto song = songs.GetSong(songs.GetKey(0));
    if (options.fromBar)
        TickOfBarBeat(*song, {*options.fromBar, 1});
    if (options.toBar)
        TickOfBarBeat(*song, {*options.toBar, 1});
    if (options.toBar && *options.toBar <= options.fromBar.value_or(1))
        throw std::invalid_argument("--to " + std::to_string(*options.toBar) +
                                    " must lie behind the bar to start with");
}

void WarnOfSilentMutes(const PlayOptions& options, const SongSource& songs) {
    for (std::size_t i = 0; i < songs.GetCount(); ++i) {
        const auto song = songs.GetSong(songs.GetKey(i));
        for (const int channel : options.mutedChannels)
            if (!song->song.GetVoiceData().contains(static_cast<unsigned short>(channel - 1)))
                Complain("warning: no track of '" + song->title + "' plays on channel " + std::to_string(channel));
    }
}

/// One run: the transport with everything that listens to it. Members are built in
/// the order in which they need each other.
class Run {
public:
    Run(const PlayOptions& options, const SongSource& songs, Script script, OutputDevices& devices,
        const std::string& output, Reports& reports)
        : isOffline_(options.offline),
          reports_(reports),
          script_(std::move(script), [&reports](const std::string& message) { reports.Add(message); }),
          songs_(songs),
          devices_(devices),
          recording_(options.recordTo.empty() ? nullptr : std::make_unique<Recording>(options.recordTo)),
          exceptionSink_(SetExceptionLogSink([this](const LoggedException& logged) { NoteException(logged); })),
          feed_(options.offline ? PlaybackFeed::Lag::kGrow : PlaybackFeed::Lag::kDropOldest),
          writer_(options.json ? PositionWriter::Form::kJson : PositionWriter::Form::kLine,
                  options.offline ? PositionWriter::Time::kVirtual : PositionWriter::Time::kReal, songs, feed_) {
        try {
            Transport::Settings settings;
            settings.output = output;
            settings.tempoScale = options.tempoScale;
            settings.transposition = options.transposition;
            for (const int channel : options.mutedChannels)
                settings.mutedChannels.insert(channel - 1);
            if (options.fromBar)
                settings.from = BarBeat{*options.fromBar, 1};
            settings.toBar = options.toBar;
            if (isOffline_)
                settings.beforeVirtualClock = [this] { BeforeVirtualClock(); };
            if (recording_)
                devices_.Observe([this](const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
                    recording_->Add(bytes, count, time);
                });
            listener_ = std::thread([this, records = feed_.Subscribe()] { Listen(*records); });
            transport_ = std::make_unique<Transport>(settings, songs, feed_);
            running_ = transport_.get();
            if (isOffline_)
                devices_.UseVirtualTime([host = &transport_->GetHost()] { return host->GetTime(); });
        } catch (...) {
            Close();
            throw;
        }
    }
    ~Run() { Close(); }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    int Play() {
        const CommandAnswer started = transport_->Post({CommandKind::kPlay, 0, 1, 1}).get();
        if (!started.done)
            transport_->PostFault(started.message);
        int status = WaitForEnd();
        // Everything that was sent is with the recording before it is written.
        EndThreads();
        if (recording_) {
            try {
                recording_->Commit(firstClock_);
            } catch (const std::exception& error) {
                Complain(error.what());
                status = kFailed;
            }
        }
        if (!isOffline_ && statistics_.GetClocks() > 0)
            std::fputs(statistics_.Report().c_str(), stderr);
        if (!writer_.Finish(kOutputPatience)) {
            Complain("standard output takes nothing more; left without it");
            std::_Exit(status);
        }
        return status;
    }

private:
    // The listener first: it runs the script, and so uses the transport.
    void EndThreads() {
        isClosing_ = true;
        feed_.Close();
        if (listener_.joinable())
            listener_.join();
        transport_.reset();
    }

    void Close() {
        EndThreads();
        devices_.Observe({});
        devices_.UseVirtualTime({});
        SetExceptionLogSink(exceptionSink_);
    }

    int WaitForEnd() {
        std::uint64_t seen = 0;
        std::uint64_t clocks = 0;
        auto lastClock = std::chrono::steady_clock::now();
        for (;;) {
            const auto snapshot = transport_->WaitForChange(seen, 50ms);
            seen = snapshot->number;
            reports_.Print();
            if (interrupted != 0) {
                transport_->Post({CommandKind::kStop, 0, 1, 1}).get();
                return kInterrupted;
            }
            switch (snapshot->state) {
                case TransportState::kEnded: return kDone;
                case TransportState::kFault:
                    for (const std::string& message : snapshot->messages)
                        Complain(message);
                    return kFailed;
                case TransportState::kStopped:
                case TransportState::kEmpty:
                    // Stopped by the script, which has nothing more to do here.
                    if (scriptHasSettled_)
                        return kDone;
                    break;
                case TransportState::kPlaying: break;
            }
            const auto now = std::chrono::steady_clock::now();
            const std::uint64_t played = transport_->GetHost().GetPlayedClocks();
            if (played != clocks || snapshot->state != TransportState::kPlaying)
                lastClock = now;
            clocks = played;
            if (now - lastClock > kLongestSilence)
                transport_->PostFault("no cycle has been played for five seconds" + LastException());
            else if (engineThreadIsDead_)
                transport_->PostFault("a thread of the engine has ended" + LastException());
        }
    }

    void NoteException(const LoggedException& logged) {
        reports_.Add(logged.message + " (" + logged.sourcePath + ")");
        const bool endsThread = logged.sourcePath == "midi/Sources/midi_queue_thread" ||
                                logged.sourcePath == "midi/Sources/win32/standard_midi_clock_impl" ||
                                logged.sourcePath == "player/Sources/offline_clock";
        std::lock_guard lock(exceptionMutex_);
        lastException_ = logged.message;
        if (endsThread)
            engineThreadIsDead_ = true;
    }

    std::string LastException() {
        std::lock_guard lock(exceptionMutex_);
        return lastException_.empty() ? std::string() : ": " + lastException_;
    }

    // Virtual time: on the clock's thread, which holds nothing.
    void BeforeVirtualClock() {
        const PlaybackHost& host = running_->GetHost();
        for (;;) {
            if (!host.WaitForFills(1, kLongestSilence)) {
                running_->PostFault("no cycle was filled for five seconds" + LastException());
                return;
            }
            // Not the snapshot's song: that follows a moment after the clock's start.
            const auto song = songs_.GetSong(songs_.GetKey(host.GetSongNumber() - 1));
            if (!script_.IsDue(*song, host.GetTick()))
                break;
            // With the ring full, so that every run does the same.
            host.WaitForFills(4, kLongestSilence);
            RunNextLine(*song, [&host] { return host.GetTick(); });
        }
    }

    // Real time: on the listener's thread.
    void RunScriptAfter(const PlaybackRecord& record) {
        const auto song = songs_.GetSong(songs_.GetKey(record.song - 1));
        const std::uint32_t next = record.tick + song->song.GetResolution() / 24u;
        while (!isClosing_ && script_.IsDue(*song, next))
            RunNextLine(*song, [next] { return next; });
    }

    // A line that stops the music ends the run, unless the next one is due there.
    template <class GetTick>
    void RunNextLine(const ImportedSong& song, GetTick getTick) {
        script_.RunNext(*running_);
        if (running_->GetSnapshot()->state == TransportState::kStopped && !script_.IsDue(song, getTick()))
            scriptHasSettled_ = true;
    }

    void Listen(PlaybackFeed::Subscription& records) {
        while (const auto record = records.Next()) {
            if (record->kind != PlaybackRecord::Kind::kClock)
                continue;
            if (!firstClock_)
                firstClock_ = record->time;
            if (isOffline_)
                continue;
            statistics_.Add(*record);
            if (!script_.IsFinished())
                RunScriptAfter(*record);
        }
    }

    const bool isOffline_;
    Reports& reports_;
    ScriptRunner script_;
    std::atomic<bool> scriptHasSettled_{false};
    std::atomic<bool> isClosing_{false};
    const SongSource& songs_;
    OutputDevices& devices_;
    std::unique_ptr<Recording> recording_;
    std::mutex exceptionMutex_;
    std::string lastException_;  // guarded by exceptionMutex_
    std::atomic<bool> engineThreadIsDead_{false};
    ExceptionLogSink exceptionSink_;
    PlaybackFeed feed_;
    PositionWriter writer_;
    // The listener's own until it has been joined.
    std::optional<std::chrono::nanoseconds> firstClock_;
    ClockStatistics statistics_;
    std::thread listener_;
    std::unique_ptr<Transport> transport_;
    // For the engine's threads, also while the transport is being destroyed.
    Transport* running_ = nullptr;
};

}  // namespace

int Play(const PlayOptions& options) {
    // What the engine reports must not mix with what a program reads.
    const auto reports = std::make_shared<Reports>();
    zell::CoutBuffer::SetSink(
        [reports](const std::string& text) { reports->Add(text.substr(0, text.find_last_not_of('\n') + 1)); });
    if (!OutputDevices::CanRecord() && (options.offline || !options.recordTo.empty())) {
        Complain("--offline and --record are not to be had on this system: its MIDI service plays in real time only");
        return kRefused;
    }
    bool hasStarted = false;
    try {
        const SongSource songs = ReadSongs(options.files);
        Script script = ReadScript(options.script);
        CheckPlaces(options, songs);
        OutputDevices devices;
        const std::string output = OutputDevices::Select(options.output);
        WarnOfSilentMutes(options, songs);
        // Before the recording's temporary file is there: nobody would remove it.
        std::signal(SIGINT, OnInterrupt);
        std::signal(SIGTERM, OnInterrupt);
        Run run(options, songs, std::move(script), devices, output, *reports);
        hasStarted = true;
        const int status = run.Play();
        reports->Print();
        return status;
    } catch (const std::exception& error) {
        // Of an output that cannot be opened, the engine lists every device below.
        const std::string message = error.what();
        Complain(message.substr(0, message.find('\n')));
        return hasStarted ? kFailed : kRefused;
    }
}

}  // namespace player
