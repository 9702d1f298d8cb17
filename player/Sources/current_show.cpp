#include "player/current_show.h"

#include <utility>

namespace player {

void CurrentShow::Set(std::shared_ptr<const Show> show) {
    std::lock_guard lock(mutex_);
    show_ = std::move(show);
}

std::shared_ptr<const Show> CurrentShow::Get() const {
    std::lock_guard lock(mutex_);
    return show_;
}

std::shared_ptr<const ImportedSong> CurrentShow::GetSong(unsigned int number) const {
    const auto show = Get();
    if (!show || number == 0 || number > show->GetSongs().size())
        return nullptr;
    return show->GetSongs()[number - 1].song;
}

}  // namespace player
