#include "midi/win32/win_synth.h"

#include <stdexcept>
#include <string>

#include "midi/Sources/win32/midi_call.h"
#include "midi/midi_device_unavailable.h"
#include "midi/win32/data_buffer.h"
#include "midi/win32/device_diagnostics.h"
#include "zell/cout_buffer.h"

namespace {

constexpr char kSource[] = "midi/Sources/win32/win_synth";

[[noreturn]] void ThrowContractBroken(const char* report, const char* message) {
    zell::CoutBuffer() << report << zell::endl;
    throw std::logic_error(message);
}

}  // namespace

WinSynth::WinSynth(UINT deviceIndex) {
    UINT device = deviceIndex;
    const MMRESULT result = midiStreamOpen(&streamHandle_, &device, 1, reinterpret_cast<DWORD_PTR>(&StreamCallback),
                                           reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION);
    if (result != MMSYSERR_NOERROR)
        throw MidiDeviceUnavailable("CreateSynthOutput() error " + std::to_string(result) + ", " +
                                    GetMidiOutErrorText(result) + "\n" + CreateMidiDeviceSummary());
}

WinSynth::~WinSynth() {
    midiStreamClose(streamHandle_);
}

void WinSynth::SendDataBuffer(MidiBufferWin32* buffer, std::uint8_t portIndex) {
    DataBuffer& data = buffer->GetDataBuffer(portIndex);
    buffer->PrepareReplacement(portIndex, GetStreamHandle());
    if (!data.GetHeaderIsPrepared())
        ThrowContractBroken("Header is not prepared.", "Header is not prepared.");
    if (data.GetPreparedOutputHandle() != GetStreamHandle())
        ThrowContractBroken("Prepared output handle does not match.", "mismatched output handles.");
    if (data.GetEventCount() == 0)
        return;
    data.SetInUse();
    MIDIHDR& header = data.GetMidiHeader();
    const int line = __LINE__ + 1;
    const MMRESULT result = midiStreamOut(streamHandle_, &header, sizeof(header));
    if (result != MMSYSERR_NOERROR) {
        // The stream has not taken it: the next clock sends the same buffer again.
        data.SignalMidiStreamOutDone();
        ThrowMidiCallFailed(kSource, line, "calling midiStreamOut", result, GetMidiOutErrorText(result));
    }
    if (data.WaitForMidiStreamOutDone(3))
        return;
    zell::CoutBuffer() << "midiStreamOutDone_ timed out "
                       << "without receiving a mom done message. "
                       << "Buffer " << data.GetBufferName() << " will be quarantined." << zell::endl;
    buffer->QuarantineDataBuffer(portIndex, GetStreamHandle());
}

void WinSynth::Restart() {
    const int line = __LINE__ + 1;
    const MMRESULT result = midiStreamRestart(streamHandle_);
    if (result != MMSYSERR_NOERROR)
        ThrowMidiCallFailed(kSource, line, "calling midiStreamRestart", result, GetMidiErrorAsString(result));
}

void WinSynth::Stop() {
    midiStreamStop(streamHandle_);
}

void CALLBACK WinSynth::StreamCallback(HMIDIOUT, UINT message, DWORD_PTR, DWORD_PTR parameter1, DWORD_PTR) {
    const auto* header = reinterpret_cast<const MIDIHDR*>(parameter1);
    if (message == MOM_DONE && header != nullptr)
        reinterpret_cast<DataBuffer*>(header->dwUser)->SignalMidiStreamOutDone();
}
