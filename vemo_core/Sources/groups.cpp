#include "vemo_core/groups.h"

#include <utility>

namespace ambrel {

void Groups::SetGroup(unsigned char number, std::set<unsigned short> trackIds) {
    groups_[number] = std::move(trackIds);
}

const std::set<unsigned short>& Groups::GetGroup(unsigned char number) const {
    static const std::set<unsigned short> kNoTracks;
    const auto found = groups_.find(number);
    return found == groups_.end() ? kNoTracks : found->second;
}

}  // namespace ambrel
