#include "vemo_core/song_log.h"

#include <utility>

namespace CL {

SongLog::SongLog() = default;

SongLog::SongLog(int number, std::string name, ChangeLogSequence<Click> clicks,
                 ChangeLogSequence<TempoScale> tempoScales, ChangeLogSequence<Transpose> transpositions,
                 MarkerSequence markers)
    : number_(std::to_string(number)),
      name_(std::move(name)),
      clicks_(std::move(clicks)),
      tempoScales_(std::move(tempoScales)),
      transpositions_(std::move(transpositions)),
      markers_(std::move(markers)) {}

}  // namespace CL
