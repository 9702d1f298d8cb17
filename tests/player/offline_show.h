#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <bitset>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "player/current_show.h"
#include "player/playback_feed.h"
#include "player/show.h"
#include "player/transport.h"
#include "vemo_core/song_builder.h"
#include "win32_layer/layer.h"
#include "win32_layer/virtual_midi_output.h"

namespace player {

/// A device as the audience hears it. One kind obeys the channel-mode messages, the
/// other, which also exists, takes no notice of them.
class Receiver {
public:
    struct Channel {
        std::array<int, 128> strikes{};  // note-ons less note-offs: some devices stack them
        std::bitset<128> notes;
        std::map<int, int> controllers;
        int program = -1;
        int bend = 0x2000;
    };

    explicit Receiver(bool obeysModes) : obeysModes_(obeysModes) {}

    void Take(const std_midi::VoiceMessage& message) {
        Channel& channel = channels_[message.status & 0x0Fu];
        const std::size_t note = message.data1;
        switch (message.status & 0xF0) {
            case 0x80:
                channel.strikes[note] = std::max(0, channel.strikes[note] - 1);
                channel.notes.reset(note);
                break;
            case 0x90:
                ++channel.strikes[note];
                channel.notes.set(note);
                break;
            case 0xB0:
                if (message.data1 < 120)
                    channel.controllers[message.data1] = message.data2;
                else if (obeysModes_)
                    TakeMode(channel, message.data1);
                break;
            case 0xC0: channel.program = message.data1; break;
            case 0xE0: channel.bend = message.data1 | message.data2 << 7; break;
            default: break;
        }
    }

    const Channel& operator[](std::size_t channel) const { return channels_[channel]; }
    bool IsSilent(std::size_t channel) const {
        return std::ranges::all_of(channels_[channel].strikes, [](int strikes) { return strikes == 0; });
    }
    /// "channel 3 note 60 twice", or empty.
    std::string WhatSounds() const {
        std::string sounding;
        for (std::size_t channel = 0; channel < 16; ++channel)
            for (std::size_t note = 0; note < 128; ++note)
                if (const int strikes = channels_[channel].strikes[note]; strikes > 0)
                    sounding += "channel " + std::to_string(channel) + " note " + std::to_string(note) + " x" +
                                std::to_string(strikes) + " ";
        return sounding;
    }

private:
    static void TakeMode(Channel& channel, int controller) {
        if (controller == 121) {  // as the General MIDI response to it
            channel.bend = 0x2000;
            channel.controllers[1] = 0;
            channel.controllers[11] = 127;
            for (int pedal = 64; pedal <= 67; ++pedal)
                channel.controllers[pedal] = 0;
        } else if (controller != 122) {
            channel.strikes.fill(0);
            channel.notes.reset();
        }
    }

    const bool obeysModes_;
    std::array<Channel, 16> channels_;
};

/// In 4/4 at 120, 96 ticks a quarter: a note on every beat of channel 1, and what else it is to play there.
inline ImportedSong SongOfBeats(const std::string& title, unsigned beats,
                                std::vector<vemo_midi::VoiceEvent> events = {}) {
    for (unsigned beat = 0; beat < beats; ++beat) {
        events.emplace_back(96 * beat, 0x90, 0, 60, 90);
        events.emplace_back(96 * beat + 48, 0x80, 0, 60, 64);
    }
    SongBuilder builder(96);
    builder.Title(1, title).Track(0, "part", 0, 127, 0, std::move(events)).EndAt(96 * beats);
    return {builder.BuildSong(), builder.BuildLog(), title, {}};
}

/// One song after another at once.
inline std::shared_ptr<const Show> ShowOf(const std::vector<ImportedSong>& songs, ShowKind kind = ShowKind::kPrograms) {
    ShowDocument document;
    document.kind = kind;
    std::vector<ShowSong> shown;
    for (const ImportedSong& song : songs) {
        ShowSong& one = shown.emplace_back();
        one.key = std::to_string(shown.size());
        one.title = song.title;
        one.number = static_cast<int>(shown.size());
        one.song = std::make_shared<const ImportedSong>(song);
        document.setList.push_back({one.key, AfterSong::kGo});
    }
    return std::make_shared<const Show>(std::move(document), "", std::move(shown));
}

/// A show in virtual time on the platform layer with one device, steered between
/// two clocks.
///
/// Owner:   a test; one at a time, since it uses the process's layer.
/// Threads: the steering runs on the clock's thread with the ring full.
class OfflineShow {
public:
    struct Sent {
        std_midi::VoiceMessage message;
        std::chrono::nanoseconds time;
        std::uint64_t clock;  // how often the steering had been called
    };
    /// While nothing plays and the show has not ended, on the thread of Run(); once for
    /// every change.
    using Rest = std::function<void(OfflineShow& show, const TransportSnapshot& snapshot)>;
    /// Before every clock; the next one falls at tick.
    using Steer = std::function<void(OfflineShow& show, std::uint32_t tick)>;

