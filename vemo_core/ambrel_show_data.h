#pragma once

#include <set>

#include "vemo_core/groups.h"
#include "vemo_core/show_data.h"
#include "vemo_core/vemo_core_export.h"

namespace ambrel {

/// A show whose tracks are also muted by groups.
class VEMO_CORE_EXPORT AmbrelShowData : public vemo_midi::ShowData {
public:
    void AddGroup(unsigned char number, std::set<unsigned short> trackIds);
    const Groups& GetGroups() const { return groups_; }

private:
    Groups groups_;
};

}  // namespace ambrel
