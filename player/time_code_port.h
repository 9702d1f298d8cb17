#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace player {

/// An open MIDI output that time code goes out on, through a short queue and a thread
/// of its own: a device that takes nothing for a while holds up neither the clock nor
/// the pieces that are still to come.
///
/// Owner:   the sender of time code.
/// Threads: any. Send() and Drop() do not block.
/// Lock:    one of its own, a leaf; never held while the device is called.
/// Errors:  VemoMidiError from the constructor, with one line, where the device cannot
///          be opened. What the device refuses later is lost, and GetState() tells. A
///          device that never comes back from a call is left behind a second after the
///          destructor.
class TimeCodePort {
public:
    enum class State {
        kWorking,
        kFailing  // it is unplugged, refused the latest message, or is behind by a whole queue
    };

    /// device: its index.
    explicit TimeCodePort(unsigned int device);
    ~TimeCodePort();
    TimeCodePort(const TimeCodePort&) = delete;
    TimeCodePort& operator=(const TimeCodePort&) = delete;

    /// A quarter frame or a full frame. Time code that is late is worse than none: a
    /// full queue is thrown away, and begins anew with this message.
    void Send(const std::uint8_t* bytes, std::size_t count);
    /// Forgets what the device has not taken yet.
    void Drop();
    State GetState() const;
    /// Messages refused or thrown away since the port was opened.
    std::uint64_t GetLostCount() const;

private:
    struct Line;
    const unsigned int device_;
    const std::shared_ptr<Line> line_;
};

}  // namespace player
