#pragma once

#include <string>

#include "vemo_core/change_log_sequence.h"
#include "vemo_core/click.h"
#include "vemo_core/marker_sequence.h"
#include "vemo_core/tempo_scale.h"
#include "vemo_core/transpose.h"
#include "vemo_core/vemo_core_export.h"

namespace CL {

/// What the performers added to a song: clicks, tempo scales, transpositions
/// and markers, and its number and name. A value.
class VEMO_CORE_EXPORT SongLog {
public:
    SongLog();
    SongLog(int number, std::string name, ChangeLogSequence<Click> clicks, ChangeLogSequence<TempoScale> tempoScales,
            ChangeLogSequence<Transpose> transpositions, MarkerSequence markers);

    const std::string& GetSongNumber() const { return number_; }
    const std::string& GetSongName() const { return name_; }
    const ChangeLogSequence<Click>& GetClicks() const { return clicks_; }
    const ChangeLogSequence<TempoScale>& GetTempoScales() const { return tempoScales_; }
    const ChangeLogSequence<Transpose>& GetTranspositions() const { return transpositions_; }
    const MarkerSequence& GetMarkers() const { return markers_; }

private:
    std::string number_;
    std::string name_;
    ChangeLogSequence<Click> clicks_;
    ChangeLogSequence<TempoScale> tempoScales_;
    ChangeLogSequence<Transpose> transpositions_;
    MarkerSequence markers_;
};

}  // namespace CL
