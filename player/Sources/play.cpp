#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "player/activity_meter.h"
#include "player/clock_statistics.h"
#include "player/command_input.h"
#include "player/control_server.h"
#include "player/current_show.h"
#include "player/exit_status.h"
#include "player/input_posting.h"
#include "player/operator_commands.h"
#include "player/output_devices.h"
#include "player/play_options.h"
#include "player/playback_feed.h"
#include "player/position_writer.h"
#include "player/recording.h"
#include "player/script.h"
#include "player/script_runner.h"
#include "player/show_control.h"
#include "player/show_file.h"
#include "player/show_loading.h"
#include "player/state_keeper.h"
#include "player/time_code_control.h"
#include "player/time_code_recording.h"
#include "player/transport.h"
#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"
#include "zell/errors.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr auto kLongestSilence = 5s;
constexpr auto kOutputPatience = 2s;

volatile std::sig_atomic_t interrupted = 0;
extern "C" void OnInterrupt(int) {
    interrupted = 1;
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
    /// On the main thread alone. Returns what was printed.
    std::vector<std::string> Print() {
        std::vector<std::string> lines;
        {
            std::lock_guard lock(mutex_);
            lines.swap(lines_);
            latest_.clear();
        }
        for (const std::string& line : lines)
            Complain(line);
        return lines;
    }

private:
    static constexpr std::size_t kMostLines = 200;

    std::mutex mutex_;
    std::vector<std::string> lines_;  // guarded by mutex_
    std::string latest_;              // guarded by mutex_
};

bool IsShowFile(const std::string& file) {
    return file.ends_with(".json");
}

std::shared_ptr<const Show> ReadShow(const PlayOptions& options) {
    if (options.files.size() != 1 || !IsShowFile(options.files.front())) {
        if (std::any_of(options.files.begin(), options.files.end(), IsShowFile))
            throw std::invalid_argument("a show file is played alone");
        return ShowOfFiles(options.files);
    }
    const std::string& file = options.files.front();
    auto show = LoadShow(ReadShowFile(file), file, options.allowOutside);
    const auto& songs = show->GetSongs();
    if (std::none_of(songs.begin(), songs.end(), [](const ShowSong& song) { return song.song != nullptr; }))
        throw std::invalid_argument(file + ": no song of the show can be played; see: vemo_player verify");
    return show;
}

