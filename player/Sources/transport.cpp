#include "player/transport.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "player/midi_input.h"
#include "player/show_file.h"
#include "player/show_loading.h"
#include "player/song_starts.h"
#include "zell/thread_names.h"

namespace player {

namespace {

constexpr std::size_t kKeptMessages = 20;
constexpr double kLeastTempoScale = 0.5;
constexpr double kMostTempoScale = 2.0;
constexpr int kMostSemitones = 12;
constexpr int kTrimStep = 5;
constexpr int kMostTrim = 127;
constexpr int kUsualTrim = 100;
// The host may be on its way to a song while several commands change what follows.
constexpr std::size_t kRememberedPlans = 64;

using Kind = CommandKind;
using State = TransportState;

CommandAnswer Done(const std::string& message = {}) {
    return {true, message, 0};
}

CommandAnswer Refused(const std::string& reason) {
    return {false, reason, 0};
}

std::string Song(const ShowSong& song) {
    return "'" + song.title + "'";
}

}  // namespace

std::uint32_t TickOfBarBeat(const ImportedSong& song, const BarBeat& place) {
    const auto& beats = song.song.GetTimeline().GetBarsBeats();
    const auto found = std::find_if(beats.begin(), beats.end(), [&](const TL::BarsBeats& beat) {
        return beat.bar() == static_cast<std::uint32_t>(place.bar) &&
               beat.beat() == static_cast<std::uint32_t>(place.beat);
    });
    if (found == beats.end())
        throw std::invalid_argument("'" + song.title + "' has no beat " + std::to_string(place.bar) + ":" +
                                    std::to_string(place.beat) + "; its last is " + beats.back().as_string());
    return found->abs_time();
}

Transport::Transport(const Settings& settings, CurrentShow& currentShow, PlaybackFeed& feed)
    : currentShow_(currentShow),
      feed_(feed),
      goesOn_(settings.goesOn),
      allowOutside_(settings.allowOutside),
      timeCode_(settings.timeCode),
      commandInput_(settings.commandInput),
      showControl_(settings.showControl),
      snapshot_(std::make_shared<TransportSnapshot>()),
      alwaysMuted_(settings.mutedChannels),
      holds_(settings.holds),
      host_(
          {settings.output, settings.beforeVirtualClock, settings.timeCode ? &settings.timeCode->GetSender() : nullptr,
           [this](std::uint64_t arming) {
               Enqueue([this, arming] {
                   SongStopped(arming);
                   return CommandAnswer{true, {}, 0};
               });
           },
           [this](std::uint64_t token) {
               Enqueue([this, token] {
                   WentOn(token);
                   return CommandAnswer{true, {}, 0};
               });
           }},
          feed) {
    SetTempoScale(settings.tempoScale);
    SetTransposition(settings.transposition);
    toBar_ = settings.toBar;
    if (settings.show) {
        OpenShow(settings.show);
        if (settings.resume)
            Resume(*settings.resume);
        else if (const auto first = NextPlayable(std::nullopt, true)) {
            const std::size_t song = setList_[*first].song;
            LoadSong(song, first);
            if (settings.from)
                host_.Locate(TickOfBarBeat(*CurrentSong().song, *settings.from));
        }
    }
    isStarting_ = false;
    PublishSnapshot();
    thread_ = std::thread([this] { Run(); });
}

Transport::~Transport() {
    {
        std::lock_guard lock(mutex_);
        exit_ = true;
        posted_.notify_all();
    }
    thread_.join();
    for (std::thread& reader : readers_)
        reader.join();
}

// ---- the queue of commands

std::future<CommandAnswer> Transport::Enqueue(std::function<CommandAnswer()> run) {
    Request request{std::move(run), {}};
    auto answer = request.answer.get_future();
    std::lock_guard lock(mutex_);
    if (exit_) {
        request.answer.set_value(Refused("the player is closing"));
        return answer;
    }
    requests_.push_back(std::move(request));
    posted_.notify_all();
    return answer;
}

std::future<CommandAnswer> Transport::Post(const TransportCommand& command) {
    if (command.kind == Kind::kLoadShow)
        return PostShow(command.text);
    if (command.kind != Kind::kPanic)
        return Enqueue([this, command] { return Execute(command); });
    // Behind nothing that may take its time.
    std::promise<CommandAnswer> answer;
    try {
        host_.Panic();
        answer.set_value(Done());
    } catch (const std::exception& error) {
        answer.set_value(Refused(error.what()));
    }
    return answer.get_future();
}

/// Reads the show beside the music and the commands, which need not wait for a disk; a
/// show with faults stops nothing.
std::future<CommandAnswer> Transport::PostShow(const std::string& path) {
    auto answer = std::make_shared<std::promise<CommandAnswer>>();
    auto future = answer->get_future();
    std::lock_guard lock(readersMutex_);
    readers_.emplace_back([this, path, answer] {
        try {
            auto show = LoadShow(ReadShowFile(path), path, allowOutside_);
            answer->set_value(Enqueue([this, show] { return SwitchToShow(show); }).get());
        } catch (const std::exception& error) {
            answer->set_value(Refused(error.what()));
            PostMessage(error.what());
        }
    });
    return future;
}

void Transport::PostSilence(const std::string& reason, std::uint64_t playedClocks) {
    Enqueue([this, reason, playedClocks] {
        if (state_ == State::kPlaying && host_.GetPlayedClocks() == playedClocks)
            Fail(reason);
        return CommandAnswer{true, {}, 0};
    });
}

void Transport::PostFault(const std::string& reason) {
    Enqueue([this, reason] {
        Fail(reason);
        return CommandAnswer{true, {}, 0};
    });
}

void Transport::PostOutputLoss() {
    Enqueue([this] {
        host_.NoteOutputLoss();
        return CommandAnswer{true, {}, 0};
    });
}

void Transport::PostOutputReturn() {
    Enqueue([this] {
        host_.NoteOutputReturn();
        return CommandAnswer{true, {}, 0};
    });
}

void Transport::PostMessage(const std::string& text) {
    Enqueue([text] { return CommandAnswer{true, text, 0}; });
}

void Transport::Run() {
    zell::threadNames.SetNameOfCurrentThread("transport");
    for (;;) {
        Request request;
        {
            std::unique_lock lock(mutex_);
            posted_.wait(lock, [this] { return !requests_.empty() || exit_; });
            if (exit_) {
                for (Request& left : requests_)
                    left.answer.set_value(Refused("the player is closing"));
                requests_.clear();
                return;
            }
            request = std::move(requests_.front());
            requests_.pop_front();
        }
        CommandAnswer answer;
        ++carriedOut_;
        try {
            answer = request.run();
        } catch (const std::invalid_argument& error) {
            answer = Refused(error.what());
        } catch (const std::exception& error) {
            answer = Refused(error.what());
            // A message that could not be sent is no reason to end the show; music
            // that has broken off is.
            if (state_ == State::kPlaying && !host_.IsPlaying())
                Fail(error.what());
        }
        answer.number = carriedOut_;
        if (!answer.message.empty())
            Say(answer.message);
        // Before the answer: whoever has it sees the state that it led to.
        PublishSnapshot();
        request.answer.set_value(std::move(answer));
    }
}

void Transport::Say(const std::string& text) {
    // A pedal that is stuck must not put away what else was said.
    if (!messages_.empty() && messages_.back().text == text)
        messages_.pop_back();
    messages_.push_back({++messageNumber_, text});
    if (messages_.size() > kKeptMessages)
        messages_.pop_front();
}

// ---- commands

CommandAnswer Transport::Execute(const TransportCommand& command) {
    const CommandRow& row = RowOf(command.kind);
    if (std::find(row.allowedIn.begin(), row.allowedIn.end(), state_) == row.allowedIn.end())
        return Refused(std::string(row.name) + " is not possible while " + std::string(NameOf(state_)));
    switch (command.kind) {
        case Kind::kPlay: return Start();
        case Kind::kContinue: return Start();
        case Kind::kStop: return StopMusic();
        case Kind::kPause: return PauseMusic();
        case Kind::kLocate: return LocateTo(TickOfBarBeat(*CurrentSong().song, {command.number, command.beat}));
        case Kind::kNextMarker: return LocateMarker(true);
        case Kind::kPreviousMarker: return LocateMarker(false);
        case Kind::kNextMeasure: return LocateMeasure(true);
        case Kind::kPreviousMeasure: return LocateMeasure(false);
        case Kind::kNextPatch: return ChoosePatch(true);
        case Kind::kPreviousPatch: return ChoosePatch(false);
        case Kind::kProgram: return ChooseProgram(command.number - 1, command.value - 1);
        case Kind::kFollowPrograms:
            programs_.erase(CurrentSong().key);
            patch_.reset();
            host_.FollowPrograms();
            UpdateNext();
            return Done();
        case Kind::kClick:
            if (!CurrentSong().clickTrack)
                return Refused(Song(CurrentSong()) + " has no click track");
            clickMutes_[CurrentSong().key] = command.value == 0;
            host_.SetClickIsMuted(command.value == 0);
            UpdateNext();
            return Done();
        case Kind::kPanic: host_.Panic(); return Done();
        case Kind::kSelect:
        case Kind::kGo:
        case Kind::kNextSong:
        case Kind::kPreviousSong:
        case Kind::kSave:
        case Kind::kSkip:
        case Kind::kMove:
        case Kind::kInsert: return ExecuteInShow(command);
        default: return ExecuteSteering(command);
    }
}

CommandAnswer Transport::ExecuteSteering(const TransportCommand& command) {
    switch (command.kind) {
        case Kind::kTempoUp: return StepTempo(true);
        case Kind::kTempoDown: return StepTempo(false);
        case Kind::kTempoReset: SetTempoScale(1); return Done();
        case Kind::kTempo: SetTempoScale(command.factor); return Done();
        case Kind::kTransposeUp: return StepTransposition(1);
        case Kind::kTransposeDown: return StepTransposition(-1);
        case Kind::kTransposeReset: SetTransposition(0); return Done();
        case Kind::kTranspose: SetTransposition(command.number); return Done();
        case Kind::kHold:
            holds_ = command.value != 0;
            UpdateNext();
            return Done();
        case Kind::kMute: return Mute(command.number - 1, true);
        case Kind::kUnmute: return Mute(command.number - 1, false);
        case Kind::kMuteGroup: return MuteGroup(command.number, true);
        case Kind::kUnmuteGroup: return MuteGroup(command.number, false);
        case Kind::kUnmuteAll: return UnmuteAll();
        case Kind::kTrimUp: return Trim(command.number - 1, TrimOf(command.number - 1) + kTrimStep);
        case Kind::kTrimDown: return Trim(command.number - 1, TrimOf(command.number - 1) - kTrimStep);
        case Kind::kTrim: return Trim(command.number - 1, command.value);
        case Kind::kGuiDelayUp: host_.IncreaseGuiDelay(); return Done();
        case Kind::kGuiDelayDown: host_.DecreaseGuiDelay(); return Done();
        case Kind::kResend:
            host_.Resend();
            host_.TellPlace();
            return Done();
        case Kind::kTimeCode:
        case Kind::kTimeCodeRate:
        case Kind::kTimeCodeOutput: return ExecuteTimeCode(command);
        case Kind::kLearn:
        case Kind::kUnlearn:
        case Kind::kGiveUpLearning:
        case Kind::kCommandInput:
        case Kind::kOnlyPresses:
        case Kind::kLeastInterval: return ExecuteInput(command);
        case Kind::kShowControl:
            if (!showControl_)
                return Refused("no show control is to be had here");
            showControl_->SetArmed(command.value != 0);
            return Done();
        case Kind::kConduct: return Refused("beats cannot be conducted: the clock runs by itself");
        default: return Refused("not understood");
    }
}

CommandAnswer Transport::ExecuteInShow(const TransportCommand& command) {
    if (!show_)
        return Refused("no show is open");
    switch (command.kind) {
        case Kind::kSelect: return SelectSong(FindSong(command.text));
        case Kind::kNextSong: return GoToEntry(true);
        case Kind::kPreviousSong: return GoToEntry(false);
        case Kind::kSave: return Save();
        case Kind::kGo: return Go(command.text);
        default: return EditSetList(command);
    }
}

CommandAnswer Transport::ExecuteTimeCode(const TransportCommand& command) {
    if (!timeCode_)
        return Refused("no time code is to be had here");
    if (command.kind == Kind::kTimeCodeRate)
        timeCode_->SetFrameRate(TimeCodeControl::ParseFrameRate(command.text));
    else if (command.kind == Kind::kTimeCodeOutput)
        timeCode_->SetOutput(command.text);
    else
        timeCode_->SetActive(command.value != 0);
    host_.TellPlace();
    if (command.kind == Kind::kTimeCode && show_ && !show_->GetFile().empty())
        SaveTimeCodeActive(show_->GetFile(), command.value != 0);
    return Done();
}

CommandAnswer Transport::ExecuteInput(const TransportCommand& command) {
    if (!commandInput_)
        return Refused("no MIDI input is to be had here");
    switch (command.kind) {
        case Kind::kLearn: return Done(commandInput_->Learn(command.text));
        case Kind::kUnlearn: commandInput_->Unlearn(command.text); break;
        case Kind::kGiveUpLearning: commandInput_->GiveUp(); break;
        case Kind::kCommandInput: return SetCommandInput(command.text);
        case Kind::kOnlyPresses: commandInput_->SetOnlyPresses(command.value != 0); break;
        default: commandInput_->SetLeastInterval(command.text, std::chrono::milliseconds(command.number)); break;
    }
    return Done();
}

CommandAnswer Transport::SetCommandInput(const std::string& device) {
    const std::string name = MidiInput::GetNames().at(MidiInput::Select(device));
    const bool isDesk = showControl_ && name == showControl_->GetInput();
    // A show that gives both the same one has been told so, and its pedals have it.
    if (isDesk && name != commandInput_->GetReport().input)
        return Refused("'" + name + "' is the input of show control, and a device can be opened once");
    commandInput_->SetInput(device);
    return Done();
}

// ---- shows and songs

void Transport::OpenShow(std::shared_ptr<const Show> show) {
    host_.SetShow(show);
    show_ = std::move(show);
    currentShow_.Set(show_);
    const ShowDocument& document = show_->GetDocument();
    if (timeCode_)
        timeCode_->OpenShow(show_->GetFile(), document.timeCodeActive);
    if (timeCode_ && timeCode_->IsActive())
        for (const std::string& moved : DescribeMovedSongs(*show_, timeCode_->GetSender().GetRate()))
            Say(moved);
    if (showControl_)  // lets its device go: this show's pedals may be the ones that have it
        showControl_->OpenShow(std::nullopt);
    if (commandInput_)
        commandInput_->OpenShow(show_->GetFile(), document.kind);
    if (showControl_)
        showControl_->OpenShow(document.showControl);
    setList_.clear();
    for (const ShowDocument::SetListEntry& entry : document.setList)
        setList_.push_back({show_->IndexOf(entry.song), entry.then, ++entryIds_});
    entry_.reset();
    song_.reset();
    state_ = State::kEmpty;
    programs_.clear();
    clickMutes_.clear();
    mutes_ = StartMutes();
    trims_.clear();
    for (const auto& [channel, trim] : document.trims) {
        trims_[channel - 1] = trim;
        host_.SetTrim(channel - 1, trim);
    }
    for (const ShowSong& song : show_->GetSongs())
        if (!song.song)
            Say(Song(song) + " cannot be played: " + song.fault);
}

std::set<int> Transport::StartMutes() const {
    std::set<int> mutes = alwaysMuted_;
    for (const int channel : show_->GetDocument().mutes)
        mutes.insert(channel - 1);
    return mutes;
}

void Transport::Resume(const ShowState& state) {
    std::vector<Entry> setList;
    std::optional<std::size_t> current;
    for (std::size_t place = 0; place < state.setList.size(); ++place) {
        const ShowDocument::SetListEntry& entry = state.setList[place];
        const auto song = IndexOf(entry.song);
        if (!song) {
            Say("song '" + entry.song + "' is in the show no more and is left out of the set list");
            continue;
        }
        if (state.entry == place)
            current = setList.size();
        setList.push_back({*song, entry.then, ++entryIds_});
    }
    setList_ = std::move(setList);
    holds_ = state.holds;
    mutes_ = alwaysMuted_;
    for (const int channel : state.mutes)
        mutes_.insert(channel - 1);
    for (const auto& [channel, trim] : state.trims)
        Trim(channel - 1, trim);
    for (const auto& [key, programs] : state.programs)
        for (const auto& [channel, program] : programs)
            programs_[key][channel - 1] = program - 1;
    const std::set<int> mutes = mutes_;
    const auto song = IndexOf(state.song);
    if (!song || !show_->GetSongs()[*song].song) {
        if (!state.song.empty())
            Say("song '" + state.song + "', where the show stood, cannot be played");
        if (const auto first = NextPlayable(std::nullopt, true))
            LoadSong(setList_[*first].song, first, mutes);
        return;
    }
    LoadSong(*song, current, mutes);
    SetTempoScale(std::clamp(state.tempoScale, kLeastTempoScale, kMostTempoScale));
    SetTransposition(std::clamp(state.transposition, -kMostSemitones, kMostSemitones));
    const std::uint32_t last = CurrentSong().song->song.GetTimeline().GetLastTickIndex();
    host_.Locate(std::min(state.tick, last));
}

CommandAnswer Transport::SwitchToShow(std::shared_ptr<const Show> show) {
    StopIfSounding();
    OpenShow(std::move(show));
    if (const auto first = NextPlayable(std::nullopt, true))
        LoadSong(setList_[*first].song, first);
    return Done();
}

SongToPlay Transport::PlanOf(std::size_t index) const {
    const ShowSong& song = show_->GetSongs()[index];
    const ShowDocument& document = show_->GetDocument();
    SongToPlay plan;
    plan.song = song.song;
    plan.key = song.key;
    plan.number = static_cast<unsigned int>(index + 1);
    plan.startTick = song.song->song.GetSongStartTickIndex();
    plan.pauses = song.pauses;
    plan.click = song.clickTrack;
    if (const auto muted = clickMutes_.find(song.key); plan.click && muted != clickMutes_.end())
        plan.click->muted = muted->second;
    if (index < document.songs.size())
        for (const auto& [channel, track] : document.songs[index].tracks)
            if (track.program)
                plan.firstPrograms[static_cast<unsigned short>(channel - 1)] =
                    static_cast<unsigned char>(*track.program - 1);
    if (const auto programs = programs_.find(song.key); programs != programs_.end())
        for (const auto& [channel, program] : programs->second)
            plan.userPrograms[static_cast<unsigned short>(channel)] = static_cast<unsigned char>(program);
    if (!holds_) {
        plan.tempoScale = 1.0;
        plan.transposition = 0;
    }
    return plan;
}

std::set<unsigned short> Transport::MutedTracks(std::size_t index, const std::set<int>& channels) const {
    std::set<unsigned short> tracks;
    for (const int channel : channels)
        if (show_->GetSongs()[index].song->song.GetVoiceData().contains(static_cast<unsigned short>(channel)))
            tracks.insert(static_cast<unsigned short>(channel));
    return tracks;
}

/// Mutes hold from song to song in a show of ranges; in one of programs each song
/// begins with those of the show.
std::set<int> Transport::MutesOfNextSong() const {
    return show_->GetDocument().kind == ShowKind::kRanges ? mutes_ : StartMutes();
}

void Transport::LoadSong(std::size_t index, std::optional<std::size_t> entry) {
    LoadSong(index, entry, MutesOfNextSong());
}

void Transport::LoadSong(std::size_t index, std::optional<std::size_t> entry, const std::set<int>& mutes) {
    SongToPlay plan = PlanOf(index);
    if (isStarting_) {
        // The controls that the run begins with are those of its first song.
        plan.tempoScale.reset();
        plan.transposition.reset();
        if (toBar_)
            plan.endTick = TickOfBarBeat(*plan.song, {*toBar_, 1});
    }
    mutes_ = mutes;
    plan.mutedTracks = MutedTracks(index, mutes_);
    host_.Load(std::move(plan));
    followed_.clear();
    song_ = index;
    entry_ = entry;
    patch_.reset();
    tempoScale_ = host_.GetUserControls().GetTempoScale();
    transposition_ = host_.GetUserControls().GetTransposition();
    state_ = State::kStopped;
    UpdateNext();
}

/// Tells the host what the song leads into at once.
void Transport::UpdateNext() {
    if (!song_)
        return;
    const auto next = NextPlayable(entry_, true);
    if (!entry_ || setList_[*entry_].then != AfterSong::kGo || !next) {
        host_.Follow(std::nullopt);
        return;
    }
    SongToPlay plan = PlanOf(setList_[*next].song);
    plan.mutedTracks = MutedTracks(setList_[*next].song, MutesOfNextSong());
    plan.token = ++plans_;
    followed_.push_back({plan.token, setList_[*next].id, setList_[*next].song});
    if (followed_.size() > kRememberedPlans)
        followed_.pop_front();
    host_.Follow(std::move(plan));
}

std::optional<std::size_t> Transport::NextPlayable(std::optional<std::size_t> entry, bool forward) const {
    std::size_t place = forward ? (entry ? *entry + 1 : 0) : entry.value_or(0);
    while (forward ? place < setList_.size() : place > 0) {
        const std::size_t candidate = forward ? place++ : --place;
        if (show_->GetSongs()[setList_[candidate].song].song)
            return candidate;
    }
    return std::nullopt;
}

std::size_t Transport::FindSong(const std::string& name) const {
    const auto& songs = show_->GetSongs();
    std::size_t number = 0;
    const auto parsed = std::from_chars(name.data(), name.data() + name.size(), number);
    const bool isNumber = parsed.ec == std::errc() && parsed.ptr == name.data() + name.size();
    for (std::size_t i = 0; i < songs.size(); ++i)
        if (songs[i].key == name || (isNumber && number == i + 1))
            return i;
    throw std::invalid_argument("there is no song '" + name + "'; there are 1 to " + std::to_string(songs.size()));
}

std::optional<std::size_t> Transport::IndexOf(const std::string& key) const {
    const auto& songs = show_->GetSongs();
    const auto song = std::ranges::find(songs, key, &ShowSong::key);
    return song == songs.end() ? std::nullopt : std::optional(static_cast<std::size_t>(song - songs.begin()));
}

const ShowSong& Transport::CurrentSong() const {
    return show_->GetSongs()[song_.value()];
}

CommandAnswer Transport::SelectSong(std::size_t song) {
    const ShowSong& wanted = show_->GetSongs()[song];
    if (!wanted.song)
        return Refused(Song(wanted) + " cannot be played: " + wanted.fault);
    // Where the set list has it next, else where it has it at all.
    std::optional<std::size_t> entry;
    for (std::size_t i = 0; i < setList_.size(); ++i) {
        const bool isAhead = i >= entry_.value_or(0);
        if (setList_[i].song == song && (!entry || (isAhead && *entry < entry_.value_or(0))))
            entry = i;
    }
    StopIfSounding();
    LoadSong(song, entry);
    return Done();
}

CommandAnswer Transport::Go(const std::string& cue) {
    if (cue.empty())
        return state_ == State::kPlaying ? Refused("the music plays already")
               : song_                   ? Start()
                                         : Refused("no song is selected");
    const auto [song, marker] = show_->FindCue(cue);
    CommandAnswer selected = SelectSong(song);
    if (!selected.done)
        return selected;
    if (marker)
        LocateTo(*marker);
    return Start();
}

CommandAnswer Transport::GoToEntry(bool forward) {
    const auto entry = NextPlayable(entry_, forward);
    if (!entry)
        return Refused(forward ? "the set list has no song after this one"
                               : "the set list has no song before this one");
    StopIfSounding();
    LoadSong(setList_[*entry].song, entry);
    return Done();
}

CommandAnswer Transport::EditSetList(const TransportCommand& command) {
    std::vector<Entry> list = setList_;
    std::optional<std::size_t> entry = entry_;
    const auto place = [](int number) { return static_cast<std::size_t>(number - 1); };
    if (command.kind == Kind::kSkip) {
        // The one that is shown as next.
        const auto next = NextPlayable(entry, true);
        if (!next)
            return Refused("the set list has no song after this one");
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(*next));
    } else if (command.kind == Kind::kMove) {
        const std::size_t from = place(command.number);
        const std::size_t to = place(command.value);
        if (from >= list.size() || to >= list.size())
            return Refused("the set list has places 1 to " + std::to_string(list.size()));
        const Entry moved = list[from];
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(from));
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(to), moved);
        // The current song stays the current one, wherever it goes.
        if (entry && *entry == from)
            entry = to;
        else if (entry)
            entry = *entry - (from < *entry) + (to <= *entry - (from < *entry));
    } else {
        const std::size_t song = FindSong(command.text);
        const std::size_t at = place(command.value);
        if (at > list.size())
            return Refused("the set list has places 1 to " + std::to_string(list.size() + 1));
        list.insert(list.begin() + static_cast<std::ptrdiff_t>(at), Entry{song, AfterSong::kWait, ++entryIds_});
        if (entry && at <= *entry)
            entry = *entry + 1;
    }
    setList_ = std::move(list);
    entry_ = entry;
    UpdateNext();
    return Done();
}

