#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "midi/frame_rate.h"
#include "midi/full_frame_message.h"
#include "midi/midi_time_code_thread.h"
#include "midi/quarter_frame_message.h"
#include "player/time_code_port.h"

namespace player {

/// Sends the place of the show as MIDI Time Code while it plays, and the place where it
/// stands as a full frame: what lights, film and recorders follow.
///
/// Owner:   the program; the playback host, which tells it the place, goes first.
/// Threads: Play() on the clock's thread, which never waits for the port; the rest on
///          the transport's and the operator's. In real time the pieces of a span but the
///          first are sent on a thread of its own, everything else on the caller's.
/// Lock:    mutex_, then the time code's own, then portMutex_; no device is called under
///          any of them.
/// Units:   seconds on the show's axis, to which the start of the show is added.
/// Errors:  std::invalid_argument with one line for a start that the rate does not have;
///          VemoMidiError from SetOutputPortIndex().
class TimeCodeSender final : public MidiTimeCodeThread {
public:
    using Clock = std::function<std::chrono::nanoseconds()>;
    /// Every message, with the time at which it is sent; on the thread that sends it, under
    /// the time code's lock: must not call back. What it throws is logged.
    using Observer = std::function<void(const std::uint8_t* bytes, std::size_t count, std::chrono::nanoseconds time)>;

    struct Settings {
        FrameRate frameRate = FrameRate::k30;
        /// Where the show begins: hours, minutes, seconds, frames.
        std::array<unsigned char, 4> start{};
        /// Empty: the steady clock. Else virtual time: pieces are sent at their due times
        /// by whoever calls Play() or Locate(), and no port is opened.
        Clock virtualTime;
        Observer observer;
    };

    /// A place on the border of two frames comes out of its sums a hair before it as often
    /// as behind, and would show as the frame before: so much is added to every place.
    static constexpr double kBorderSeconds = 1e-6;

    explicit TimeCodeSender(const Settings& settings);
    ~TimeCodeSender() override;

    /// Opened before the one that was is closed, unless it is the same; what plays then
    /// begins on it with a full frame.
    void SetOutputPortIndex(unsigned int device) override;
    bool IsPortWorking() const;
    /// While it is off nothing is sent. Switched on, it begins with a full frame.
    void SetActive(bool active);
    /// With the pending pieces dropped; the next one that plays begins with a full frame.
    void ChangeFrameRate(FrameRate frameRate);

    /// A clock plays: from here to there on the axis, within so many seconds.
    void Play(double seconds, double nextSeconds, double clockSeconds);
    /// The show stands here, or will go on from here: pieces that are still to come are
    /// forgotten, then a full frame tells the place. Where play goes on from the end of the
    /// latest span, what it still owed comes first, so that the pieces stay unbroken; where
    /// that would be a burst, it begins anew with a full frame instead.
    void Locate(double seconds);

    enum class State {
        kOff,
        kOn,
        kLost  // the port is not there, or takes nothing
    };
    State GetState() const;
    /// The label of the latest place, for a display.
    std::string GetLabel() const;
    FrameRate GetRate() const;

protected:
    void CancelTimer() override;
    void SendQuarterFrameMessages(const std::vector<QuarterFrameMessage>& messages) override;
    void SendFullFrameMessage(FullFrameMessage message) override;
    void Run() override;
    double GetCurrentSeconds() override;

private:
    void Send(const std::uint8_t* bytes, std::size_t count);
    void SendDuePieces(double now);
    bool SendPieceDueAt(double due);
    std::size_t CountPendingPieces();
    /// Of a place on the axis, with the start of the show, through midnight.
    double OnDay(double seconds) const;
    /// What the port still has of the pieces, too.
    void DropPending();

    const Clock virtualTime_;
    const Observer observer_;
    const std::array<unsigned char, 4> start_;

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    bool isActive_ = false;
    FrameRate rate_;
    double startSeconds_ = 0;
    double place_ = 0;       // on the show's axis
    double nextPlace_ = -1;  // where the latest span ends; below 0: nothing has played
    double spanEnd_ = 0;     // when it ends, on the clock of GetCurrentSeconds()
    // Of virtual time: the moment at which a piece is sent. By one thread at a time.
    double virtualNow_ = 0;

    mutable std::mutex portMutex_;
    std::unique_ptr<TimeCodePort> port_;  // guarded by portMutex_
    unsigned int device_ = 0;             // of port_; guarded by portMutex_

    bool timerIsCancelled_ = false;  // guarded by timerMutex_
};

}  // namespace player
