#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "midi/frame_rate.h"
#include "midi/midi_time_code.h"

namespace player {

/// Follows a time code as a receiver does (MIDI Time Code 1.0): it knows the time again
/// after each whole cycle of eight pieces, two frames behind the label that they tell, and
/// counts what a sender must not do.
///
/// Owner:   whoever listens.
/// Threads: one at a time.
/// Units:   seconds of arrival, on any clock.
class TimeCodeReader {
public:
    struct Event {
        enum class Kind {
            kLocated,  // a full frame
            kLocked,   // a first cycle is whole: the time runs
            kRuns,     // a further one, where it was expected
            kJumped,   // whole, but not two frames behind the one before
            kMissing   // a piece does not follow the one before
        };
        Kind kind;
        double seconds;
        MidiTimeCode time;  // that holds at the moment of the event
        int missing = 0;    // pieces, of a kMissing
    };
    using Receiver = std::function<void(const Event&)>;

    /// How far pieces were apart that followed each other within a cycle or from one to
    /// the next, in seconds; of the latest million.
    struct Regularity {
        double nominal = 0;  // of the rate
        double median = 0;
        double ninetyNinth = 0;  // distance from the nominal
        double worst = 0;        // distance from the nominal
    };

    explicit TimeCodeReader(Receiver receiver);

    /// A whole message; others than time code are passed over.
    void Read(const std::uint8_t* bytes, std::size_t count, double seconds);

    bool IsLocked() const { return isLocked_; }
    std::uint64_t GetPieces() const { return pieces_; }
    std::uint64_t GetFullFrames() const { return fullFrames_; }
    std::uint64_t GetMissing() const { return missing_; }
    std::uint64_t GetJumps() const { return jumps_; }
    /// Of the latest whole cycle or full frame.
    std::optional<FrameRate> GetRate() const { return rate_; }
    std::optional<Regularity> GetRegularity() const;

private:
    void ReadPiece(std::uint8_t data, double seconds);
    void ReadFullFrame(const std::uint8_t* bytes, double seconds);
    void CompleteCycle(double seconds);
    void Tell(Event::Kind kind, double seconds, const MidiTimeCode& time, int missing = 0);

    const Receiver receiver_;
    std::array<std::uint8_t, 8> nibbles_{};
    int expected_ = -1;                  // piece; below 0: any
    int inCycle_ = 0;                    // pieces of the running cycle without a gap, from its first
    MidiTimeCode time_;                  // of the latest event
    std::optional<MidiTimeCode> whole_;  // what the latest whole cycle told
    std::optional<FrameRate> rate_;
    bool isLocked_ = false;
    std::optional<double> lastPiece_;
    std::vector<float> intervals_;
    std::size_t nextInterval_ = 0;
    std::uint64_t pieces_ = 0;
    std::uint64_t fullFrames_ = 0;
    std::uint64_t missing_ = 0;
    std::uint64_t jumps_ = 0;
};

}  // namespace player