CommandAnswer Transport::Save() {
    if (show_->GetFile().empty())
        return Refused("these songs have no show file; make one with: vemo_player new");
    std::map<int, int> trims;
    for (const auto& [channel, trim] : trims_)
        trims[channel + 1] = trim;
    std::set<int> mutes;
    for (const int channel : mutes_)
        mutes.insert(channel + 1);
    SaveBalance(show_->GetFile(), trims, mutes);
    return Done();
}

// ---- playing

CommandAnswer Transport::Start() {
    const bool fromRest = state_ != State::kPaused || pausedInCountIn_;
    arming_ = host_.Play(fromRest ? CurrentSong().countInBars : 0);
    pausedInCountIn_ = false;
    state_ = State::kPlaying;
    return Done();
}

void Transport::StopIfSounding() {
    if (state_ != State::kPlaying && state_ != State::kPaused)
        return;
    if (const std::string trouble = StopHost(); !trouble.empty())
        Say(trouble);
    state_ = State::kStopped;
    // What comes may take a while.
    PublishSnapshot();
}

CommandAnswer Transport::StopMusic() {
    const std::string trouble = StopHost();
    if (state_ == State::kPlaying || state_ == State::kPaused)
        state_ = State::kStopped;
    return Done(trouble);
}

CommandAnswer Transport::PauseMusic() {
    pausedInCountIn_ = host_.IsCountingIn();
    const std::string trouble = StopHost();
    state_ = State::kPaused;
    return Done(trouble);
}

