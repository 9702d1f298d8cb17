// Whatever is done to a show: nothing sounds that should not, and the device holds
// what a fresh start at the same place would give it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "player/midi_file_import.h"
#include "player/show_state.h"
#include "tests/player/offline_show.h"
#include "tests/player/song_generator.h"

namespace player {
namespace {

constexpr unsigned kShows = 60;
constexpr std::uint64_t kSettling = 12;  // clocks after which a command has reached the device

/// How many shows: VEMO_SHOWS for a longer search.
unsigned CountOfShows() {
    const char* const wanted = std::getenv("VEMO_SHOWS");
    return wanted ? static_cast<unsigned>(std::atoi(wanted)) : kShows;
}

class RandomShow {
public:
    explicit RandomShow(unsigned seed) : random_(seed) {
        ShowDocument document;
        document.kind = Below(2) ? ShowKind::kRanges : ShowKind::kPrograms;
        std::vector<ShowSong> songs;
        for (unsigned count = 1 + Below(3); count > 0; --count) {
            SongGenerator::Options options;
            options.quarters = 6 + Below(8);
            options.mostChannels = 5;
            options.eventsPerChannel = 40;
            ShowSong& song = songs.emplace_back();
            song.song = std::make_shared<const ImportedSong>(
                ImportMidiFile(SongGenerator(seed * 7 + count, options).Next(), 1));
            song.key = std::to_string(songs.size());
            song.title = song.key;
            for (const TL::BarsBeats& beat : song.song->song.GetTimeline().GetBarsBeats())
                if (beat.abs_time() > 0 && Below(12) == 0)
                    song.pauses.push_back(beat.abs_time());
        }
        // Never one song twice running: its number would not tell which of them is heard.
        for (unsigned place = Below(2), count = 1 + Below(4); count > 0; --count)
            if (const std::string& key = songs[place++ % songs.size()].key;
                document.setList.empty() || document.setList.back().song != key)
                document.setList.push_back({key, static_cast<AfterSong>(Below(3))});
        for (int channel = 1; channel <= 16; ++channel) {
            if (document.kind == ShowKind::kRanges && Below(3) == 0)
                document.trims[channel] = static_cast<int>(Below(128));
            if (Below(8) == 0)
                document.mutes.insert(channel);
        }
        if (document.kind == ShowKind::kRanges)
            document.groups.push_back({1, "group", {1, 3, 5, 7}});
        show = std::make_shared<const Show>(std::move(document), "", std::move(songs));
    }
    unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    std::string Number(unsigned most) { return " " + std::to_string(1 + Below(most)); }

    std::string Command(const TransportSnapshot& snapshot) {
        switch (Below(24)) {
            case 0: return "tempo up";
            case 1: return "tempo" + std::string(Below(2) ? " 0.7" : " 1.4");
            case 2: return "transpose up";
            case 3: return "transpose down";
            case 4: return "transpose " + std::to_string(static_cast<int>(Below(25)) - 12);
            case 5:
            case 6: return "mute" + Number(16);
            case 7:
            case 8: return snapshot.mutes.empty() ? "unmute all" : "unmute " + std::to_string(*snapshot.mutes.begin());
            case 9: return Below(2) ? "mute group 1" : "unmute group 1";
            case 10: return "trim" + Number(16) + Number(127);
            case 11: return "program" + Number(16) + Number(128);
            case 12: return Below(3) ? "resend" : "follow programs";
            case 13: return "panic";
            case 14: return Below(2) ? "next measure" : "previous measure";
            case 15: return "next song";
            case 16: return "select song" + Number(static_cast<unsigned>(show->GetSongs().size()));
            case 17: return Below(2) ? "hold on" : "hold off";
            case 18: return "pause";
            case 19: return "stop";
            default: break;
        }
        if (snapshot.song == 0)
            return "panic";
        const auto& beats = show->GetSongs()[snapshot.song - 1].song->song.GetTimeline().GetBarsBeats();
        const auto& beat = beats[Below(static_cast<unsigned>(beats.size()))];
        return "locate " + std::to_string(beat.bar()) + ":" + std::to_string(beat.beat());
    }

    std::shared_ptr<const Show> show;

private:
    std::mt19937 random_;
};

/// What the device holds after the cycle at a place, and how it was set to come there.
struct Capture {
    ShowState state;
    Receiver obedient{true};
    Receiver deaf{false};
    bool silenced = false;
};

std::string Sounding(const Receiver& receiver, const std::set<int>& channels) {
    std::string notes;
    for (const int channel : channels)
        for (std::size_t note = 12; note < 116; ++note)  // at both ends two notes may be folded into one
            if (receiver[static_cast<std::size_t>(channel)].notes[note])
                notes += std::to_string(channel) + ":" + std::to_string(note) + " ";
    return notes;
}

class Operator {
public:
    explicit Operator(unsigned seed) : random_(seed), captureAt_(40 + random_.Below(300)) {}

