#include "midi/midi_end_point.h"

#include <utility>

MidiEndPoint::MidiEndPoint() = default;
MidiEndPoint::MidiEndPoint(std::int32_t sourceIndex, std::string sourceName)
    : sourceIndex_(sourceIndex), sourceName_(std::move(sourceName)) {}
MidiEndPoint::MidiEndPoint(const MidiEndPoint&) = default;
MidiEndPoint::MidiEndPoint(MidiEndPoint&&) noexcept = default;
MidiEndPoint& MidiEndPoint::operator=(const MidiEndPoint&) = default;
MidiEndPoint& MidiEndPoint::operator=(MidiEndPoint&&) noexcept = default;
MidiEndPoint::~MidiEndPoint() = default;