/// The music stops in any case; returns what the device refused.
std::string Transport::StopHost() {
    try {
        host_.Stop();
        return {};
    } catch (const std::exception& error) {
        return std::string("stopped, but the device refused to end its notes: ") + error.what();
    }
}

CommandAnswer Transport::LocateTo(std::uint32_t tick) {
    const auto arming = host_.Locate(tick);
    if (arming)
        arming_ = *arming;
    else
        state_ = State::kStopped;
    return Done();
}

CommandAnswer Transport::LocateMarker(bool forward) {
    const std::uint32_t here = host_.GetTick();
    std::optional<std::uint32_t> found;
    for (const CL::Marker& marker : CurrentSong().song->log.GetMarkers())
        if (forward ? marker.abs_time() > here && !found : marker.abs_time() < here)
            found = marker.abs_time();
    if (!found)
        return Refused(forward ? "no marker follows" : "no marker comes before");
    return LocateTo(*found);
}

CommandAnswer Transport::LocateMeasure(bool forward) {
    HowToPlay tracker(host_.GetUserControls());
    const ImportedSong& song = *CurrentSong().song;
    tracker.SetData(song.log, song.song.GetTimeline(), song.song.GetResolution());
    try {
        return LocateTo(forward ? tracker.GetNextMeasureTickIndex(host_.GetTick())
                                : tracker.GetPreviousMeasureTickIndex(host_.GetTick()));
    } catch (const HowToPlay::SongEnd&) {
        return Refused("no bar follows");
    } catch (const HowToPlay::SongBegin&) {
        return Refused("no bar comes before");
    }
}

