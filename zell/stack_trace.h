#pragma once

#include "zell/zell_export.h"

namespace zell {

/// Prints the caller's stack to the console, the caller first and depth frames at
/// the most; a depth below 1 prints nothing.
///
/// Threads: any.
ZELL_EXPORT void PrintStackTrace(int depth);

}  // namespace zell
