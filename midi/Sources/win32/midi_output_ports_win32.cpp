#include "midi/win32/midi_output_ports_win32.h"

#include <exception>
#include <utility>

#include "midi/win32/midi_buffer_win32.h"
#include "zell/cout_buffer.h"

namespace {

// Every buffer of a pipeline comes from CreateMidiBuffer.
MidiBufferWin32& PlatformForm(MidiBuffer& buffer) {
    return static_cast<MidiBufferWin32&>(buffer);
}

}  // namespace

MidiOutputPorts* CreateMidiPorts(std::uint8_t portCount) {
    return new MidiOutputPortsWin32(portCount);
}

std::vector<std::shared_ptr<MidiPort>> GetMidiOutputPorts() {
    return {};
}

MidiOutputPortsWin32::MidiOutputPortsWin32(std::uint8_t portCount) {
    for (std::uint8_t port = 0; port < portCount; ++port)
        outputPorts_.push_back(std::make_shared<MidiOutputPortWin32>(port));
}

MidiOutputPortsWin32::~MidiOutputPortsWin32() = default;

void MidiOutputPortsWin32::SendMidiBuffer(MidiBuffer& buffer) {
    for (const auto& port : outputPorts_)
        port->SendMidiBuffer(buffer);
}

void MidiOutputPortsWin32::RegisterMidiBuffer(std::shared_ptr<MidiBuffer> buffer) {
    registeredMidiBuffers_.push_back(std::move(buffer));
}

void MidiOutputPortsWin32::ConnectSynth(WinSynth& synth) {
    for (const auto& port : outputPorts_)
        static_cast<MidiOutputPortWin32&>(*port).SetMidiOutputCallback(
            [&synth](MidiBufferWin32* buffer, std::uint8_t portIndex) { synth.SendDataBuffer(buffer, portIndex); });
    for (const auto& buffer : registeredMidiBuffers_)
        PlatformForm(*buffer).PrepareHeaders(synth.GetStreamHandle());
    synth.Restart();
}

void MidiOutputPortsWin32::DisconnectSynth(WinSynth& synth) {
    synth.Stop();
    const HMIDIOUT handle = synth.GetStreamHandle();
    std::exception_ptr firstError;
    for (const auto& registered : registeredMidiBuffers_) {
        MidiBufferWin32& buffer = PlatformForm(*registered);
        // One header that cannot be unprepared must not leave the others prepared
        // for a stream that is about to close.
        for (const auto step : {&MidiBufferWin32::UnprepareHeaders, &MidiBufferWin32::CleanUpQuarantinedDataBuffers}) {
            try {
                (buffer.*step)(handle);
            } catch (...) {
                if (!firstError)
                    firstError = std::current_exception();
            }
        }
        if (buffer.GetHasQuarantinedDataBuffers())
            zell::CoutBuffer() << "WARNING: " << buffer.GetName() << " has " << buffer.GetQuarantinedDataBufferCount()
                               << " quarantined data buffers after midiStreamStop." << zell::endl;
    }
    if (firstError)
        std::rethrow_exception(firstError);
}

void MidiOutputPortsWin32::CleanUpQuarantinedDataBuffers(HMIDIOUT handle) {
    for (const auto& buffer : registeredMidiBuffers_)
        PlatformForm(*buffer).CleanUpQuarantinedDataBuffers(handle);
}

void MidiOutputPortsWin32::DropQuarantinedDataBuffers(HMIDIOUT closedHandle) {
    for (const auto& buffer : registeredMidiBuffers_)
        PlatformForm(*buffer).DropQuarantinedDataBuffers(closedHandle);
}