// ---- mutes, trims and programs

bool Transport::SongHasChannel(int channel) const {
    return song_ && CurrentSong().song->song.GetVoiceData().contains(static_cast<unsigned short>(channel));
}

CommandAnswer Transport::Mute(int channel, bool muted) {
    if (muted)
        mutes_.insert(channel);
    else
        mutes_.erase(channel);
    UpdateNext();
    if (SongHasChannel(channel))
        host_.SetMuted(channel, muted);
    return Done(SongHasChannel(channel) ? "" : "no track plays on channel " + std::to_string(channel + 1));
}

CommandAnswer Transport::MuteGroup(int number, bool muted) {
    if (!show_ || show_->GetDocument().kind != ShowKind::kRanges)
        return Refused("this show has no groups");
    for (const ShowDocument::Group& group : show_->GetDocument().groups) {
        if (group.number != number)
            continue;
        for (const int channel : group.channels)
            Mute(channel - 1, muted);
        return Done();
    }
    return Refused("there is no group " + std::to_string(number));
}

CommandAnswer Transport::UnmuteAll() {
    // One by one: all at once would chase nothing.
    for (const int channel : std::set<int>(mutes_))
        Mute(channel, false);
    return Done();
}

int Transport::TrimOf(int channel) const {
    const auto trim = trims_.find(channel);
    return trim == trims_.end() ? kUsualTrim : trim->second;
}

