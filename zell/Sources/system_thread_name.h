#pragma once

#include <string>

namespace zell {

/// Tells debuggers and the system's tools the name of the calling thread, cut
/// to what the system takes; where it takes none, nothing happens.
void SetSystemNameOfCurrentThread(const std::string& name);

}  // namespace zell
