#include "midi_inputs.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "faults.h"
#include "header_preparation.h"
#include "layer_clock.h"

namespace win32_layer {

namespace {

constexpr DWORD_PTR kHandleStep = 16;
constexpr std::uint8_t kSysExStart = 0xF0;
constexpr std::uint8_t kSysExEnd = 0xF7;
constexpr std::size_t kShortMessageBytes = 3;
// What may wait for a program: about a minute of everything that a cable carries.
constexpr std::size_t kMostWaitingBytes = 256 * 1024;

}  // namespace

MidiInputs& MidiInputs::Instance() {
    static MidiInputs* const instance = new MidiInputs;
    return *instance;
}

MMRESULT MidiInputs::Open(HMIDIIN& handle, UINT device, Callback callback, DWORD_PTR instance) {
    auto input = std::make_shared<Input>();
    input->callback = callback;
    input->instance = instance;
    input->place = InputDevices::Instance().GetPlaces().At(device);
    if (!input->place)
        return MMSYSERR_BADDEVICEID;
    const auto plugIn = [this, weak = std::weak_ptr(input)]() -> MidiInputDevice::Sink {
        if (const auto open = weak.lock()) {
            const std::lock_guard lock(mutex_);
            open->hasGap = true;
        }
        return [this, weak](const std::uint8_t* bytes, std::size_t count) {
            if (const auto open = weak.lock())
                Arrive(*open, bytes, count);
        };
    };
    if (const MMRESULT result = InputDevices::Instance().Open(*input->place, plugIn))
        return result;
    try {
        const std::lock_guard lock(mutex_);
        input->thread = std::thread([this, input] { Run(input); });
        lastHandle_ += kHandleStep;
        input->handle = reinterpret_cast<HMIDIIN>(lastHandle_);
        inputs_.emplace(input->handle, input);
        ++totals_.openInputs;
    } catch (const std::system_error&) {  // no thread left
        InputDevices::Instance().Close(*input->place);
        return MMSYSERR_NOMEM;
    }
    handle = input->handle;
    if (callback)
        callback(handle, MIM_OPEN, instance, 0, 0);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiInputs::Close(HMIDIIN handle) {
    Lock lock(mutex_);
    const auto input = Find(handle);
    if (!input)
        return MMSYSERR_INVALHANDLE;
    if (input->filling || !input->buffers.IsEmpty() || !input->returning.IsEmpty())
        return MIDIERR_STILLPLAYING;
    inputs_.erase(handle);
    --totals_.openInputs;
    Drop(*input);
    input->finish = true;
    input->changed.notify_all();
    WaitForCallback(*input, lock);
    lock.unlock();

    InputDevices::Instance().Close(*input->place);
    if (input->thread.get_id() == std::this_thread::get_id())
        input->thread.detach();
    else
        input->thread.join();
    if (input->callback)
        input->callback(handle, MIM_CLOSE, input->instance, 0, 0);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiInputs::Start(HMIDIIN handle) {
    const std::chrono::nanoseconds now = LayerClock::Instance().Now();
    const std::lock_guard lock(mutex_);
    const auto input = Find(handle);
    if (!input)
        return MMSYSERR_INVALHANDLE;
    if (std::exchange(input->isStarted, true))
        return MMSYSERR_NOERROR;
    ++input->start;
    input->startTime = now;
    input->hasGap = true;
    return MMSYSERR_NOERROR;
}

MMRESULT MidiInputs::Stop(HMIDIIN handle) {
    const std::chrono::nanoseconds now = LayerClock::Instance().Now();
    Lock lock(mutex_);
    const auto input = Find(handle);
    if (!input)
        return MMSYSERR_INVALHANDLE;
    Drop(*input);
    if (!input->filling)
        return MMSYSERR_NOERROR;
    WaitForCallback(*input, lock);
    ReturnFilling(*input, MIM_LONGDATA, TimeOf(*input, now), lock);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiInputs::Reset(HMIDIIN handle) {
    const std::chrono::nanoseconds now = LayerClock::Instance().Now();
    Lock lock(mutex_);
    const auto input = Find(handle);
    if (!input)
        return MMSYSERR_INVALHANDLE;
    Drop(*input);
    WaitForCallback(*input, lock);
    Drop(*input);  // should that callback have started it again
    const DWORD time = TimeOf(*input, now);
    // Set aside first: a callback may hand in a buffer again, which then stays.
    if (input->filling)
        input->returning.Push(std::exchange(input->filling, nullptr));
    input->returning.Take(input->buffers);
    while (const LPMIDIHDR header = input->returning.Pop())
        GiveBack(*input, header, MIM_LONGDATA, time, lock);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiInputs::Prepare(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes) {
    const std::lock_guard lock(mutex_);
    if (!Find(handle))
        return MMSYSERR_INVALHANDLE;
    if (header && headerBytes >= sizeof(MIDIHDR) && (!header->lpData || header->dwBufferLength == 0))
        return MMSYSERR_INVALPARAM;
    return PrepareHeader(header, headerBytes, totals_.preparedHeaders);
}

MMRESULT MidiInputs::Unprepare(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes) {
    const std::lock_guard lock(mutex_);
    if (!Find(handle))
        return MMSYSERR_INVALHANDLE;
    return UnprepareHeader(header, headerBytes, totals_.preparedHeaders);
}

MMRESULT MidiInputs::AddBuffer(HMIDIIN handle, LPMIDIHDR header, UINT headerBytes) {
    const std::lock_guard lock(mutex_);
    const auto input = Find(handle);
    if (!input)
        return MMSYSERR_INVALHANDLE;
    if (!header || headerBytes < sizeof(MIDIHDR))
        return MMSYSERR_INVALPARAM;
    if (!(header->dwFlags & MHDR_PREPARED))
        return MIDIERR_UNPREPARED;
    if (header->dwFlags & MHDR_INQUEUE)
        return MIDIERR_STILLPLAYING;
    header->dwFlags = (header->dwFlags | MHDR_INQUEUE) & ~DWORD{MHDR_DONE};
    header->dwBytesRecorded = 0;
    ++totals_.queuedHeaders;
    input->buffers.Push(header);
    return MMSYSERR_NOERROR;
}

std::shared_ptr<InputDevices::Place> MidiInputs::GetPlace(HMIDIIN handle) const {
    const std::lock_guard lock(mutex_);
    const auto input = Find(handle);
    return input ? input->place : nullptr;
}

void MidiInputs::Reset() {
    const std::lock_guard lock(mutex_);
    if (inputs_.empty())
        totals_ = {};
}

MidiInputs::Totals MidiInputs::GetTotals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
}

std::shared_ptr<MidiInputs::Input> MidiInputs::Find(HMIDIIN handle) const {
    const auto found = inputs_.find(handle);
    return found == inputs_.end() ? nullptr : found->second;
}

// ---- what comes in

void MidiInputs::Arrive(Input& input, const std::uint8_t* bytes, std::size_t count) {
    const std::chrono::nanoseconds now = LayerClock::Instance().Now();
    const std::lock_guard lock(mutex_);
    if (!input.isStarted)
        return;
    if (input.arrivedBytes + count > kMostWaitingBytes) {
        KeepLoss(input, bytes, count, TimeOf(input, now));
    } else {
        input.arrivals.push_back({{bytes, bytes + count}, TimeOf(input, now), std::exchange(input.hasGap, false), {}});
        input.arrivedBytes += count;
    }
    input.changed.notify_all();
}

void MidiInputs::KeepLoss(Input& input, const std::uint8_t* bytes, std::size_t count, DWORD time) {
    // One for all that are dropped in a row: what waits stays bounded.
    if (input.arrivals.empty() || !input.arrivals.back().loss)
        input.arrivals.push_back({{}, time, true, Loss{}});
    Loss& loss = *input.arrivals.back().loss;
    const auto isSysEx = [](std::uint8_t byte) { return byte == kSysExStart || byte == kSysExEnd; };
    if (std::any_of(bytes, bytes + count, isSysEx)) {
        loss.hasSysEx = true;
    } else if (!loss.shortMessage) {
        loss.shortMessage = 0;
        for (std::size_t i = 0; i < std::min(count, kShortMessageBytes); ++i)
            *loss.shortMessage |= DWORD{bytes[i]} << 8 * i;
    }
}

void MidiInputs::Drop(Input& input) {
    input.isStarted = false;
    input.arrivals.clear();
    input.arrivedBytes = 0;
}

void MidiInputs::Run(const std::shared_ptr<Input>& input) {
    Lock lock(mutex_);
    for (;;) {
        input->changed.wait(lock, [&] { return input->finish || !input->arrivals.empty(); });
        if (input->finish)
            return;
        const Arrival arrival = std::move(input->arrivals.front());
        input->arrivals.pop_front();
        input->arrivedBytes -= arrival.bytes.size();
        Parse(*input, arrival, lock);
    }
}

void MidiInputs::Parse(Input& input, const Arrival& arrival, Lock& lock) {
    using Kind = MidiByteParser::Kind;
    const std::uint64_t start = input.start;
    const DWORD time = arrival.time;
    if (arrival.isBehindGap) {
        input.parser = {};
        input.discardsSysEx = false;
        if (!AwaitTurn(input, start, lock))
            return;
        // What has been begun stands for what was dropped.
        if (arrival.loss && arrival.loss->hasSysEx && !input.filling)
            input.filling = input.buffers.Pop();
        ReturnFilling(input, MIM_LONGERROR, time, lock);
        if (arrival.loss && arrival.loss->shortMessage && AwaitTurn(input, start, lock))
            Call(input, MIM_ERROR, *arrival.loss->shortMessage, time, lock);
    }
    for (const std::uint8_t byte : arrival.bytes) {
        if (!AwaitTurn(input, start, lock))
            return;
        const Kind kind = input.parser.Take(byte);
        switch (kind) {
            case Kind::kNothing:
            case Kind::kShort: break;
            case Kind::kSysExByte: TakeSysExByte(input, byte, time, lock); break;
            case Kind::kSysExEnd:
                TakeSysExByte(input, byte, time, lock);
                ReturnFilling(input, MIM_LONGDATA, time, lock);
                break;
            case Kind::kSysExBroken:
                ReturnFilling(input, MIM_LONGERROR, time, lock);
                if (!AwaitTurn(input, start, lock))
                    return;
                if (byte == kSysExStart)
                    TakeSysExByte(input, byte, time, lock);
                break;
        }
        const auto message = input.parser.GetMessage();
        if (message[0] != 0 && (kind == Kind::kShort || kind == Kind::kSysExBroken))
            Call(input, MIM_DATA, message[0] | DWORD_PTR{message[1]} << 8 | DWORD_PTR{message[2]} << 16, time, lock);
    }
}

void MidiInputs::TakeSysExByte(Input& input, std::uint8_t byte, DWORD time, Lock& lock) {
    if (byte == kSysExStart)
        input.discardsSysEx = false;
    if (!input.filling && !input.discardsSysEx) {
        input.filling = input.buffers.Pop();
        // Without a buffer the rest is lost as well: half a message is worse than none.
        input.discardsSysEx = !input.filling;
    }
    if (!input.filling)
        return;
    input.filling->lpData[input.filling->dwBytesRecorded++] = static_cast<char>(byte);
    if (input.filling->dwBytesRecorded == input.filling->dwBufferLength)
        ReturnFilling(input, MIM_LONGDATA, time, lock);
}

void MidiInputs::ReturnFilling(Input& input, UINT message, DWORD time, Lock& lock) {
    if (const LPMIDIHDR header = std::exchange(input.filling, nullptr))
        GiveBack(input, header, message, time, lock);
}

void MidiInputs::GiveBack(Input& input, LPMIDIHDR header, UINT message, DWORD time, Lock& lock) {
    header->dwFlags = (header->dwFlags | MHDR_DONE) & ~DWORD{MHDR_INQUEUE};
    --totals_.queuedHeaders;
    Call(input, message, reinterpret_cast<DWORD_PTR>(header), time, lock);
}

void MidiInputs::Call(Input& input, UINT message, DWORD_PTR parameter, DWORD time, Lock& lock) {
    if (!input.callback)
        return;
    const bool isNested = input.busy;  // set off by a callback, on its thread
    input.busy = true;
    input.busyThread = std::this_thread::get_id();
    lock.unlock();
    input.callback(input.handle, message, input.instance, parameter, time);
    lock.lock();
    input.busy = isNested;
    input.changed.notify_all();
}

bool MidiInputs::AwaitTurn(Input& input, std::uint64_t start, Lock& lock) {
    input.changed.wait(lock, [&] { return !input.busy || input.finish; });
    return input.isStarted && input.start == start;
}

void MidiInputs::WaitForCallback(Input& input, Lock& lock) {
    if (input.busy && input.busyThread == std::this_thread::get_id())
        return;
    input.changed.wait(lock, [&] { return !input.busy; });
}

DWORD MidiInputs::TimeOf(const Input& input, std::chrono::nanoseconds time) {
    const auto passed = std::chrono::duration_cast<std::chrono::milliseconds>(time - input.startTime).count();
    return static_cast<DWORD>(passed > 0 ? passed : 0);
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::MidiInputs;

MMRESULT midiInOpen(LPHMIDIIN input, UINT device, DWORD_PTR callback, DWORD_PTR instance, DWORD flags) {
    if (!input)
        return MMSYSERR_INVALPARAM;
    *input = nullptr;
    if (const auto code = Faults::Instance().Take(Fault::kInputOpen))
        return *code;
    if (flags != CALLBACK_FUNCTION && flags != CALLBACK_NULL)
        return MMSYSERR_INVALFLAG;
    const auto function = flags == CALLBACK_FUNCTION ? reinterpret_cast<MidiInputs::Callback>(callback) : nullptr;
    return MidiInputs::Instance().Open(*input, device, function, instance);
}

MMRESULT midiInClose(HMIDIIN input) {
    return MidiInputs::Instance().Close(input);
}

MMRESULT midiInStart(HMIDIIN input) {
    if (const auto code = Faults::Instance().Take(Fault::kInputStart))
        return *code;
    return MidiInputs::Instance().Start(input);
}

MMRESULT midiInStop(HMIDIIN input) {
    return MidiInputs::Instance().Stop(input);
}

MMRESULT midiInReset(HMIDIIN input) {
    return MidiInputs::Instance().Reset(input);
}

MMRESULT midiInPrepareHeader(HMIDIIN input, LPMIDIHDR header, UINT headerBytes) {
    return MidiInputs::Instance().Prepare(input, header, headerBytes);
}

MMRESULT midiInUnprepareHeader(HMIDIIN input, LPMIDIHDR header, UINT headerBytes) {
    return MidiInputs::Instance().Unprepare(input, header, headerBytes);
}

MMRESULT midiInAddBuffer(HMIDIIN input, LPMIDIHDR header, UINT headerBytes) {
    return MidiInputs::Instance().AddBuffer(input, header, headerBytes);
}
