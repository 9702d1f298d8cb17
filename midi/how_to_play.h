#pragma once

#include <cstddef>
#include <list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "midi/user_controls.h"
#include "midi/vemo_midi_export.h"
#include "vemo_core/bars_beats.h"
#include "vemo_core/change_log_sequence.h"
#include "vemo_core/click.h"
#include "vemo_core/key.h"
#include "vemo_core/marker_sequence.h"
#include "vemo_core/meter.h"
#include "vemo_core/page_num.h"
#include "vemo_core/song_log.h"
#include "vemo_core/tempo.h"
#include "vemo_core/tempo_scale.h"
#include "vemo_core/timeline.h"
#include "vemo_core/transpose.h"

/// Follows the position in the current song: which bar, tempo, meter, key, click
/// and so on are in effect, what changed with the last move, and what the clock
/// and the display need to know of it. In effect is the last element at or before
/// the position, and before the first element that one.
///
/// Owner:   the host. The user controls outlive it; copies share them and own
///          everything else. There is no virtual destructor: delete it as what it is.
/// Threads: one at a time; the caller serialises with a mutex of its own.
/// Lock:    none; the user controls' own while they are read.
/// Units:   ticks; seconds per MIDI clock, 24 clocks a quarter note; tempo scales
///          are factors; semitones. Clicks, tempo scales and transpositions hold
///          from their start up to, and without, their end.
/// Errors:  std::out_of_range from the getters of what the song has none of.
///          Before the first SetData() only moves and what needs no song are allowed.
class VEMO_MIDI_EXPORT HowToPlay {
public:
    /// There is no measure before.
    class VEMO_MIDI_EXPORT SongBegin : public std::range_error {
    public:
        explicit SongBegin(const std::string& message);
        SongBegin(const SongBegin&) = default;
        ~SongBegin() override;
    };
    /// There is no measure after.
    class VEMO_MIDI_EXPORT SongEnd : public std::range_error {
    public:
        explicit SongEnd(const std::string& message);
        SongEnd(const SongEnd&) = default;
        ~SongEnd() override;
    };

    explicit HowToPlay(UserControls& userControls);
    HowToPlay(const HowToPlay& other);
    HowToPlay(HowToPlay&& other) noexcept;
    ~HowToPlay();

    /// Forward; an earlier tick becomes a Seek(). Whether a tempo scale, a
    /// transposition or a click is active is judged on the events that were in
    /// effect before the move, so that the change reports compare like with like:
    /// a second advance to the same tick judges those that are in effect there,
    /// and reports the same changes again.
    virtual void AdvanceToTickIndex(unsigned int tickIndex);
    virtual unsigned int GetLastTickIndex();
    /// A jump, after which every sequence reports its element once more.
    virtual void Seek(unsigned int tickIndex);
    /// Loads a song and seeks to 0. resolution: ticks per quarter note, at least 24.
    virtual void SetData(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int resolution);
    virtual void SetHighSpeed();

    void SetMarkerUpdated(bool updated) { marker_.reported = updated; }
    /// True once after each SetData().
    bool GetSendMarkerAndSongTitle();

    unsigned int GetTickIndex() const { return tickIndex_; }
    const TL::BarsBeats& GetBarBeat() const { return barsBeats_[barBeat_.current]; }
    const TL::Key& GetKey() const { return keys_[key_.current]; }
    const TL::Meter& GetMeter() const { return meters_[meter_.current]; }
    const TL::Tempo& GetTempo() const { return tempos_[tempo_.current]; }
    const CL::Click& GetClick() const;
    const CL::TempoScale& GetTempoScale() const;
    const CL::Transpose& GetTranspose() const;
    const CL::Marker& GetMarker() const;
    const TL::PageNum& GetPageNumber() const;
    unsigned int GetMarkerTickIndex() const;
    /// 1 for a song without page numbers.
    unsigned int GetPageNumberValue() const;
    std::string GetSongTitle() const { return songTitle_; }

    double GetPreAdvanceTempoScale() const { return preAdvanceTempoScale_; }
    int GetPreAdvanceTransposition() const { return preAdvanceTransposition_; }
    double GetPreSeekTempoScale() const { return preSeekTempoScale_; }
    int GetPreSeekPitchShift() const { return preSeekPitchShift_; }
    double GetLastSeekClockTime() const { return lastSeekClockTime_; }
    int GetLastSeekClocksPerClick() const { return lastSeekClocksPerClick_; }

