#include "player/midi_input.h"

#include <windows.h>
// mmsystem.h needs windows.h before it.
#include <mmsystem.h>

#include <array>
#include <atomic>
#include <exception>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "player/device_choice.h"
#include "player/device_name.h"
#include "player/display_text.h"
#include "vemo_core/exception_log.h"
#include "zell/format.h"

namespace player {

namespace {

constexpr char kSource[] = "player/Sources/midi_input";
constexpr std::uint8_t kSysExStart = 0xF0;
constexpr std::uint8_t kSysExEnd = 0xF7;
// While one is being read, the device fills the others.
constexpr std::size_t kBuffers = 8;
constexpr std::size_t kBufferBytes = 1024;

/// Of a status byte that begins a short message, with the status byte.
std::size_t LengthOf(std::uint8_t status) {
    switch (status & 0xF0) {
        case 0xC0:
        case 0xD0: return 2;
        case 0xF0: return status == 0xF2 ? 3 : status == 0xF1 || status == 0xF3 ? 2 : 1;
        default: return 3;
    }
}

std::string Quoted(const std::vector<std::string>& names, unsigned int device) {
    return device < names.size() ? "'" + DisplayText(names[device]) + "'" : std::to_string(device);
}

}  // namespace

/// The device and what its callback uses.
class MidiInput::Device {
public:
    Device(unsigned int device, Receiver receiver) : receiver_(std::move(receiver)) {
        Check(midiInOpen(&handle_, device, reinterpret_cast<DWORD_PTR>(&Device::OnMessage),
                         reinterpret_cast<DWORD_PTR>(this), CALLBACK_FUNCTION),
              device);
        try {
            for (Buffer& buffer : buffers_) {
                buffer.header.lpData = buffer.bytes.data();
                buffer.header.dwBufferLength = static_cast<DWORD>(buffer.bytes.size());
                Check(midiInPrepareHeader(handle_, &buffer.header, sizeof(MIDIHDR)), device);
                Check(midiInAddBuffer(handle_, &buffer.header, sizeof(MIDIHDR)), device);
            }
            Check(midiInStart(handle_), device);
        } catch (...) {
            Close();
            throw;
        }
    }
    ~Device() { Close(); }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    std::uint64_t GetDiscarded() const {
        const std::lock_guard lock(mutex_);
        return discarded_;
    }
    std::uint64_t GetLosses() const { return losses_; }

private:
    struct Buffer {
        MIDIHDR header{};
        std::array<char, kBufferBytes> bytes{};
    };

    static void Check(MMRESULT result, unsigned int device) {
        if (result == MMSYSERR_NOERROR)
            return;
        throw std::runtime_error(
            result == MMSYSERR_ALLOCATED || IsLost(device)
                ? DescribeRefusal(device)
                : zell::format("MIDI input %s cannot be opened: error %d", Quoted(GetNames(), device), result));
    }

    void Close() {
        {
            const std::lock_guard lock(mutex_);
            isClosing_ = true;
        }
        midiInReset(handle_);
        for (Buffer& buffer : buffers_)
            midiInUnprepareHeader(handle_, &buffer.header, sizeof(MIDIHDR));
        midiInClose(handle_);
    }

    static void CALLBACK OnMessage(HMIDIIN, UINT message, DWORD_PTR instance, DWORD_PTR parameter, DWORD_PTR time) {
        auto& device = *reinterpret_cast<Device*>(instance);
        try {
            const double seconds = static_cast<double>(static_cast<DWORD>(time)) / 1e3;
            switch (message) {
                case MIM_DATA: device.TakeShort(static_cast<DWORD>(parameter), seconds); break;
                case MIM_ERROR: ++device.losses_; break;
                case MIM_LONGDATA:
                case MIM_LONGERROR:
                    device.TakeBuffer(*reinterpret_cast<MIDIHDR*>(parameter), message == MIM_LONGERROR, seconds);
                    break;
                default: break;
            }
        } catch (const std::exception& error) {
            VemoLogException(error.what(), kSource, __LINE__);
        } catch (...) {
            VemoLogException("Unknown exception.", kSource, __LINE__);
        }
    }