CommandAnswer Transport::Trim(int channel, int trim) {
    if (!show_ || show_->GetDocument().kind != ShowKind::kRanges)
        return Refused("this show has no trims");
    trims_[channel] = std::clamp(trim, 0, kMostTrim);
    host_.SetTrim(channel, trims_[channel]);
    return Done();
}

CommandAnswer Transport::ChooseProgram(int channel, int program) {
    if (!SongHasChannel(channel))
        return Refused("no track plays on channel " + std::to_string(channel + 1));
    programs_[CurrentSong().key][channel] = program;
    host_.SetProgram(channel, program);
    UpdateNext();
    return Done();
}

CommandAnswer Transport::ChoosePatch(bool forward) {
    const auto& patches = CurrentSong().patches;
    if (patches.empty())
        return Refused(Song(CurrentSong()) + " has no patches");
    const std::size_t next = forward ? (patch_ ? *patch_ + 1 : 0) : patch_.value_or(0);
    if (forward ? next >= patches.size() : next == 0)
        return Refused(forward ? "this is the last patch" : "this is the first patch");
    patch_ = forward ? next : next - 1;
    for (const auto& [channel, program] : patches[*patch_].programs)
        if (SongHasChannel(channel - 1))
            ChooseProgram(channel - 1, program - 1);
    return Done();
}

