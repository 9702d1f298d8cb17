#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "player/time_code_reader.h"

namespace player {

/// Prints the time code that it is fed to standard output, as an operator wants to watch
/// it: a line a second, and one for everything out of the ordinary.
///
/// Owner:   whoever reads; a value.
/// Threads: one at a time.
class TimeCodePrinter {
public:
    TimeCodePrinter();
    TimeCodePrinter(const TimeCodePrinter&) = delete;
    TimeCodePrinter& operator=(const TimeCodePrinter&) = delete;

    /// One message with the seconds at which it came.
    void Take(const std::uint8_t* bytes, std::size_t count, double seconds);
    /// Returns whether there was any time code.
    bool PrintSummary() const;

private:
    void Print(const TimeCodeReader::Event& event);

    TimeCodeReader reader_;
    std::string shown_;  // the latest label
};

}  // namespace player
