#include "vemo_core/ambrel_show_data.h"

#include <utility>

namespace ambrel {

void AmbrelShowData::AddGroup(unsigned char number, std::set<unsigned short> trackIds) {
    groups_.SetGroup(number, std::move(trackIds));
}

}  // namespace ambrel