std::optional<ShowState> ReadResume(const PlayOptions& options, const Show& show) {
    if (!options.resume)
        return std::nullopt;
    if (show.GetFile().empty())
        throw std::invalid_argument("--resume goes with a show file");
    if (options.tempoScale != 1 || options.transposition != 0)
        throw std::invalid_argument("--resume brings its own tempo scale and transposition");
    const std::filesystem::path path = ShowState::PathFor(show.GetFile());
    std::ifstream input(path);
    std::ostringstream text;
    text << input.rdbuf();
    if (!input)
        throw std::invalid_argument(path.string() + ": cannot be read; the show was not played yet");
    try {
        return ShowState::Parse(text.str());
    } catch (const std::invalid_argument& error) {
        throw std::invalid_argument(path.string() + ": " + error.what());
    }
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

void CheckPlaces(const PlayOptions& options, const Show& show) {
    if ((options.fromBar || options.toBar) && (options.files.size() != 1 || IsShowFile(options.files.front())))
        throw std::invalid_argument("--from and --to go with a single file");
    if (!options.fromBar && !options.toBar)
        return;
    const auto& song = show.GetSongs().front().song;
    if (options.fromBar)
        TickOfBarBeat(*song, {*options.fromBar, 1});
    if (options.toBar)
        TickOfBarBeat(*song, {*options.toBar, 1});
    if (options.toBar && *options.toBar <= options.fromBar.value_or(1))
        throw std::invalid_argument("--to " + std::to_string(*options.toBar) +
                                    " must lie behind the bar to start with");
}

void WarnOfSilentMutes(const PlayOptions& options, const Show& show) {
    for (const ShowSong& song : show.GetSongs())
        for (const int channel : options.mutedChannels)
            if (song.song && !song.song->song.GetVoiceData().contains(static_cast<unsigned short>(channel - 1)))
                Complain("warning: no track of '" + song.title + "' plays on channel " + std::to_string(channel));
}

/// One run: the transport with everything that listens to it. Members are built in
/// the order in which they need each other.
class Run {
public:
    Run(const PlayOptions& options, std::shared_ptr<const Show> show, std::optional<ShowState> resume, Script script,
        OutputDevices& devices, const std::string& output, Reports& reports)
        : isOffline_(options.offline),
          isServed_(!options.serveAt.empty()),
          reports_(reports),
          script_(std::move(script), [&reports](const std::string& message) { reports.Add(message); }),
          devices_(devices),
          recording_(options.recordTo.empty() ? nullptr : std::make_unique<Recording>(options.recordTo)),
          timeCodeRecording_(options.mtcRecordTo.empty() ? nullptr
                                                         : std::make_unique<TimeCodeRecording>(options.mtcRecordTo)),
          timeCode_(TimeCodeSettings(options, output)),
          commandInput_(CommandInputSettings(options)),
          showControl_(ShowControlSettings()),
          exceptionSink_(SetExceptionLogSink([this](const LoggedException& logged) { NoteException(logged); })),
          feed_(options.offline ? PlaybackFeed::Lag::kGrow : PlaybackFeed::Lag::kDropOldest),
          writer_(options.json ? PositionWriter::Form::kJson : PositionWriter::Form::kLine,
                  options.offline ? PositionWriter::Time::kVirtual : PositionWriter::Time::kReal, show_, feed_) {
        try {
            Transport::Settings settings;
            show_.Set(show);
            settings.show = std::move(show);
            settings.resume = std::move(resume);
            settings.allowOutside = options.allowOutside;
            settings.output = output;
            settings.timeCode = &timeCode_;
            // Nobody presses pedals in virtual time.
            if (!isOffline_) {
                settings.commandInput = &commandInput_;
                settings.showControl = &showControl_;
            }
            // What the command line says holds for the whole run.
            settings.holds = options.tempoScale != 1 || options.transposition != 0;
            settings.goesOn = !isServed_;
            settings.tempoScale = options.tempoScale;
            settings.transposition = options.transposition;
            for (const int channel : options.mutedChannels)
                settings.mutedChannels.insert(channel - 1);
            if (options.fromBar)
                settings.from = BarBeat{*options.fromBar, 1};
            settings.toBar = options.toBar;
            if (isOffline_)
                settings.beforeVirtualClock = [this] { BeforeVirtualClock(); };
            if (recording_ || isServed_)
                devices_.Observe([this](const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
                    if (recording_)
                        recording_->Add(bytes, count, time);
                    activity_.Add(bytes, count, time);
                });
            listener_ = std::thread([this, records = feed_.Subscribe()] { Listen(*records); });
            transport_ = std::make_unique<Transport>(settings, show_, feed_);
            running_ = transport_.get();
            posting_.Open(*transport_);
            outputIndex_ = static_cast<std::size_t>(std::stoul(output));
            devices_.ObserveChanges(
                [this](std::size_t index, OutputDevices::Change change) { OutputHasChanged(index, change); });
            if (isServed_)
                server_ = std::make_unique<ControlServer>(
                    ControlServer::Settings{options.serveAt, OutputDevices::GetNames().at(outputIndex_),
                                            [this] { quitIsAsked_ = true; },
                                            OutputDevices::CanRecord() ? &activity_ : nullptr,
                                            [this] { return OutputDevices::IsLost(outputIndex_); }},
                    *transport_, feed_);
            // A run in virtual time is a rendering and no evening to come back to.
            // Songs without a show file have no state, but may give way to a show that has.
            if (const std::filesystem::path file = show_.Get()->GetFile(); !isOffline_)
                keeper_ = std::make_unique<StateKeeper>(
                    feed_, *transport_, file.empty() ? file : ShowState::PathFor(file),
                    [this](const std::string& reason) { running_->PostMessage("where the show stands: " + reason); });
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
        if (!isServed_) {
            const CommandAnswer started = transport_->Post(ParseCommand("play")).get();
            if (!started.done)
                transport_->PostFault(started.message);
        }
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
        if (timeCodeRecording_) {
            try {
                timeCodeRecording_->Commit(firstClock_);
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
        posting_.Close();
        devices_.ObserveChanges({});
        server_.reset();
        feed_.Close();
        if (listener_.joinable())
            listener_.join();
        keeper_.reset();
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
        bool deathIsTold = false;
        auto lastClock = std::chrono::steady_clock::now();
        for (;;) {
            const auto snapshot = transport_->WaitForChange(seen, 50ms);
            seen = snapshot->number;
            commandInput_.Poll();
            showControl_.Poll();
            for (const std::string& line : reports_.Print())
                if (isServed_)
                    transport_->PostMessage(line);
            if (quitIsAsked_) {
                transport_->Post(ParseCommand("stop")).get();
                return kDone;
            }
            if (interrupted != 0) {
                transport_->Post(ParseCommand("stop")).get();
                return kInterrupted;
            }
            // Served, the show stands where it is until the operator has it end.
            switch (isServed_ ? TransportState::kPlaying : snapshot->state) {
                case TransportState::kEnded: return kDone;
                case TransportState::kFault:
                    for (const TransportSnapshot::Message& message : snapshot->messages)
                        Complain(message.text);
                    return kFailed;
                case TransportState::kStopped:
                case TransportState::kWaiting:
                case TransportState::kPaused:
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
                transport_->PostSilence("no cycle has been played for five seconds" + LastException(), played);
            else if (engineThreadIsDead_ && !std::exchange(deathIsTold, true))
                transport_->PostFault("a thread of the engine has ended" + LastException());
        }
    }

    TimeCodeControl::Settings TimeCodeSettings(const PlayOptions& options, const std::string& output) {
        TimeCodeControl::Settings settings;
        if (!options.mtc.empty())
            settings.frameRate = TimeCodeControl::ParseFrameRate(options.mtc);
        settings.output = options.mtcOutput;
        if (!options.mtcStart.empty())
            settings.start = TimeCodeControl::ParseLabel(options.mtcStart);
        settings.musicOutput = output;
        if (isOffline_)
            settings.virtualTime = [this] { return running_ ? running_->GetHost().GetTime() : 0ns; };
        if (timeCodeRecording_)
            settings.observer = [this](const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
                timeCodeRecording_->Add(bytes, count, time);
            };
        settings.say = [&reports = reports_](const std::string& text) { reports.Add(text); };
        return settings;
    }

    CommandInput::Settings CommandInputSettings(const PlayOptions& options) {
        CommandInput::Settings settings;
        settings.input = options.input;
        settings.file = options.commands;
        settings.fire = [this](CommandKind kind) { posting_.PostPress(kind); };
        settings.say = [&reports = reports_](const std::string& text) { reports.Add(text); };
        return settings;
    }

    ShowControl::Settings ShowControlSettings() {
        ShowControl::Settings settings;
        settings.go = [this](const std::string& cue) {
            TransportCommand command;
            command.kind = CommandKind::kGo;
            command.text = cue;
            return posting_.Post(command);
        };
        settings.plays = [this](const std::string& cue) { return posting_.PlaysSongOf(cue); };
        settings.commandInput = [this] { return commandInput_.GetReport().input; };
        settings.say = [&reports = reports_](const std::string& text) { reports.Add(text); };
        return settings;
    }

    // On a thread of the devices.
    void OutputHasChanged(std::size_t index, OutputDevices::Change change) {
        const std::string name = OutputDevices::GetNames().at(index);
        const bool isLost = change == OutputDevices::Change::kLost;
        reports_.Add("output '" + name + "' is " +
                     (isLost ? "lost; it will be taken up again when it is back" : "back"));
        if (index != outputIndex_)
            return;  // the time code's, whose next piece it hears
        if (isLost)
            running_->PostOutputLoss();
        else
            running_->PostOutputReturn();
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
            const auto song = show_.GetSong(host.GetSongNumber());
            if (!song || !script_.IsDue(*song, host.GetTick()))
                break;
            // With the ring full, so that every run does the same.
            host.WaitForFills(4, kLongestSilence);
            RunNextLine(*song, [&host] { return host.GetTick(); });
        }
    }

    // Real time: on the listener's thread.
    void RunScriptAfter(const PlaybackRecord& record) {
        const auto song = show_.GetSong(record.song);
        if (!song)
            return;
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
    const bool isServed_;
    std::atomic<bool> quitIsAsked_{false};
    ActivityMeter activity_;
    Reports& reports_;
    // For the engine's threads, also while the transport is being destroyed.
    Transport* running_ = nullptr;
    ScriptRunner script_;
    std::atomic<bool> scriptHasSettled_{false};
    std::atomic<bool> isClosing_{false};
    CurrentShow show_;
    OutputDevices& devices_;
    std::size_t outputIndex_ = 0;  // of the music
    std::unique_ptr<Recording> recording_;
    std::unique_ptr<TimeCodeRecording> timeCodeRecording_;
    TimeCodeControl timeCode_;
    InputPosting posting_;
    CommandInput commandInput_;
    ShowControl showControl_;
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
    std::unique_ptr<ControlServer> server_;
    std::unique_ptr<StateKeeper> keeper_;
};

}  // namespace

int Play(const PlayOptions& options) {
    // What the engine reports must not mix with what a program reads.
    const auto reports = std::make_shared<Reports>();
    zell::CoutBuffer::SetSink(
        [reports](const std::string& text) { reports->Add(text.substr(0, text.find_last_not_of('\n') + 1)); });
    if (!OutputDevices::CanRecord() && (options.offline || !options.recordTo.empty())) {
        return Complain(
            "--offline and --record are not to be had on this system: its MIDI service plays in real time only",
            kRefused);
    }
    bool hasStarted = false;
    try {
        auto show = ReadShow(options);
        auto resume = ReadResume(options, *show);
        Script script = ReadScript(options.script);
        CheckPlaces(options, *show);
        // Virtual time is none of a real device's, and a rendering is for none.
        const bool isRendering = options.offline || (!options.recordTo.empty() && options.output.empty());
        OutputDevices devices(isRendering ? OutputDevices::Kinds::kVirtual : OutputDevices::Kinds::kAll,
                              [reports](const std::string& text) { reports->Add(text); });
        const std::string output =
            options.output.empty() ? devices.SelectDefault() : OutputDevices::Select(options.output);
        WarnOfSilentMutes(options, *show);
        // Before the recording's temporary file is there: nobody would remove it.
        std::signal(SIGINT, OnInterrupt);
        std::signal(SIGTERM, OnInterrupt);
        if (!options.serveAt.empty())
            OutliveTerminal();
        int status = kDone;
        {
            Run run(options, std::move(show), std::move(resume), std::move(script), devices, output, *reports);
            hasStarted = true;
            status = run.Play();
        }
        reports->Print();
        return status;
    } catch (const std::exception& error) {
        // Of an output that cannot be opened, the engine lists every device below.
        const std::string message = error.what();
        return Complain(message.substr(0, message.find('\n')), hasStarted ? kFailed : kRefused);
    }
}

}  // namespace player
