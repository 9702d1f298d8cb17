#include "midi/how_to_play_error_no_advance.h"
#include "midi/how_to_play_exception.h"
#include "midi/invalid_frame_count.h"
#include "midi/invalid_hour_count.h"
#include "midi/invalid_minute_count.h"
#include "midi/invalid_second_count.h"
#include "midi/invalid_voice_event.h"
#include "midi/midi_device_unavailable.h"
#include "midi/midi_implementation_error.h"
#include "midi/midi_port_error.h"
#include "midi/midi_time_code_error.h"
#include "midi/midi_time_code_frame_rate_error.h"
#include "midi/quarter_frame_index_error.h"
#include "midi/sforzando_error.h"
#include "midi/vemo_midi_error.h"

// The destructors are out of line so that each class has one home for its type
// information: an exception thrown here is caught by its type in every library.

VemoMidiError::VemoMidiError(const std::string& message) : std::runtime_error(message) {}
VemoMidiError::~VemoMidiError() = default;

MidiImplementationError::MidiImplementationError(const std::string& message) : VemoMidiError(message) {}
MidiImplementationError::~MidiImplementationError() = default;

MidiDeviceUnavailable::MidiDeviceUnavailable(const std::string& message) : MidiImplementationError(message) {}
MidiDeviceUnavailable::~MidiDeviceUnavailable() = default;

SforzandoError::SforzandoError(const std::string& message) : MidiImplementationError(message) {}
SforzandoError::~SforzandoError() = default;

InvalidVoiceEvent::InvalidVoiceEvent(const std::string& message) : VemoMidiError(message) {}
InvalidVoiceEvent::~InvalidVoiceEvent() = default;

MidiPortError::MidiPortError(const std::string& message) : VemoMidiError(message) {}
MidiPortError::~MidiPortError() = default;

MidiTimeCodeError::MidiTimeCodeError(const std::string& message) : VemoMidiError(message) {}
MidiTimeCodeError::~MidiTimeCodeError() = default;

InvalidFrameCount::InvalidFrameCount(const std::string& message) : MidiTimeCodeError(message) {}
InvalidFrameCount::~InvalidFrameCount() = default;

InvalidSecondCount::InvalidSecondCount(const std::string& message) : MidiTimeCodeError(message) {}
InvalidSecondCount::~InvalidSecondCount() = default;

InvalidMinuteCount::InvalidMinuteCount(const std::string& message) : MidiTimeCodeError(message) {}
InvalidMinuteCount::~InvalidMinuteCount() = default;

InvalidHourCount::InvalidHourCount(const std::string& message) : MidiTimeCodeError(message) {}
InvalidHourCount::~InvalidHourCount() = default;

MidiTimeCodeFrameRateError::MidiTimeCodeFrameRateError(const std::string& message) : MidiTimeCodeError(message) {}
MidiTimeCodeFrameRateError::~MidiTimeCodeFrameRateError() = default;

QuarterFrameIndexError::QuarterFrameIndexError(const std::string& message) : MidiTimeCodeError(message) {}
QuarterFrameIndexError::~QuarterFrameIndexError() = default;

HowToPlayException::HowToPlayException(const std::string& message) : std::runtime_error(message) {}
HowToPlayException::~HowToPlayException() = default;

HowToPlayErrorNoAdvance::HowToPlayErrorNoAdvance(const std::string& message) : HowToPlayException(message) {}
HowToPlayErrorNoAdvance::~HowToPlayErrorNoAdvance() = default;
