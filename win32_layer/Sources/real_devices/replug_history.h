#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace win32_layer {

/// Tells which of ALSA's devices have been unplugged and plugged in again since the last
/// look: the kernel gives such a device its old number, but drops its connections, and what
/// is sent to it is heard by nobody.
///
/// Owner:   ALSA's finder, by value.
/// Threads: one.
/// Errors:  none: a device whose node cannot be seen counts as having stayed.
class ReplugHistory {
public:
    /// What stays the same for as long as that sound card is plugged in, and is another
    /// number after that; empty where there is none.
    using NodeOf = std::function<std::optional<std::uint64_t>(unsigned int card)>;

    explicit ReplugHistory(NodeOf nodeOf) : nodeOf_(std::move(nodeOf)) {}

    /// names: all that this look has found, as RtMidi has them, taken before this call.
    /// Returns those that the look before has found too, on another node.
    std::vector<std::string> TakeReplugged(const std::vector<std::string>& names);

    /// Of the control node /dev/snd/controlC: a device that is plugged in gets a new one, and
    /// who is given access to it does not change that.
    static std::optional<std::uint64_t> InodeOfControl(unsigned int card);

private:
    const NodeOf nodeOf_;
    std::map<std::string, std::uint64_t> nodes_;  // of the last look's names
};

}  // namespace win32_layer
