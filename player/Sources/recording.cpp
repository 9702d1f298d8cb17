#include "player/recording.h"

#include <algorithm>
#include <cstring>

#include "player/midi_file.h"
#include "player/midi_file_writer.h"

namespace player {

namespace {

constexpr std::uint16_t kTicksPerQuarter = 5000;
constexpr std::chrono::microseconds kTick(100);
constexpr std::uint8_t kTempoMeta = 0x51;
constexpr char kTempo120[] = "\x07\xA1\x20";  // 500,000 microseconds a quarter note
constexpr std::size_t kUsualMessages = 1 << 16;

}  // namespace

Recording::Recording(const std::filesystem::path& target) : file_(target) {
    messages_.reserve(kUsualMessages);
}
Recording::~Recording() = default;

void Recording::Add(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
    Message message{time, {0, 0, 0}, static_cast<std::uint8_t>(std::min<std::size_t>(count, 3))};
    std::memcpy(message.bytes, bytes, message.count);
    std::lock_guard lock(mutex_);
    messages_.push_back(message);
}

void Recording::Commit(std::optional<std::chrono::nanoseconds> firstClock) {
    std::lock_guard lock(mutex_);
    const auto start = firstClock ? *firstClock : messages_.empty() ? std::chrono::nanoseconds(0) : messages_[0].time;
    MidiFile recorded;
    recorded.format = 0;
    recorded.division = kTicksPerQuarter;
    MidiTrack& track = recorded.tracks.emplace_back();
    track.AddMeta(0, kTempoMeta, kTempo120);
    std::uint32_t latest = 0;
    for (const Message& message : messages_) {
        if (message.count < 2 || message.bytes[0] >= 0xF0)
            continue;  // the engine sends channel messages alone
        const auto sinceStart = std::max(message.time - start, std::chrono::nanoseconds(0));
        // Threads that send at once may note their times the other way round.
        latest = std::max(latest, static_cast<std::uint32_t>((sinceStart + kTick / 2) / kTick));
        track.AddMessage(latest, message.bytes[0], message.bytes[1], message.bytes[2]);
    }
    file_.Write(MidiFileWriter().Bytes(recorded));
    file_.Commit();
}

}  // namespace player