    std::optional<Capture> Run() {
        Transport::Settings settings;
        settings.show = random_.show;
        OfflineShow show(
            {}, [this](OfflineShow& running, std::uint32_t tick) { BeforeClock(running, tick); }, settings);
        show.Run([this](OfflineShow& running, const TransportSnapshot& snapshot) { AtRest(running, snapshot); });
        ExpectSilence(show, "the end");
        return std::move(capture_);
    }
    const Show& GetShow() const { return *random_.show; }
    std::string Log() const { return "; done:" + log_; }

private:
    void Do(OfflineShow& show, const std::string& command) {
        log_ += " " + command + " @" + std::to_string(show.GetTransport().GetHost().GetTick()) + ",";
        const CommandAnswer answer = show.Do(command);
        EXPECT_TRUE(answer.done || !answer.message.empty()) << Log();
        const auto snapshot = show.GetTransport().GetSnapshot();
        if (snapshot->state == TransportState::kStopped && answer.done)
            ExpectSilence(show, command);
        lastCommand_ = show.GetClock();
        if (command == "panic")
            silenced_ = true;
        else if (answer.done && snapshot->state != TransportState::kPlaying)
            silenced_ = false;
        for (const char* const restart : {"locate", "next m", "previous m"})
            if (answer.done && command.starts_with(restart))
                silenced_ = false;
        for (int channel = 1; channel <= 16; ++channel) {
            if (!snapshot->mutes.contains(channel))
                mutedSince_.erase(channel - 1);
            else
                mutedSince_.emplace(channel - 1, lastCommand_);
        }
    }
    void ExpectSilence(const OfflineShow& show, const std::string& after) {
        EXPECT_EQ(show.Obedient().WhatSounds(), "") << "after " << after << Log();
        EXPECT_EQ(show.Deaf().WhatSounds(), "") << "after " << after << Log();
    }

    void BeforeClock(OfflineShow& show, std::uint32_t tick) {
        std::lock_guard lock(mutex_);
        const auto snapshot = show.GetTransport().GetSnapshot();
        // The transport learns a moment later that the host has gone on to a song.
        if (snapshot->song == show.GetTransport().GetHost().GetSongNumber())
            CheckMutes(show, *snapshot);
        const std::uint64_t clock = show.GetClock();
        if (snapshot->song != song_ || clock > 4'000) {
            song_ = snapshot->song;
            lastCommand_ = clock;  // a song that went on to another counts as one
            silenced_ = false;
        }
        if (clock < captureAt_) {
            if (random_.Below(9) == 0)
                Do(show, random_.Command(*snapshot));
            return;
        }
        const auto& song = random_.show->GetSongs()[snapshot->song - 1];
        const std::uint32_t ticksPerClock = song.song->song.GetResolution() / 24u;
        const std::uint32_t last = song.song->song.GetTimeline().GetLastTickIndex();
        // Near the end another song may be on its way.
        if (clock < lastCommand_ + kSettling || tick < ticksPerClock || tick + 6 * ticksPerClock > last || capture_ ||
            snapshot->song != show.GetTransport().GetHost().GetSongNumber())
            return;
        capture_.emplace();
        capture_->silenced = silenced_;
        ShowState& state = capture_->state;
        state.song = song.key;
        state.tick = tick - ticksPerClock;
        state.tempoScale = snapshot->tempoScale;
        state.transposition = snapshot->transposition;
        state.mutes = snapshot->mutes;
        state.trims = snapshot->trims;
        state.programs = snapshot->programs;
        for (const OfflineShow::Sent& sent : show.GetSent()) {
            capture_->obedient.Take(sent.message);
            capture_->deaf.Take(sent.message);
        }
        show.Do("stop");
        ExpectSilence(show, "the last stop");
        show.Leave();
    }

    void AtRest(OfflineShow& show, const TransportSnapshot& snapshot) {
        // The clock may begin before a command's consequences are noted.
        std::lock_guard lock(mutex_);
        if (show.GetTransport().GetHost().IsAtPause()) {
            for (auto sent = show.GetSent().rbegin(); sent != show.GetSent().rend() && sent->clock == show.GetClock();
                 ++sent)
                EXPECT_FALSE((sent->message.status & 0xF0) == 0xB0 && sent->message.data1 >= 120 && log_.empty())
                    << "a pause of the song lets ring" << Log();
        } else {
            ExpectSilence(show, "state " + std::string(NameOf(snapshot.state)));
        }
        if (random_.Below(2))
            Do(show, random_.Command(snapshot));
        const auto now = show.GetTransport().GetSnapshot();
        Do(show, now->state == TransportState::kPaused ? "continue" : "play");
    }

