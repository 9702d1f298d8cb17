#include "player/position_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace player {

namespace {

constexpr std::size_t kLineWidth = 78;
// Clicks that wait for being heard: more than fit into the longest delay.
constexpr std::size_t kMostClicks = 16;

}  // namespace

PositionWriter::PositionWriter(Form form, Time time, const SongSource& songs, PlaybackFeed& feed)
    : form_(form), isOffline_(time == Time::kVirtual), songs_(songs), records_(feed.Subscribe()) {
    thread_ = std::thread([this] { Run(); });
}

PositionWriter::~PositionWriter() {
    thread_.join();
}

bool PositionWriter::Finish(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    std::uint64_t seen = written_;
    while (!changed_.wait_for(lock, patience, [this] { return finished_; })) {
        if (written_ == seen)
            return false;
        seen = written_;
    }
    return true;
}

void PositionWriter::Run() {
    PositionReporter reporter(songs_, [this](const PositionReporter::Event& event) { Show(event); });
    while (const auto record = records_->Next())
        Take(*record, reporter);
    if (lineIsOpen_)
        Write("\n");
    std::fflush(stdout);
    std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
}

void PositionWriter::Take(const PlaybackRecord& record, PositionReporter& reporter) {
    using Kind = PlaybackRecord::Kind;
    if (form_ == Form::kJson || isOffline_) {
        reporter.Take(record);
        return;
    }
    switch (record.kind) {
        case Kind::kClock:
            if (record.clockNumber != 0)
                return;
            clicks_.push_back(record);
            if (clicks_.size() > kMostClicks)
                clicks_.pop_front();
            return;
        case Kind::kDownbeat: {
            const auto heard = std::find_if(clicks_.begin(), clicks_.end(),
                                            [&](const PlaybackRecord& click) { return click.tick == record.tick; });
            if (heard == clicks_.end())
                return;
            const PlaybackRecord click = *heard;
            clicks_.erase(clicks_.begin(), heard + 1);
            reporter.Take(click);
            return;
        }
        case Kind::kSong:
        case Kind::kEnd: clicks_.clear(); reporter.Take(record);
    }
}

void PositionWriter::Show(const PositionReporter::Event& event) {
    if (form_ == Form::kJson) {
        Write(event.AsJson() + "\n");
        return;
    }
    const bool isSong = std::strcmp(event.name, "song") == 0;
    const bool isClick = std::strcmp(event.name, "click") == 0;
    if (isOffline_) {
        if (isSong || std::strcmp(event.name, "marker") == 0)
            Write(event.AsText() + "\n");
        return;
    }
    if (isSong && lineIsOpen_)
        Write("\n");
    if (isSong || isClick) {
        std::string line = event.AsText();
        line.resize(std::max(line.size(), kLineWidth), ' ');
        Write("\r" + line);
        lineIsOpen_ = true;
    }
}

void PositionWriter::Write(const std::string& text) {
    if (isBroken_)
        return;
    isBroken_ =
        std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || (!isOffline_ && std::fflush(stdout) != 0);
    std::lock_guard lock(mutex_);
    ++written_;
}

}  // namespace player
