#pragma once

#include <memory>
#include <mutex>

#include "player/show.h"

namespace player {

/// The show that is on, for those who look up what a record speaks of.
///
/// Owner:   the program.
/// Threads: any. Lock: mutex_, a leaf.
class CurrentShow {
public:
    void Set(std::shared_ptr<const Show> show);
    std::shared_ptr<const Show> Get() const;
    /// Null for a number that the show does not have. number from 1.
    std::shared_ptr<const ImportedSong> GetSong(unsigned int number) const;

private:
    mutable std::mutex mutex_;
    std::shared_ptr<const Show> show_;  // guarded by mutex_
};

}  // namespace player
