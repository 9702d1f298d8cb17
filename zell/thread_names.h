#pragma once

#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "zell/zell_export.h"

namespace zell {

/// The names of the process's threads, for logs and debuggers.
///
/// Threads: any.  Lock: mutex_, a leaf.
class ZELL_EXPORT ThreadNames {
public:
    ThreadNames();
    ~ThreadNames();
    /// Also tells the system, as far as it takes the name (15 characters on some).
    void SetNameOfCurrentThread(const std::string& name) noexcept;
    /// Empty for a thread that has no name. The name of an ended thread stays
    /// until its id is used again.
    std::string GetNameOfCurrentThread() const;
    std::string GetName(std::thread::id id) const;

private:
    mutable std::mutex mutex_;
    std::map<std::thread::id, std::string> names_;
};

/// Never destroyed: engine threads may name themselves while the process ends.
ZELL_EXPORT extern ThreadNames& threadNames;

}  // namespace zell