    // From the first cycle filled after a mute on, its track strikes nothing.
    void CheckMutes(const OfflineShow& show, const TransportSnapshot& snapshot) {
        std::erase_if(mutedSince_, [&](const auto& muted) { return !snapshot.mutes.contains(muted.first + 1); });
        for (; heard_ < show.GetSent().size(); ++heard_) {
            const OfflineShow::Sent& sent = show.GetSent()[heard_];
            const auto muted = mutedSince_.find(sent.message.status & 0x0F);
            if ((sent.message.status & 0xF0) == 0x90 && muted != mutedSince_.end()) {
                EXPECT_LE(sent.clock, muted->second + 4) << "channel " << muted->first << " is muted" << Log();
            }
        }
    }

    std::mutex mutex_;
    RandomShow random_;
    const std::uint64_t captureAt_;
    std::optional<Capture> capture_;
    std::string log_;
    std::uint64_t lastCommand_ = 0;
    unsigned song_ = 0;
    std::map<int, std::uint64_t> mutedSince_;
    std::size_t heard_ = 0;
    bool silenced_ = false;  // by a panic: what was held then is not struck again
};

Capture FreshStart(const std::shared_ptr<const Show>& shown, const ShowState& state, std::uint32_t ticksPerClock) {
    Capture fresh;
    Transport::Settings settings;
    settings.show = shown;
    settings.resume = state;
    OfflineShow show(
        {},
        [&](OfflineShow& running, std::uint32_t tick) {
            if (tick != state.tick + ticksPerClock)
                return;
            for (const OfflineShow::Sent& sent : running.GetSent()) {
                fresh.obedient.Take(sent.message);
                fresh.deaf.Take(sent.message);
            }
            running.Do("stop");
            running.Leave();
        },
        settings);
    show.Run([](OfflineShow& running, const TransportSnapshot&) { running.Do("continue"); });
    return fresh;
}

int DefaultOf(int controller, int trim) {
    return controller == 7 ? trim : controller == 10 ? 64 : controller == 11 ? 127 : 0;
}

void ExpectSame(const Receiver& played, const Receiver& fresh, const ShowSong& song, const ShowState& state,
                bool silenced) {
    const std::uint32_t end = state.tick + song.song->song.GetResolution() / 24u;
    std::set<int> compared;
    for (const auto& [id, track] : song.song->song.GetVoiceData()) {
        const auto& events = track.GetEvents();
        // The state of a track that has ended is forgotten by a start.
        if (!events.empty() && events.back().time >= end && !state.mutes.contains(id + 1))
            compared.insert(id);
    }
    if (!silenced) {
        EXPECT_EQ(Sounding(played, compared), Sounding(fresh, compared));
    }
    for (const int id : compared) {
        const auto& was = played[static_cast<std::size_t>(id)];
        const auto& is = fresh[static_cast<std::size_t>(id)];
        EXPECT_EQ(was.bend, is.bend) << "channel " << id;
        if (is.program != -1) {
            EXPECT_EQ(was.program, is.program) << "channel " << id;
        }
        const auto trim = state.trims.find(id + 1);
        std::set<int> controllers{7, 10, 11};
        for (const auto& [controller, value] : is.controllers)
            controllers.insert(controller);
        for (const int controller : controllers) {
            const int usual = DefaultOf(controller, trim == state.trims.end() ? 100 : trim->second);
            const auto a = was.controllers.find(controller);
            const auto b = is.controllers.find(controller);
            EXPECT_EQ(a == was.controllers.end() ? usual : a->second, b == is.controllers.end() ? usual : b->second)
                << "channel " << id << " controller " << controller;
        }
    }
}

TEST(ShowProperties, AfterAnyScriptTheDeviceHoldsWhatAFreshStartWouldGiveItAndNothingElseSounds) {
    unsigned captured = 0;
    for (unsigned seed = 1; seed <= CountOfShows(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        Operator player(seed);
        const auto capture = player.Run();
        if (capture) {
            ++captured;
            const ShowSong& song = player.GetShow().GetSongs()[player.GetShow().IndexOf(capture->state.song)];
            SCOPED_TRACE("song " + song.key + " tick " + std::to_string(capture->state.tick) + player.Log());
            const Capture fresh = FreshStart(std::shared_ptr<const Show>(std::shared_ptr<void>(), &player.GetShow()),
                                             capture->state, song.song->song.GetResolution() / 24u);
            ExpectSame(capture->obedient, fresh.obedient, song, capture->state, capture->silenced);
            ExpectSame(capture->deaf, fresh.deaf, song, capture->state, capture->silenced);
        }
        if (HasFailure())
            return;
    }
    EXPECT_GT(captured, CountOfShows() / 3);
}

}  // namespace
}  // namespace player
