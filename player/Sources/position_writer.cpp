#include "player/position_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "player/heard_position.h"
#include "zell/format.h"

namespace player {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kLineWidth = 78;
// Longer than the slowest clock: the music stands still.
constexpr auto kStandstill = 1s;

}  // namespace

PositionWriter::PositionWriter(Form form, Time time, const CurrentShow& show, PlaybackFeed& feed)
    : form_(form), isOffline_(time == Time::kVirtual), show_(show), records_(feed.Subscribe()) {
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
    PositionReporter reporter(show_, [this](const PositionReporter::Event& event) { Show(event); });
    if (form_ == Form::kJson || isOffline_)
        FollowRecords(reporter);
    else
        FollowWhatIsHeard(reporter);
    if (lineIsOpen_)
        Write("\n");
    std::fflush(stdout);
    std::lock_guard lock(mutex_);
    finished_ = true;
    changed_.notify_all();
}

void PositionWriter::FollowRecords(PositionReporter& reporter) {
    while (const auto record = records_->Next())
        reporter.Take(*record);
}

void PositionWriter::FollowWhatIsHeard(PositionReporter& reporter) {
    using Kind = PlaybackRecord::Kind;
    HeardPosition position;
    std::chrono::nanoseconds now{0};
    const auto show = [&](const PlaybackRecord& record) { ShowHeard(record, reporter); };
    while (!records_->IsOver()) {
        const auto record = records_->Next(kStandstill);
        if (!record || record->kind == Kind::kEnd) {
            position.Settle(show);
            if (record)
                reporter.Take(*record);
            continue;
        }
        position.Take(*record);
        if (record->kind == Kind::kClock || record->kind == Kind::kCountIn)
            now = record->time;
        position.Advance(now, show);
        if (record->kind == Kind::kSong)
            reporter.Take(*record);
    }
}

void PositionWriter::ShowHeard(const PlaybackRecord& record, PositionReporter& reporter) {
    if (record.kind == PlaybackRecord::Kind::kClock) {
        reporter.Take(record);
    } else if (record.clockNumber == 0) {
        const CountInPlace place = CountInPlaceOf(record);
        ShowLine(zell::format("%d  count-in -%d:%d", record.song, place.barsLeft, place.beat));
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
    if (isSong || isClick)
        ShowLine(event.AsText());
}

void PositionWriter::ShowLine(std::string line) {
    line.resize(std::max(line.size(), kLineWidth), ' ');
    Write("\r" + line);
    lineIsOpen_ = true;
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