    explicit OfflineShow(const std::vector<ImportedSong>& songs, Steer steer = {}, Transport::Settings settings = {})
        : steer_(std::move(steer)) {
        if (!settings.show)
            settings.show = ShowOf(songs);
        auto& layer = win32_layer::Layer::Instance();
        layer.Reset();
        layer.AddOutput(std::make_shared<win32_layer::VirtualMidiOutput>(
            L"Receiver", win32_layer::VirtualMidiOutput::Speed::kAtOnce, false));
        layer.SetObserver([this](const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time) {
            std::lock_guard lock(mutex_);
            const std_midi::VoiceMessage message{bytes[0], bytes[1], count > 2 ? bytes[2] : std::uint8_t{0}};
            sent_.push_back({message, time, clock_});
            obedient_.Take(message);
            deaf_.Take(message);
        });
        records_ = feed_.Subscribe();
        settings.beforeVirtualClock = [this] { BeforeClock(); };
        transport_ = std::make_unique<Transport>(settings, show_, feed_);
        running_ = transport_.get();
        layer.SetDelivery(win32_layer::Delivery::kInline);
        layer.SetTimeSource([this] { return running_->GetHost().GetTime(); });
    }
    ~OfflineShow() {
        transport_.reset();
        win32_layer::Layer::Instance().Reset();
    }

    /// Plays until the last song is over, playing fails or the steering leaves.
    TransportState Run(const Rest& rest = {}) {
        left_ = false;
        Do("play");
        std::uint64_t seen = 0;
        for (const auto start = std::chrono::steady_clock::now();;) {
            auto snapshot = running_->WaitForChange(seen, std::chrono::milliseconds(50));
            std::unique_lock lock(mutex_);
            // Not while the steering is at it: what it stops it may start again.
            if (steers_)
                continue;
            snapshot = running_->GetSnapshot();
            const bool isNew = snapshot->number > seen;
            seen = snapshot->number;
            if (left_ || snapshot->state == TransportState::kEnded || snapshot->state == TransportState::kFault)
                return snapshot->state;
            if (rest && isNew && snapshot->state != TransportState::kPlaying) {
                lock.unlock();
                rest(*this, *snapshot);
                lock.lock();
            }
            if (std::chrono::steady_clock::now() - start > std::chrono::seconds(60))
                throw std::runtime_error("the show has come to a standstill at clock " + std::to_string(clock_) + ", " +
                                         std::string(NameOf(snapshot->state)));
        }
    }
    CommandAnswer Do(const std::string& command) { return running_->Post(ParseCommand(command)).get(); }
    /// From the steering: ends Run() without waiting for the end of the song.
    void Leave() {
        std::lock_guard lock(mutex_);
        left_ = true;
    }

    Transport& GetTransport() { return *running_; }
    PlaybackFeed& GetFeed() { return feed_; }
    std::uint64_t GetClock() const { return clock_; }
    const Receiver& Obedient() const { return obedient_; }
    const Receiver& Deaf() const { return deaf_; }
    const std::vector<Sent>& GetSent() const { return sent_; }
    /// After Run(), once: every record of the run.
    std::vector<PlaybackRecord> TakeRecords() {
        feed_.Close();
        std::vector<PlaybackRecord> records;
        while (const auto record = records_->Next())
            records.push_back(*record);
        return records;
    }

private:
    void BeforeClock() {
        const PlaybackHost& host = running_->GetHost();
        host.WaitForFills(4, std::chrono::seconds(20));
        const std::uint32_t tick = host.GetTick();
        {
            std::lock_guard lock(mutex_);
            ++clock_;
            steers_ = true;
        }
        if (steer_)
            steer_(*this, tick);
        {
            std::lock_guard lock(mutex_);
            steers_ = false;
        }
        host.WaitForFills(1, std::chrono::seconds(20));
    }

    const Steer steer_;
    CurrentShow show_;
    PlaybackFeed feed_{PlaybackFeed::Lag::kGrow};
    std::shared_ptr<PlaybackFeed::Subscription> records_;
    std::mutex mutex_;
    // Guarded by mutex_ while the show plays.
    std::vector<Sent> sent_;
    Receiver obedient_{true};
    Receiver deaf_{false};
    bool left_ = false;
    bool steers_ = false;
    std::atomic<std::uint64_t> clock_{0};
    std::unique_ptr<Transport> transport_;
    Transport* running_ = nullptr;  // for the engine's threads, also while it is destroyed
};

}  // namespace player
