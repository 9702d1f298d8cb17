#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace player {

/// The MIDI outputs of this machine: where devices come from is the one thing in
/// which the systems differ.
///
/// Threads: the main thread; IsLost() on any.
class OutputDevices {
public:
    using Observer = std::function<void(const std::uint8_t*, std::size_t, std::chrono::nanoseconds)>;
    enum class Kinds {
        kAll,
        kVirtual  // of what this program brings along alone: for playing in virtual time
    };
    enum class Change { kLost, kReturned };
    /// Of an output that is open. On a thread of the devices; must only post.
    using ChangeObserver = std::function<void(std::size_t index, Change change)>;
    /// One line for the operator, on any thread; must only post.
    using Say = std::function<void(const std::string&)>;

    /// Real ones come first, then what this program brings along: a virtual output, where
    /// the platform has none of its own.
    OutputDevices(Kinds kinds, Say say);
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

    /// Hears when an output is unplugged and when it is back, knowing nothing; empty
    /// switches it off, and no call runs any more then.
    void ObserveChanges(ChangeObserver observer);
    /// Whether the device of that index, which keeps its meaning, is unplugged.
    static bool IsLost(std::size_t index);

    /// Display names in UTF-8, by device index.
    static std::vector<std::string> GetNames();
    /// All that the platform tells of them, in lines for the operator.
    static std::string Describe();
    /// The device of that index or name, as an index in digits; std::invalid_argument with
    /// one line where there is none.
    static std::string Select(const std::string& wanted);
    /// The same for the device that is taken where nobody names one: the first real one
    /// that an instrument may be behind, which is said; else the virtual one.
    std::string SelectDefault() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace player