// ---- tempo and transposition

// Each by itself: the other may just have become that of the next song.
void Transport::SetTempoScale(double scale) {
    tempoScale_ = scale;
    host_.GetUserControls().SetTempoScale(scale);
}

void Transport::SetTransposition(int semitones) {
    transposition_ = semitones;
    host_.GetUserControls().SetTransposition(semitones);
}

CommandAnswer Transport::StepTempo(bool faster) {
    UserControls& controls = host_.GetUserControls();
    const double scale = faster ? controls.IncreaseTempo() : controls.DecreaseTempo();
    SetTempoScale(std::clamp(scale, kLeastTempoScale, kMostTempoScale));
    return Done();
}

CommandAnswer Transport::StepTransposition(int semitones) {
    SetTransposition(std::clamp(transposition_ + semitones, -kMostSemitones, kMostSemitones));
    return Done();
}

// ---- what happens by itself

void Transport::SongStopped(std::uint64_t arming) {
    if (state_ != State::kPlaying || arming != arming_)
        return;
    const std::string fault = host_.GetFault();
    if (fault.empty() && host_.IsAtPause()) {
        host_.FinishAtPause();
        state_ = State::kPaused;
        if (goesOn_)
            Start();
        return;
    }
    host_.FinishSong();
    PublishEnd();
    if (!fault.empty()) {
        host_.TellPlace();
        Fail("the song broke off: " + fault);
        return;
    }
    const AfterSong then = entry_ ? setList_[*entry_].then : AfterSong::kStop;
    const auto next = entry_ ? NextPlayable(entry_, true) : std::nullopt;
    if (!next) {
        state_ = entry_ ? State::kEnded : State::kStopped;
        host_.TellPlace();
        return;
    }
    if (then == AfterSong::kStop && !goesOn_) {
        state_ = State::kStopped;
        host_.TellPlace();
        return;
    }
    LoadSong(setList_[*next].song, next);
    state_ = State::kWaiting;
    if (then == AfterSong::kGo || goesOn_) {
        arming_ = host_.Play(then == AfterSong::kGo ? 0 : CurrentSong().countInBars);
        state_ = State::kPlaying;
    }
}

