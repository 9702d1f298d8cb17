#include "player/transport.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "zell/thread_names.h"

namespace player {

namespace {

constexpr std::size_t kKeptMessages = 20;

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

Transport::Transport(const Settings& settings, const SongSource& songs, PlaybackFeed& feed)
    : songs_(songs),
      feed_(feed),
      snapshot_(std::make_shared<TransportSnapshot>()),
      mutedChannels_(settings.mutedChannels),
      host_({settings.output, settings.beforeVirtualClock,
             [this](std::uint64_t arming) {
                 Enqueue([this, arming] {
                     SongStopped(arming);
                     return CommandAnswer{true, {}};
                 });
             }},
            feed) {
    host_.GetUserControls().SetTempoScale(settings.tempoScale);
    host_.GetUserControls().SetTransposition(settings.transposition);
    if (songs_.GetCount() > 0) {
        const auto first = songs_.GetSong(songs_.GetKey(0));
        std::optional<std::uint32_t> end;
        if (settings.toBar)
            end = TickOfBarBeat(*first, {*settings.toBar, 1});
        LoadSong(0, settings.from ? TickOfBarBeat(*first, *settings.from) : first->song.GetSongStartTickIndex(), end);
    }
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
}

std::future<CommandAnswer> Transport::Enqueue(std::function<CommandAnswer()> run) {
    Request request{std::move(run), {}};
    auto answer = request.answer.get_future();
    std::lock_guard lock(mutex_);
    if (exit_) {
        request.answer.set_value({false, "the player is closing"});
        return answer;
    }
    requests_.push_back(std::move(request));
    posted_.notify_all();
    return answer;
}

std::future<CommandAnswer> Transport::Post(const TransportCommand& command) {
    return Enqueue([this, command] { return Execute(command); });
}

void Transport::PostFault(const std::string& reason) {
    Enqueue([this, reason] {
        Fail(reason);
        return CommandAnswer{true, {}};
    });
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
                    left.answer.set_value({false, "the player is closing"});
                requests_.clear();
                return;
            }
            request = std::move(requests_.front());
            requests_.pop_front();
        }
        CommandAnswer answer;
        try {
            answer = request.run();
        } catch (const std::invalid_argument& error) {
            answer = {false, error.what()};
        } catch (const std::exception& error) {
            answer = {false, error.what()};
            // A message that could not be sent is no reason to end the show; music
            // that has broken off is.
            if (state_ == TransportState::kPlaying && !host_.IsPlaying())
                Fail(error.what());
        }
        if (!answer.message.empty()) {
            messages_.push_back(answer.message);
            if (messages_.size() > kKeptMessages)
                messages_.pop_front();
        }
        // Before the answer: whoever has it sees the state that it led to.
        PublishSnapshot();
        request.answer.set_value(std::move(answer));
    }
}

CommandAnswer Transport::Execute(const TransportCommand& command) {
    const auto rows = CommandTable();
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const CommandRow& known) { return known.kind == command.kind; });
    if (std::find(row->allowedIn.begin(), row->allowedIn.end(), state_) == row->allowedIn.end())
        return {false, std::string(row->name) + " is not possible while " + std::string(NameOf(state_))};
    switch (command.kind) {
        case CommandKind::kLoad: {
            const auto index = static_cast<std::size_t>(command.number - 1);
            if (index >= songs_.GetCount())
                return {false, "there is no song " + std::to_string(command.number)};
            if (state_ == TransportState::kPlaying)
                host_.Stop();
            LoadSong(index, songs_.GetSong(songs_.GetKey(index))->song.GetSongStartTickIndex(), std::nullopt);
            break;
        }
        case CommandKind::kPlay:
            arming_ = host_.Play();
            state_ = TransportState::kPlaying;
            break;
        case CommandKind::kStop:
            host_.Stop();
            if (state_ == TransportState::kPlaying)
                state_ = TransportState::kStopped;
            break;
        case CommandKind::kLocate: {
            const auto arming = host_.Locate(TickOfBarBeat(*song_, {command.number, command.beat}));
            if (arming)
                arming_ = *arming;
            else
                state_ = TransportState::kStopped;
            break;
        }
        case CommandKind::kTempo: host_.GetUserControls().SetTempoScale(command.factor); break;
        case CommandKind::kTranspose: host_.GetUserControls().SetTransposition(command.number); break;
        case CommandKind::kMute: return Mute(command.number - 1, true);
        case CommandKind::kUnmute: return Mute(command.number - 1, false);
        case CommandKind::kPanic: host_.Panic(); break;
    }
    return {true, {}};
}