    /// The user's alone is not clamped; with a scale of the song's the product is.
    double GetTempoScaleValue();
    double GetTempoScaleValueAtTickIndex(unsigned int tickIndex);
    int GetTranspositionValue() const;
    int GetTranspositionValueAtTickIndex(unsigned int tickIndex) const;
    /// Now, and at the call before.
    std::pair<int, int> GetTranspositionPair();
    /// The scale in it is always clamped.
    double GetClockTime();
    int GetClocksPerClick() const;
    int GetClocksPerClickAtTickIndex(unsigned int tickIndex) const;
    int GetNotated32PerClick() const;
    int GetClockNumber() const;
    int GetClockNumberAtTickIndex(unsigned int tickIndex) const;
    /// Whether a clock falls on the tick, and the tick of the first clock from it on.
    std::pair<bool, unsigned int> GetNextClockTickIndex(unsigned int tickIndex) const;
    unsigned int RoundDownToNearestClock(unsigned int tickIndex) const;
    /// Clicks of the meter per minute.
    double GetTempoDouble();
    int GetTempoInteger();

    std::string GetBarString() const;
    std::string GetMeterString() const;
    std::string GetKeyString() const;
    std::string GetMarkerString() const;
    std::string GetTempoString();
    /// Ends with a line feed.
    std::string GetTempoScaleString();

    // What changed with the last move, or was not reported since the last seek.
    bool UpdateBar();
    bool UpdateKey();
    bool UpdateMeter();
    bool UpdateTempo();
    bool UpdatePageNumber();
    bool UpdateMarker();
    bool UpdateClick();
    bool UpdateTempoScale();
    bool UpdateTransposition();
    bool UpdateClockTime();
    bool UpdateClocksPerClick();

    /// SongEnd, SongBegin where there is none.
    unsigned int GetNextMeasureTickIndex(unsigned int tickIndex) const;
    unsigned int GetPreviousMeasureTickIndex(unsigned int tickIndex) const;
    /// Clicks that follow the last one at or before the position; before the
    /// first one, as from the first.
    unsigned int GetClicksToSongEnd() const;
    /// Where a tempo scale or a transposition next starts or ends, else the end.
    unsigned int GetTickIndexOfNextDspEvent();
    void WriteDspEvents() const;

protected:
    /// To 0.5 .. 2.0; what is not a number to 0.5.
    virtual double LimitTempoScaleToAllowedRange(double tempoScale);

    void CreateBeatTickIndices(const CL::SongLog& songLog, const TL::Timeline& timeline, unsigned int resolution);
    void CreateDspTickIndices();

    // The position plays no part in these.
    std::optional<unsigned int> FindFirstBeatFrom_(unsigned int tickIndex) const;
    double GetClockTimeAtTickIndex_(unsigned int tickIndex);

private:
    /// A place in one sequence, as indices: they hold for every copy.
    struct Cursor {
        std::size_t current = 0;
        std::size_t previous = 0;
        bool reported = false;
    };
    struct Activity {
        bool now = false;
        bool before = false;
    };

    bool IsActiveAt_(const CL::PairedEvent& event, unsigned int tickIndex) const;
    int ClocksPerClick_(const TL::Meter& meter, const CL::Click* click, unsigned int tickIndex) const;
    int ClockNumber_(unsigned int tickIndex, unsigned int reference, int clocksPerClick) const;
    double ClockTime_(const TL::Tempo& tempo, double factor);
    int Transposed_(int semitones) const;
    unsigned int TicksPerClock_() const { return resolution_ / 24u; }
    void MoveForward_(unsigned int tickIndex);

    UserControls& userControls_;
    unsigned int tickIndex_ = 0;
    unsigned int lastTickIndex_ = 0;
    unsigned short resolution_ = 0;
    std::string songTitle_;

    TL::TimelineSequence<TL::BarsBeats> barsBeats_;
    TL::TimelineSequence<TL::Tempo> tempos_;
    TL::TimelineSequence<TL::Meter> meters_;
    TL::TimelineSequence<TL::Key> keys_;
    TL::TimelineSequence<TL::PageNum> pageNums_;
    CL::MarkerSequence markers_;
    CL::ChangeLogSequence<CL::Click> clicks_;
    CL::ChangeLogSequence<CL::TempoScale> tempoScales_;
    CL::ChangeLogSequence<CL::Transpose> transpositions_;
    bool hasPageNums_ = false;
    bool hasMarkers_ = false;
    bool hasClicks_ = false;
    bool hasTempoScales_ = false;
    bool hasTranspositions_ = false;

    Cursor barBeat_;
    Cursor tempo_;
    Cursor meter_;
    Cursor key_;
    Cursor pageNum_;
    Cursor marker_;
    Cursor click_;
    Cursor tempoScale_;
    Cursor transposition_;
    Activity clickActive_;
    Activity tempoScaleActive_;
    Activity transpositionActive_;

    double preAdvanceTempoScale_ = 1.0;
    int preAdvanceTransposition_ = 0;
    double preSeekTempoScale_ = 1.0;
    int preSeekPitchShift_ = 0;
    int lastSeekClocksPerClick_ = 0;
    double lastSeekClockTime_ = 0;
    int lastReportedTransposition_ = 0;
    bool sendMarkerAndSongTitle_ = false;
    bool highSpeed_ = false;

    std::vector<unsigned int> measureTickIndices_;
    std::map<unsigned int, unsigned int> beatTickIndices_;
    std::list<unsigned int> dspTickIndices_;
};
