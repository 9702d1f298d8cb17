#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace player {

/// The MIDI outputs of this machine: where devices come from is the one thing in
/// which the systems differ.
///
/// Threads: the main thread, before playing starts.
class OutputDevices {
public:
    using Observer = std::function<void(const std::uint8_t*, std::size_t, std::chrono::nanoseconds)>;

    /// Adds what this program brings along: a virtual output, where the system has
    /// none of its own.
    OutputDevices();
    ~OutputDevices();
    OutputDevices(const OutputDevices&) = delete;
    OutputDevices& operator=(const OutputDevices&) = delete;

    /// Whether virtual time and recording are to be had: only where the platform's
    /// MIDI service is our own.
    static bool CanRecord();
    /// Everything that leaves on an output, as it is sent, on the sending thread.
    void Observe(Observer observer);
    /// Buffers come back at once, and messages carry this time. An empty function
    /// means real time again.
    void UseVirtualTime(std::function<std::chrono::nanoseconds()> time);

    /// Display names, by device index.
    static std::vector<std::string> GetNames();
    /// The device of that index or name, as an index in digits; the first one where
    /// wanted is empty. std::invalid_argument with one line where there is none.
    static std::string Select(const std::string& wanted);
};

}  // namespace player
