#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "vemo_core/click.h"
#include "vemo_core/key.h"
#include "vemo_core/marker.h"
#include "vemo_core/meter.h"
#include "vemo_core/page_num.h"
#include "vemo_core/song_data.h"
#include "vemo_core/song_log.h"
#include "vemo_core/tempo.h"
#include "vemo_core/tempo_scale.h"
#include "vemo_core/transpose.h"
#include "vemo_core/vemo_core_export.h"
#include "vemo_core/voice_data.h"
#include "vemo_core/voice_event.h"

/// Builds songs for importers, hosts and tests, and refuses what no engine could
/// play.
///
/// Owner:   whoever builds a song; a value.
/// Threads: one at a time.
/// Units:   ticks of the song's resolution; notes, programs and data 0..127.
///          What lies between two ticks covers the first and not the second.
/// Errors:  std::invalid_argument whose text names the value and what is
///          allowed, from the call that brought the value, which then changed
///          nothing, or, where only the whole song shows it, from BuildSong()
///          and BuildLog().
class VEMO_CORE_EXPORT SongBuilder {
public:
    /// The most beats of a song, and the most clicks: it keeps one record for each.
    static constexpr unsigned int kMostBeats = 100'000;
    static constexpr unsigned int kMostClicks = 400'000;
    /// The last end of a song. The engine's ticks run on a few clocks beyond it.
    static constexpr unsigned int kLastEnd = 0xFFFF0000;

    /// resolution: ticks per quarter note, at least 24.
    explicit SongBuilder(unsigned short resolution);

    SongBuilder& Title(int number, const std::string& name);
    /// Events are on the track's channel; they are sorted stably by time. Notes
    /// 255, 255 mean that the track is not transposed.
    SongBuilder& Track(unsigned short id, const std::string& name, unsigned char lowNote, unsigned char highNote,
                       unsigned char defaultProgram, std::vector<vemo_midi::VoiceEvent> events);
    /// Of several tempos at one tick the last given counts; so it is for meters,
    /// keys, pages and markers.
    SongBuilder& Tempo(unsigned int tick, double quarterNotesPerMinute);
    /// A meter that starts off a bar line starts a bar.
    SongBuilder& Meter(unsigned int tick, int beats, int beatUnit, int clocksPerClick, int notated32PerClick);
    SongBuilder& Key(unsigned int tick, int sharps, bool minor);
    SongBuilder& Page(unsigned int tick, unsigned int number);
    SongBuilder& Marker(unsigned int tick, const std::string& text);
    /// Two clicks do not overlap; nor do two tempo scales or two transpositions.
    SongBuilder& Click(unsigned int start, unsigned int end, int notated32);
    SongBuilder& TempoScale(unsigned int start, unsigned int end, double factor);
    SongBuilder& Transpose(unsigned int start, unsigned int end, int semitones);
    /// Where playback begins; tick 0 unless set.
    SongBuilder& StartAt(unsigned int tick);
    /// The last tick index. A song needs one.
    SongBuilder& EndAt(unsigned int tick);

    /// Lays out bars and beats from the meters, the beats before the end. What
    /// is missing at tick 0 becomes 120 quarter notes a minute, 4/4 (24 clocks,
    /// 8 thirty-seconds) and C major.
    vemo_midi::SongData BuildSong() const;
    CL::SongLog BuildLog() const;

private:
    /// The last place that anything but the end claims.
    struct Extent {
        unsigned int tick = 0;
        std::string what;
    };

    void NoteExtent(const char* what, unsigned int tick);
    template <class T>
    void AddPaired(std::map<unsigned int, T>& events, const char* what, const T& event);
    /// The timeline, once nothing stands against the song.
    TL::Timeline Build() const;
    TL::TimelineSequence<TL::BarsBeats> LayOutBeats(const TL::TimelineSequence<TL::Meter>& meters) const;
    void RequireClicks(const TL::TimelineSequence<TL::BarsBeats>& beats,
                       const TL::TimelineSequence<TL::Meter>& meters) const;

    unsigned short resolution_;
    int number_ = 0;
    std::string name_;
    vemo_midi::VoiceData tracks_;
    std::map<unsigned int, TL::Tempo> tempos_;
    std::map<unsigned int, TL::Meter> meters_;
    std::map<unsigned int, TL::Key> keys_;
    std::map<unsigned int, TL::PageNum> pages_;
    std::map<unsigned int, CL::Marker> markers_;
    std::map<unsigned int, CL::Click> clicks_;
    std::map<unsigned int, CL::TempoScale> tempoScales_;
    std::map<unsigned int, CL::Transpose> transpositions_;
    Extent extent_;
    unsigned int start_ = 0;
    std::optional<unsigned int> end_;
};