/// The host has gone on to the song that was to follow.
void Transport::WentOn(std::uint64_t token) {
    const auto followed = std::ranges::find(followed_, token, &Followed::token);
    // The operator may have chosen a song meanwhile.
    if (followed == followed_.end())
        return;
    mutes_ = MutesOfNextSong();
    song_ = followed->song;
    // One that was taken out of the set list too late plays from where it stood.
    if (const auto entry = std::ranges::find(setList_, followed->entry, &Entry::id); entry != setList_.end())
        entry_ = static_cast<std::size_t>(entry - setList_.begin());
    followed_.erase(followed_.begin(), followed + 1);
    patch_.reset();
    tempoScale_ = host_.GetUserControls().GetTempoScale();
    transposition_ = host_.GetUserControls().GetTransposition();
    // What was said while the song was on its way.
    for (const auto& [id, track] : CurrentSong().song->song.GetVoiceData())
        host_.SetMuted(id, mutes_.contains(id));
    UpdateNext();
}

void Transport::Fail(const std::string& reason) {
    if (state_ == State::kFault)
        return;
    state_ = State::kFault;
    Say(reason);
    if (const std::string trouble = StopHost(); !trouble.empty())
        Say(trouble);
}

void Transport::PublishEnd() {
    PlaybackRecord record;
    record.kind = PlaybackRecord::Kind::kEnd;
    record.song = song_ ? static_cast<unsigned int>(*song_ + 1) : 0;
    record.time = host_.GetTime();
    feed_.Publish(record);
}

