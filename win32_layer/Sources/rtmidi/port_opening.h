#pragma once

#include <RtMidi.h>

#include <string>

#include "device_address.h"

namespace win32_layer {

/// RtMidi's word for the address's system.
RtMidi::Api ApiOf(const DeviceAddress& address);

/// Connects RtMidi's client with the port of that address, which has to be of that client's
/// kind and direction. ownName: of the client's end. complaint: where the client's error
/// callback writes. Returns JACK's name of the client's end; empty for ALSA.
///
/// Threads: any. Of JACK's one at a time is served: whose port a new one is can be told
///          only then.
/// Errors:  std::runtime_error with one line.
std::string OpenPort(RtMidi& client, const DeviceAddress& address, const char* ownName, std::string& complaint);

/// The callback that OpenPort() wants; complaint outlives the client.
void WriteErrorsTo(RtMidi& client, std::string& complaint);

}  // namespace win32_layer