CommandAnswer Transport::Mute(int channel, bool muted) {
    if (muted)
        mutedChannels_.insert(channel);
    else
        mutedChannels_.erase(channel);
    if (!song_ || !song_->song.GetVoiceData().contains(static_cast<unsigned short>(channel)))
        return {true, "no track plays on channel " + std::to_string(channel + 1)};
    host_.SetMuted(channel, muted);
    return {true, {}};
}

void Transport::LoadSong(std::size_t index, std::uint32_t startTick, std::optional<std::uint32_t> endTick) {
    songIndex_ = index;
    song_ = songs_.GetSong(songs_.GetKey(index));
    host_.Load(song_, static_cast<unsigned int>(index + 1), startTick, endTick);
    for (const int channel : mutedChannels_)
        if (song_->song.GetVoiceData().contains(static_cast<unsigned short>(channel)))
            host_.SetMuted(channel, true);
    state_ = TransportState::kStopped;
}

void Transport::SongStopped(std::uint64_t arming) {
    if (state_ != TransportState::kPlaying || arming != arming_)
        return;
    host_.FinishSong();
    PublishEnd();
    if (const std::string fault = host_.GetFault(); !fault.empty()) {
        Fail("the song broke off: " + fault);
        return;
    }
    if (songIndex_ + 1 >= songs_.GetCount()) {
        state_ = TransportState::kEnded;
        return;
    }
    const std::size_t next = songIndex_ + 1;
    LoadSong(next, songs_.GetSong(songs_.GetKey(next))->song.GetSongStartTickIndex(), std::nullopt);
    arming_ = host_.Play();
    state_ = TransportState::kPlaying;
}

void Transport::Fail(const std::string& reason) {
    if (state_ == TransportState::kFault)
        return;
    state_ = TransportState::kFault;
    messages_.push_back(reason);
    try {
        host_.Stop();
    } catch (const std::exception& error) {
        messages_.push_back(error.what());
    }
}

void Transport::PublishEnd() {
    PlaybackRecord record;
    record.kind = PlaybackRecord::Kind::kEnd;
    record.song = static_cast<unsigned int>(songIndex_ + 1);
    record.time = host_.GetTime();
    feed_.Publish(record);
}

void Transport::PublishSnapshot() {
    auto snapshot = std::make_shared<TransportSnapshot>();
    snapshot->number = ++snapshotNumber_;
    snapshot->state = state_;
    snapshot->tempoScale = host_.GetUserControls().GetTempoScale();
    snapshot->transposition = host_.GetUserControls().GetTransposition();
    snapshot->messages.assign(messages_.begin(), messages_.end());
    if (song_) {
        snapshot->song = static_cast<unsigned int>(songIndex_ + 1);
        snapshot->title = song_->title;
        snapshot->tick = host_.GetTick();
        for (const auto& [id, track] : song_->song.GetVoiceData())
            snapshot->tracks.push_back({id + 1, track.GetTrackName(), track.GetDefaultProgramChange() + 1,
                                        mutedChannels_.contains(static_cast<int>(id))});
    }
    std::lock_guard lock(mutex_);
    snapshot_ = std::move(snapshot);
    changed_.notify_all();
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
