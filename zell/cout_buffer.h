#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

#include "zell/zell_export.h"

namespace zell {

struct EndLine {};
/// Streamed into a CoutBuffer, ends a line.
inline constexpr EndLine endl{};

/// Collects one console message and hands it to the console sink in one piece
/// when it is destroyed, so that lines of different threads never mix. Takes
/// everything an ostream takes, manipulators included.
///
/// Owner:   a temporary or a local of the thread that reports.
/// Threads: each object belongs to one thread; any number of objects at once.
///          Never blocks: the default sink hands the text to a writer thread and
///          drops it where standard output has been stuck for long.
/// Errors:  none leave it.
class ZELL_EXPORT CoutBuffer {
public:
    CoutBuffer() noexcept;
    ~CoutBuffer();
    CoutBuffer(const CoutBuffer&) = delete;
    CoutBuffer& operator=(const CoutBuffer&) = delete;

    template <class T>
    CoutBuffer& operator<<(const T& value) noexcept {
        try {
            text_ << value;
        } catch (...) {  // a message that cannot be built is no reason to stop the music
        }
        return *this;
    }
    /// Bytes are numbers here, never characters.
    CoutBuffer& operator<<(unsigned char byte) noexcept { return *this << static_cast<unsigned int>(byte); }
    CoutBuffer& operator<<(signed char byte) noexcept { return *this << static_cast<int>(byte); }
    CoutBuffer& operator<<(EndLine) noexcept { return *this << '\n'; }
    CoutBuffer& operator<<(std::ostream& (*manipulator)(std::ostream&)) noexcept;
    CoutBuffer& operator<<(std::ios_base& (*manipulator)(std::ios_base&)) noexcept;

    /// The stream behind the message, for WriteString and its like.
    std::ostream& Stream() noexcept { return text_; }

    using Sink = std::function<void(const std::string& text)>;
    /// Replaces the console for the whole process and returns the sink before,
    /// which by then runs on no other thread; an empty one means standard
    /// output. The sink runs on the reporting thread, on several at once, with
    /// no lock held, and must not block.
    static Sink SetSink(Sink sink);
    /// Waits, no longer than so, until standard output has taken everything
    /// reported so far; false when it has not. The end of the process waits a
    /// second of itself.
    static bool Flush(std::chrono::milliseconds patience);
    /// Messages dropped since the process began because standard output was stuck.
    static std::uint64_t GetDroppedCount();

private:
    std::ostringstream text_;
};

}  // namespace zell
