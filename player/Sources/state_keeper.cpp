#include "player/state_keeper.h"

#include <exception>
#include <utility>
#include <vector>

#include "player/atomic_file.h"
#include "zell/thread_names.h"

namespace player {

namespace {

using namespace std::chrono_literals;

// A look takes microseconds. Being told instead would put a second waiter between
// the clock thread and its next clock.
constexpr auto kBetweenLooks = 20ms;
constexpr auto kBetweenWrites = 200ms;
constexpr auto kBeforeRetry = 1s;
// For the transport to say what song it is after one has gone over into the next.
constexpr auto kLastPatience = 2s;

}  // namespace

StateKeeper::StateKeeper(PlaybackFeed& feed, const Transport& transport, std::filesystem::path path, Failed failed)
    : transport_(transport), failed_(std::move(failed)), records_(feed.Subscribe()), path_(std::move(path)) {
    // Here and not on the thread: what is posted from now on is a change.
    Look();
    isStarted_ = true;
    saved_ = tracker_.GetState();
    savedChanges_ = tracker_.GetChanges();
    thread_ = std::thread([this] { Run(); });
}

StateKeeper::~StateKeeper() {
    Close();
}

void StateKeeper::Close() {
    {
        std::lock_guard lock(mutex_);
        closing_ = true;
        changed_.notify_all();
    }
    if (thread_.joinable())
        thread_.join();
}

void StateKeeper::Run() {
    zell::threadNames.SetNameOfCurrentThread("state keeper");
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            if (changed_.wait_for(lock, kBetweenLooks, [this] { return closing_; }))
                break;
        }
        Look();
        if (Clock::now() >= nextWrite_)
            WriteWhatChanged();
    }
    WriteLast();
}

void StateKeeper::Look() {
    // The records first: none of them is then younger than the snapshot.
    std::vector<PlaybackRecord> records;
    while (const auto record = records_->Next(0ms))
        records.push_back(*record);
    auto snapshot = transport_.GetSnapshot();
    if (isStarted_ && snapshot->show != tracker_.GetShow())
        FollowShow(snapshot->show);
    const PlaybackHost& host = transport_.GetHost();
    tracker_.Take(std::move(snapshot), host.GetTime());
    for (const PlaybackRecord& record : records)
        tracker_.Take(record);
    if (tracker_.NeedsStanding()) {
        // Twice: between the two readings the host may have gone on to another song.
        const unsigned int song = host.GetSongNumber();
        const std::uint32_t tick = host.GetTick();
        if (host.GetSongNumber() == song)
            tracker_.TakeStanding(song, tick);
    }
}

void StateKeeper::FollowShow(const std::shared_ptr<const Show>& show) {
    // Of the show before, whose songs are gone after this.
    WriteWhatChanged();
    path_ = show && !show->GetFile().empty() ? ShowState::PathFor(show->GetFile()) : std::filesystem::path();
    saved_.reset();
    playingIsSaved_ = false;
}

void StateKeeper::WriteWhatChanged() {
    if (tracker_.GetChanges() == savedChanges_)
        return;
    const std::uint64_t changes = tracker_.GetChanges();
    const auto state = tracker_.GetState();
    if (!state)
        return;  // the next look may bring the place
    const bool isFirstPlayed = tracker_.HasPlayed() && !playingIsSaved_;
    if (path_.empty() || (state == saved_ && !isFirstPlayed)) {
        savedChanges_ = changes;
        return;
    }
    try {
        const std::string text = state->AsJson();
        AtomicFile file(path_);
        file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
        file.Commit();
    } catch (const std::exception& failure) {
        nextWrite_ = Clock::now() + kBeforeRetry;
        if (!std::exchange(isFailing_, true) && failed_)
            failed_(failure.what());
        return;
    }
    isFailing_ = false;
    saved_ = state;
    savedChanges_ = changes;
    playingIsSaved_ = tracker_.HasPlayed();
    nextWrite_ = Clock::now() + kBetweenWrites;
}

void StateKeeper::WriteLast() {
    const auto deadline = Clock::now() + kLastPatience;
    Look();
    while (tracker_.GetShow() && !tracker_.GetState() && Clock::now() < deadline) {
        transport_.WaitForChange(transport_.GetSnapshot()->number, kBetweenLooks);
        Look();
    }
    WriteWhatChanged();
}

}  // namespace player