// ---- the snapshot

void Transport::PublishSnapshot() {
    auto snapshot = std::make_shared<TransportSnapshot>();
    snapshot->number = ++snapshotNumber_;
    snapshot->state = state_;
    snapshot->show = show_;
    snapshot->setList = setList_;
    snapshot->entry = entry_;
    snapshot->tempoScale = tempoScale_;
    snapshot->transposition = transposition_;
    snapshot->holds = holds_;
    snapshot->guiDelayMilliseconds = host_.GetGuiDelayMilliseconds();
    snapshot->messages.assign(messages_.begin(), messages_.end());
    for (const int channel : mutes_)
        snapshot->mutes.insert(channel + 1);
    for (const auto& [channel, trim] : trims_)
        snapshot->trims[channel + 1] = trim;
    for (const auto& [key, programs] : programs_)
        for (const auto& [channel, program] : programs)
            snapshot->programs[key][channel + 1] = program + 1;
    std::tie(snapshot->songsLoaded, snapshot->songsToLoad) = host_.GetLoadProgress();
    if (show_)
        snapshot->nextEntry = NextPlayable(entry_, true);
    if (song_)
        DescribeSong(*snapshot);
    std::lock_guard lock(mutex_);
    snapshot_ = std::move(snapshot);
    changed_.notify_all();
}

void Transport::DescribeSong(TransportSnapshot& snapshot) const {
    const ShowSong& song = CurrentSong();
    snapshot.song = static_cast<unsigned int>(*song_ + 1);
    snapshot.title = song.title;
    snapshot.tick = host_.GetTick();
    if (patch_)
        snapshot.patch = song.patches[*patch_].name;
    snapshot.hasClick = song.clickTrack.has_value();
    if (song.clickTrack) {
        const auto muted = clickMutes_.find(song.key);
        snapshot.clickIsMuted = muted == clickMutes_.end() ? song.clickTrack->muted : muted->second;
    }
    const auto users = programs_.find(song.key);
    for (const auto& [id, track] : song.song->song.GetVoiceData()) {
        TransportSnapshot::Track shown{id + 1, track.GetTrackName(), track.GetDefaultProgramChange() + 1,
                                       false,  TrimOf(id),           mutes_.contains(id)};
        if (users != programs_.end() && users->second.contains(id)) {
            shown.program = users->second.at(id) + 1;
            shown.programIsUsers = true;
        }
        snapshot.tracks.push_back(std::move(shown));
    }
}

std::shared_ptr<const TransportSnapshot> Transport::GetSnapshot() const {
    std::lock_guard lock(mutex_);
    return snapshot_;
}

std::shared_ptr<const TransportSnapshot> Transport::WaitForChange(std::uint64_t number,
                                                                  std::chrono::milliseconds atMost) const {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, atMost, [&] { return snapshot_->number > number; });
    return snapshot_;
}

}  // namespace player
