#include "player/playback_feed.h"

#include <algorithm>

namespace player {

PlaybackFeed::Subscription::Subscription(Lag lag) : lag_(lag), ring_(kUsualRecords) {}

std::optional<PlaybackRecord> PlaybackFeed::Subscription::Next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return count_ > 0 || closed_; });
    return Pop();
}

std::optional<PlaybackRecord> PlaybackFeed::Subscription::Next(std::chrono::milliseconds atMost) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, atMost, [this] { return count_ > 0 || closed_; });
    return Pop();
}

bool PlaybackFeed::Subscription::IsOver() const {
    std::lock_guard lock(mutex_);
    return closed_ && count_ == 0;
}

std::optional<PlaybackRecord> PlaybackFeed::Subscription::Pop() {
    if (count_ == 0)
        return std::nullopt;
    const PlaybackRecord record = ring_[first_];
    first_ = (first_ + 1) % ring_.size();
    --count_;
    return record;
}

std::uint64_t PlaybackFeed::Subscription::GetDropped() const {
    std::lock_guard lock(mutex_);
    return dropped_;
}

void PlaybackFeed::Subscription::Push(const PlaybackRecord& record) {
    std::lock_guard lock(mutex_);
    if (count_ == ring_.size()) {
        if (lag_ == Lag::kGrow && ring_.size() < kMostRecords) {
            std::rotate(ring_.begin(), ring_.begin() + static_cast<std::ptrdiff_t>(first_), ring_.end());
            first_ = 0;
            ring_.resize(ring_.size() * 2);
        } else {
            first_ = (first_ + 1) % ring_.size();
            --count_;
            ++dropped_;
        }
    }
    ring_[(first_ + count_) % ring_.size()] = record;
    ++count_;
    changed_.notify_one();
}

void PlaybackFeed::Subscription::Close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    changed_.notify_one();
}

PlaybackFeed::PlaybackFeed(Lag lag) : lag_(lag) {}

PlaybackFeed::~PlaybackFeed() {
    Close();
}

std::shared_ptr<PlaybackFeed::Subscription> PlaybackFeed::Subscribe() {
    auto subscription = std::make_shared<Subscription>(lag_);
    std::lock_guard lock(mutex_);
    subscriptions_.push_back(subscription);
    return subscription;
}

void PlaybackFeed::Publish(const PlaybackRecord& record) {
    std::lock_guard lock(mutex_);
    for (const auto& subscription : subscriptions_)
        subscription->Push(record);
}

void PlaybackFeed::Close() {
    std::lock_guard lock(mutex_);
    for (const auto& subscription : subscriptions_)
        subscription->Close();
}

}  // namespace player
