#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "midi/frame_rate.h"
#include "midi/full_frame_message.h"
#include "midi/quarter_frame_message.h"
#include "midi/vemo_midi_export.h"

/// A place on the time axis of film and tape, as hours, minutes, seconds and a
/// frame label at one of four rates, with the quarter frame and the rest of a
/// second inside the frame. At 29.97 frames a second the labels 0 and 1 of the
/// first second of a minute are dropped, but not in every tenth minute.
///
/// Owner:   whoever computes with it; a value.
/// Threads: one at a time.
/// Lock:    none.
/// Units:   frame labels; quarter frames 0..3 inside a frame; seconds as double.
///          Everything wraps at 24 hours.
/// Errors:  InvalidFrameCount, InvalidSecondCount, InvalidMinuteCount and
///          InvalidHourCount from the constructor that takes a label, in this
///          order; MidiTimeCodeFrameRateError from arithmetic between two rates,
///          with the left side as it was. A rate that is none of the four counts
///          as 30; fields that a message brought are not checked.
class VEMO_MIDI_EXPORT MidiTimeCode {
public:
    /// 00:00:00:00 at 30 frames a second.
    MidiTimeCode();
    MidiTimeCode(unsigned char hours, unsigned char minutes, unsigned char seconds, unsigned char frames,
                 FrameRate frameRate);
    MidiTimeCode(double seconds, FrameRate frameRate);
    MidiTimeCode(const MidiTimeCode& other);
    MidiTimeCode& operator=(const MidiTimeCode& other);
    ~MidiTimeCode();

    /// Keeps the fields as they are, also where the new rate has no such label.
    void SetFrameRate(FrameRate frameRate);
    FrameRate GetFrameRate() const { return frameRate_; }
    /// seconds: from 0, below 86400. A place on the border of two quarter frames
    /// may come out as the end of the first one.
    void SetFromSeconds(double seconds);
    double GetAsSeconds() const;
    /// "01:02:03:04", with ';' before the frames where labels are dropped.
    std::string GetAsString() const;
    /// Places the code at the beginning of this quarter of its frame.
    void SetQuarterFrameIndex(unsigned char index);
    unsigned char GetQuarterFrameIndex() const { return quarterFrameIndex_; }
    /// Leaves the position inside the frame in seconds as it was.
    void IncrementQuarterFrame();

    FullFrameMessage GetFullFrameMessage() const;
    void SetFullFrameMessage(const FullFrameMessage& message);
    /// QuarterFrameIndexError for an index above 7.
    QuarterFrameMessage GetQuarterFrameMessage(unsigned char index) const;
    /// Takes over the part that the piece carries; a piece above 7 is ignored.
    void ProcessQuarterFrameMessage(const QuarterFrameMessage& message);

    /// From the other to this one; through midnight where the other is later.
    /// Columns of labels are subtracted, so that up to eight quarter frames too
    /// many are counted where labels were dropped between the two.
    std::uint64_t GetDifferenceAsQuarterFrameCount(const MidiTimeCode& other) const;

    /// Equal to the quarter frame.
    bool operator==(const MidiTimeCode& other) const;
    bool operator!=(const MidiTimeCode& other) const { return !(*this == other); }
    bool operator<(const MidiTimeCode& other) const;

    MidiTimeCode& operator++();
    MidiTimeCode operator++(int);
    MidiTimeCode& operator--();
    MidiTimeCode operator--(int);

    /// Label by label, the left side's position inside its quarter frame kept.
    MidiTimeCode& operator+=(const MidiTimeCode& other);
    MidiTimeCode& operator-=(const MidiTimeCode& other);
    MidiTimeCode operator+(const MidiTimeCode& other) const;
    MidiTimeCode operator-(const MidiTimeCode& other) const;
    /// frameCount: below one second of frames, else InvalidFrameCount.
    MidiTimeCode& operator+=(unsigned char frameCount);
    MidiTimeCode& operator-=(unsigned char frameCount);
    MidiTimeCode operator+(unsigned char frameCount) const;
    MidiTimeCode operator-(unsigned char frameCount) const;

private:
    void DeriveFromFrameRate();
    static unsigned char CreateMaxFrameIndex(FrameRate frameRate);
    static double CreateSecondsPerFrame(FrameRate frameRate);
    std::function<void()> GetIncrementFunction();
    std::function<void()> GetDecrementFunction();
    void IncrementForDropFrame();
    void IncrementForNonDropFrame();
    void DecrementForDropFrame();
    void DecrementForNonDropFrame();
    void IncrementFrameCount(unsigned char labelToWrapTo);
    void IncrementSecondCount();
    void IncrementMinuteCount();
    void IncrementHourCount();
    void DecrementFrameCount(unsigned char lowestLabel);
    void DecrementSecondCount();
    void DecrementMinuteCount();
    void DecrementHourCount();

    bool FrameCountIsValid() const;
    bool SecondCountIsValid() const;
    bool MinuteCountIsValid() const;
    bool HourCountIsValid() const;

    bool IsDropFrame() const { return frameRate_ == FrameRate::k2997Drop; }
    bool GetIsDropMinute() const;
    unsigned char GetMinFrameCount() const;
    unsigned char GetMaxFrameCount() const;
    std::int64_t GetRealFrameCount() const;
    /// Frames since 00:00:00:00.
    std::int64_t GetFrameCount() const;
    std::int64_t GetFrameCountFromHours() const;
    std::int64_t GetFrameCountFromMinutes() const;
    std::int64_t GetFrameCountFromSeconds() const;
    std::int64_t GetQuarterFrameCount() const;
    char GetFrameCountSeparator() const;
    double GetSecondsPerFrame() const { return secondsPerFrame_; }

    void SetPlainLabel(double secondsOfHour);
    void SetDropFrameLabel(double secondsOfHour);
    /// The quarter frame that the rest of a second inside the frame lies in.
    void SetSubFrameSeconds(double seconds);
    /// The frame that a drop-frame label stands for, counted from the full hour.
    std::int64_t GetFrameNumberWithinHour() const;
    void RequireSameFrameRate(const MidiTimeCode& other) const;

    unsigned char hours_ = 0;
    unsigned char minutes_ = 0;
    unsigned char seconds_ = 0;
    unsigned char frames_ = 0;
    FrameRate frameRate_ = FrameRate::k30;
    // Follow from frameRate_; the two functions step this very object.
    unsigned char maxFrameIndex_;
    char frameCountSeparator_;
    std::function<void()> incrementFunction_;
    std::function<void()> decrementFunction_;
    double secondsPerFrame_;
    double subFrameSeconds_ = 0.0;
    unsigned char quarterFrameIndex_ = 0;
};
