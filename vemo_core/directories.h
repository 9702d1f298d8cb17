#pragma once

#include <mutex>
#include <string>

#include "vemo_core/vemo_core_export.h"

/// Where the show's files lie. The host sets it before it builds the engine.
///
/// Threads: any.  Lock: mutex_, a leaf.
class VEMO_CORE_EXPORT Directories {
public:
    Directories();
    ~Directories();
    void SetShowDirectory(const std::string& folder);
    /// "." until set.
    std::string GetShowDirectory() const;

private:
    mutable std::mutex mutex_;
    std::string showDirectory_;
};

/// Never destroyed: what is written while the process ends is written there too.
VEMO_CORE_EXPORT extern Directories& directories;
