#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace win32_layer {

/// A message that is no longer counts as short; a port keeps room for those.
inline constexpr std::size_t kShortMessageBytes = 4;

/// An output that is open, given no more at once than what lies behind it can hold.
///
/// Owner:   see the port in question.
/// Threads: one.
class MessagePort {
public:
    virtual ~MessagePort() = default;
    /// The longest piece of a message that may be sent at once, in bytes.
    virtual std::size_t GetLongestPiece() const = 0;
    /// False once nothing can be sent any more.
    virtual bool IsConnected() const = 0;
    /// Whether so many bytes can be sent now.
    virtual bool IsReadyFor(std::size_t count) = 0;
    /// Whether what was sent is beyond what closing the port takes back.
    virtual bool HasLeft() const = 0;
    /// A message, or a piece of one. Returns what the system has to say against it.
    virtual std::string Send(const std::uint8_t* bytes, std::size_t count) = 0;
};

}  // namespace win32_layer
