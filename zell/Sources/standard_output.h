#pragma once

#include <string_view>

namespace zell {

/// Writes past the language's streams: a thread stuck in one of those holds a
/// lock that ending the process waits for. Blocks as long as the reader of
/// standard output does; a reader that has gone is no error and no signal. For
/// the console's writer thread only.
void WriteToStandardOutput(std::string_view text) noexcept;

}  // namespace zell
