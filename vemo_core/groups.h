#pragma once

#include <map>
#include <set>

#include "vemo_core/vemo_core_export.h"

namespace ambrel {

/// Groups of tracks that are muted together.
class VEMO_CORE_EXPORT Groups {
public:
    void SetGroup(unsigned char number, std::set<unsigned short> trackIds);
    /// The group's track ids; empty where there is no such group.
    const std::set<unsigned short>& GetGroup(unsigned char number) const;

private:
    std::map<unsigned char, std::set<unsigned short>> groups_;
};

}  // namespace ambrel
