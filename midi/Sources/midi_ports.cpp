#include "midi/midi_ports.h"

#include <algorithm>
#include <iostream>

#include "midi/midi_output_ports.h"

namespace {

bool IsOwnPort(const std::string& displayName) {
    return displayName.starts_with("VEMO") || displayName.starts_with("IAC Driver VEMO");
}

std::vector<MidiEndPoint> EndPoints(const std::vector<std::shared_ptr<MidiPort>>& ports) {
    std::vector<MidiEndPoint> endPoints;
    for (const auto& port : ports) {
        const std::string name = port->GetDisplayName();
        if (!IsOwnPort(name))
            endPoints.emplace_back(port->GetPortIndex(), name);
    }
    return endPoints;
}

bool HasIndex(const std::vector<MidiEndPoint>& endPoints, int index) {
    return std::any_of(endPoints.begin(), endPoints.end(),
                       [index](const MidiEndPoint& endPoint) { return endPoint.GetSourceIndex() == index; });
}

}  // namespace

std::vector<std::string> GetMidiInputPortNames() {
    std::vector<std::string> names;
    for (const auto& port : GetMidiInputPorts())
        names.push_back(port->GetDisplayName());
    return names;
}

std::vector<MidiEndPoint> GetNonVemoMidiSources() {
    return EndPoints(GetMidiInputPorts());
}

std::vector<MidiEndPoint> GetNonVemoMidiDestinations() {
    return EndPoints(GetMidiOutputPorts());
}

bool IsValidNonVemoSourceIndex(int index) {
    return HasIndex(GetNonVemoMidiSources(), index);
}

bool IsValidNonVemoDestinationIndex(int index) {
    return HasIndex(GetNonVemoMidiDestinations(), index);
}

int GetUniqueIdFromIndex(unsigned char index) {
    for (const auto& port : GetMidiInputPorts())
        if (port->GetPortIndex() == index)
            return port->GetUniqueId();
    std::cerr << "Unable to get unique midi id from index.\n";
    return 0;
}

unsigned char GetIndexFromUniqueId(int uniqueId) {
    for (const auto& port : GetMidiInputPorts())
        if (port->GetUniqueId() == uniqueId)
            return port->GetPortIndex();
    std::cerr << "Unable to get index from unique id.\n";
    return 0;
}