    void TakeShort(DWORD packed, double seconds) {
        const std::array<std::uint8_t, 3> bytes = {static_cast<std::uint8_t>(packed),
                                                   static_cast<std::uint8_t>(packed >> 8),
                                                   static_cast<std::uint8_t>(packed >> 16)};
        receiver_(bytes.data(), LengthOf(bytes[0]), seconds);
    }

    // On the callback's thread, which alone knows message_.
    void TakeBuffer(MIDIHDR& header, bool isBroken, double seconds) {
        bool isWhole = false;
        for (DWORD i = 0; i < header.dwBytesRecorded; ++i) {
            const auto byte = static_cast<std::uint8_t>(header.lpData[i]);
            if (byte == kSysExStart) {
                DiscardIf(!message_.empty());
                message_.assign(1, byte);
                isTooLong_ = false;
            } else if (!message_.empty()) {
                isTooLong_ = isTooLong_ || message_.size() >= kLongestMessage;
                if (!isTooLong_)
                    message_.push_back(byte);
                isWhole = byte == kSysExEnd;
            }
        }
        std::vector<std::uint8_t> whole;
        if (isBroken || isWhole) {
            whole.swap(message_);
            DiscardIf(isBroken || isTooLong_);
        }
        {
            const std::lock_guard lock(mutex_);
            if (!isClosing_) {
                header.dwBytesRecorded = 0;
                midiInAddBuffer(handle_, &header, sizeof(MIDIHDR));
            }
        }
        if (isWhole && !isBroken && !isTooLong_)
            receiver_(whole.data(), whole.size(), seconds);
    }

    void DiscardIf(bool discarded) {
        const std::lock_guard lock(mutex_);
        discarded_ += discarded ? 1 : 0;
    }

    const Receiver receiver_;
    std::atomic<std::uint64_t> losses_{0};
    HMIDIIN handle_ = nullptr;
    std::array<Buffer, kBuffers> buffers_;
    std::vector<std::uint8_t> message_;  // begun, not ended
    bool isTooLong_ = false;             // the message that was begun

    mutable std::mutex mutex_;
    // Guarded by mutex_.
    bool isClosing_ = false;  // buffers that come back stay back
    std::uint64_t discarded_ = 0;
};

MidiInput::MidiInput(unsigned int device, Receiver receiver)
    : device_(std::make_unique<Device>(device, std::move(receiver))) {}

MidiInput::~MidiInput() = default;

std::uint64_t MidiInput::GetDiscarded() const {
    return device_->GetDiscarded();
}

std::uint64_t MidiInput::GetLosses() const {
    return device_->GetLosses();
}

std::vector<std::string> MidiInput::GetNames() {
    std::vector<std::string> names;
    for (UINT index = 0; index < midiInGetNumDevs(); ++index) {
        MIDIINCAPSW capabilities = {};
        const bool valid = midiInGetDevCapsW(index, &capabilities, sizeof(capabilities)) == MMSYSERR_NOERROR;
        names.push_back(valid ? DeviceName({capabilities.szPname, std::size(capabilities.szPname)})
                              : "Not a valid input device.");
    }
    return names;
}

unsigned int MidiInput::Select(const std::string& wanted) {
    return static_cast<unsigned int>(ChooseDevice("input", wanted, GetNames(), IsLost));
}

std::optional<unsigned int> MidiInput::Find(const std::string& name) {
    const std::vector<std::string> names = GetNames();
    for (unsigned int device = 0; device < names.size(); ++device)
        if (names[device] == name && !IsLost(device))
            return device;
    return std::nullopt;
}

std::string MidiInput::DescribeRefusal(unsigned int device) {
    const std::vector<std::string> names = GetNames();
    const bool isThere = device < names.size() && !IsLost(device);
    return "MIDI input " + Quoted(names, device) +
           (isThere ? " is in use by another, or refuses to be opened" : " is not there now");
}

}  // namespace player
