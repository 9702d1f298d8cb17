#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace player {

/// An open MIDI input whose messages arrive whole: short ones as they come, system
/// exclusive ones put together from the buffers that the device fills.
///
/// Owner:   whoever listens. Opened by the constructor, closed by the destructor, which
///          waits for a receiver that is running; not destroyed by its own receiver.
/// Threads: any, one at a time; the receiver runs on a thread of the platform's.
/// Lock:    one of its own, a leaf; not held while the receiver runs.
/// Errors:  std::runtime_error from the constructor, with one line, where the device is
///          not to be had.
class MidiInput {
public:
    /// One message, with its status byte; seconds since the input was opened. Must not
    /// close the input. What it throws is logged.
    using Receiver = std::function<void(const std::uint8_t* bytes, std::size_t count, double seconds)>;

    /// Of a longer one only the number is known: GetDiscarded().
    static constexpr std::size_t kLongestMessage = 64 * 1024;

    /// device: its index.
    MidiInput(unsigned int device, Receiver receiver);
    ~MidiInput();
    MidiInput(const MidiInput&) = delete;
    MidiInput& operator=(const MidiInput&) = delete;

    /// System exclusive messages that were too long, broken off or badly received.
    std::uint64_t GetDiscarded() const;
    /// How often the device told of short messages that were lost, or badly received: each
    /// time of one at least.
    std::uint64_t GetLosses() const;

    /// Display names of this machine's inputs, in UTF-8, by device index.
    static std::vector<std::string> GetNames();
    /// The index of the input of that name or index, also of one that is lost.
    /// std::invalid_argument with one line that names those there are.
    static unsigned int Select(const std::string& wanted);
    /// The index of the input of exactly that name that is plugged in.
    static std::optional<unsigned int> Find(const std::string& name);
    /// Whether the input of that index is known to be unplugged; on any thread. One that is
    /// open is heard again when it is back.
    static bool IsLost(unsigned int device);
    /// One line that tells why the input of that index was not to be opened: it is not there
    /// now, or in use.
    static std::string DescribeRefusal(unsigned int device);

private:
    class Device;
    const std::unique_ptr<Device> device_;
};

}  // namespace player
