#include "midi_streams.h"

#include <algorithm>
#include <system_error>
#include <utility>
#include <vector>

#include "faults.h"
#include "header_preparation.h"
#include "layer_clock.h"
#include "message_bytes.h"
#include "stream_event_reader.h"

namespace win32_layer {

namespace {

using SteadyClock = std::chrono::steady_clock;

// The platform's documentation: a stream buffer is smaller than 64 KB.
constexpr DWORD kLargestBufferBytes = 0xFFFF;
constexpr DWORD_PTR kHandleStep = 16;
constexpr std::chrono::milliseconds kStopPatience{500};

}  // namespace

MidiStreams& MidiStreams::Instance() {
    static MidiStreams* const instance = new MidiStreams;
    return *instance;
}

MMRESULT MidiStreams::Open(HMIDISTRM& handle, Kind kind, UINT device, LPMIDICALLBACK callback, DWORD_PTR instance) {
    auto stream = std::make_shared<Stream>();
    stream->kind = kind;
    stream->paused = kind == Kind::kStream;
    stream->callback = callback;
    stream->instance = instance;
    stream->place = OutputDevices::Instance().GetPlaces().At(device);
    if (!stream->place)
        return MMSYSERR_BADDEVICEID;
    if (const MMRESULT result = OutputDevices::Instance().Open(*stream->place))
        return result;
    try {
        const std::lock_guard lock(mutex_);
        stream->thread = std::thread([this, stream] { Run(stream); });
        lastHandle_ += kHandleStep;
        stream->handle = reinterpret_cast<HMIDISTRM>(lastHandle_);
        streams_.emplace(stream->handle, stream);
        ++totals_.openStreams;
    } catch (const std::system_error&) {  // no thread left
        OutputDevices::Instance().Close(*stream->place);
        return MMSYSERR_NOMEM;
    }
    handle = stream->handle;
    if (callback)
        callback(reinterpret_cast<HMIDIOUT>(handle), MOM_OPEN, instance, 0, 0);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiStreams::Close(HMIDISTRM handle) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream)
        return MMSYSERR_INVALHANDLE;
    streams_.erase(handle);
    --totals_.openStreams;
    stream->closed = true;
    stream->paused = true;
    stream->returning.Take(stream->waiting);
    stream->returning.Take(stream->held);
    stream->returning.SetAllDue(Time());
    if (stream->busy && stream->busyThread == std::this_thread::get_id()) {
        // Inside a callback of this stream: what is below on the stack finds
        // nothing left to do and touches nothing any more.
        if (const LPMIDIHDR header = std::exchange(stream->playing, nullptr))
            GiveBack(*stream, header, lock);
        while (const LPMIDIHDR header = stream->returning.Pop())
            GiveBack(*stream, header, lock);
    } else {
        LetWork(*stream, lock);
        stream->changed.wait(lock, [&] { return !stream->busy && stream->returning.IsEmpty(); });
    }
    stream->finish = true;
    stream->changed.notify_all();
    lock.unlock();

    if (stream->thread.get_id() == std::this_thread::get_id())
        stream->thread.detach();
    else
        stream->thread.join();
    OutputDevices::Instance().Close(*stream->place);
    if (stream->callback)
        stream->callback(reinterpret_cast<HMIDIOUT>(handle), MOM_CLOSE, stream->instance, 0, 0);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiStreams::Prepare(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes) {
    const std::lock_guard lock(mutex_);
    if (!Find(handle))
        return MMSYSERR_INVALHANDLE;
    return PrepareHeader(header, headerBytes, totals_.preparedHeaders);
}

MMRESULT MidiStreams::Unprepare(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes) {
    const std::lock_guard lock(mutex_);
    if (!Find(handle))
        return MMSYSERR_INVALHANDLE;
    return UnprepareHeader(header, headerBytes, totals_.preparedHeaders);
}

MMRESULT MidiStreams::Out(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream || stream->kind != Kind::kStream)
        return MMSYSERR_INVALHANDLE;
    if (!header || headerBytes < sizeof(MIDIHDR))
        return MMSYSERR_INVALPARAM;
    if (!(header->dwFlags & MHDR_PREPARED))
        return MIDIERR_UNPREPARED;
    if (header->dwFlags & MHDR_INQUEUE)
        return MIDIERR_STILLPLAYING;
    if (!header->lpData || header->dwBufferLength == 0 || header->dwBufferLength > kLargestBufferBytes ||
        header->dwBytesRecorded > header->dwBufferLength)
        return MMSYSERR_INVALPARAM;

    header->dwFlags = (header->dwFlags | MHDR_INQUEUE | MHDR_ISSTRM) & ~DWORD{MHDR_DONE};
    header->dwOffset = 0;
    if (observer_) {
        Observe(*header, lock);
        if (stream->closed) {  // closed meanwhile, when it did not hold this header yet
            header->dwFlags &= ~DWORD{MHDR_INQUEUE};
            return MMSYSERR_INVALHANDLE;
        }
    }
    ++totals_.streamOuts;
    return Enqueue(*stream, header, lock);
}

MMRESULT MidiStreams::Enqueue(Stream& stream, LPMIDIHDR header, Lock& lock) {
    ++totals_.queuedHeaders;
    if (buffersToHold_ > 0) {
        --buffersToHold_;
        stream.held.Push(header);
        return MMSYSERR_NOERROR;
    }
    stream.waiting.Push(header);
    LetWork(stream, lock);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiStreams::OutBytes(HMIDISTRM handle, LPMIDIHDR header, UINT headerBytes) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream || stream->kind != Kind::kOutput)
        return MMSYSERR_INVALHANDLE;
    if (!header || headerBytes < sizeof(MIDIHDR))
        return MMSYSERR_INVALPARAM;
    if (!(header->dwFlags & MHDR_PREPARED))
        return MIDIERR_UNPREPARED;
    if (header->dwFlags & MHDR_INQUEUE)
        return MIDIERR_STILLPLAYING;
    if (!header->lpData || header->dwBufferLength == 0 || header->dwBufferLength > kLargestBufferBytes)
        return MMSYSERR_INVALPARAM;
    header->dwFlags = (header->dwFlags | MHDR_INQUEUE) & ~DWORD{MHDR_DONE};
    return Enqueue(*stream, header, lock);
}

MMRESULT MidiStreams::OutShort(HMIDISTRM handle, DWORD message) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream)
        return MMSYSERR_INVALHANDLE;
    const std::uint8_t bytes[] = {static_cast<std::uint8_t>(message), static_cast<std::uint8_t>(message >> 8),
                                  static_cast<std::uint8_t>(message >> 16)};
    const std::size_t count = GetMessageBytes(bytes[0]);
    if (count == 0)  // running status is not taken: the device may have other senders
        return MMSYSERR_INVALPARAM;
    if (stream->busy && stream->busyThread == std::this_thread::get_id())
        return MIDIERR_NOTREADY;
    ++stream->inlineCallers;
    stream->changed.wait(lock, [&] { return !stream->busy; });
    MMRESULT result = MMSYSERR_INVALHANDLE;
    if (!stream->closed) {
        stream->busy = true;
        stream->busyThread = std::this_thread::get_id();
        lock.unlock();
        PlayBytes(*stream, bytes, count, LayerClock::Instance().Now());
        lock.lock();
        stream->busy = false;
        result = MMSYSERR_NOERROR;
    }
    --stream->inlineCallers;
    stream->changed.notify_all();
    return result;
}

MMRESULT MidiStreams::ResetOutput(HMIDISTRM handle) {
    constexpr unsigned int kChannels = 16;
    constexpr unsigned int kNotes = 128;
    {
        Lock lock(mutex_);
        const auto stream = Find(handle);
        if (!stream || stream->kind != Kind::kOutput)
            return MMSYSERR_INVALHANDLE;
        ReturnQueued(*stream, lock);
    }
    // As the platform does: the damper up, and a note-off for every note there is.
    for (DWORD channel = 0; channel < kChannels; ++channel) {
        if (const MMRESULT result = OutShort(handle, 0xB0u | channel | 64u << 8))
            return result;
        for (DWORD note = 0; note < kNotes; ++note)
            if (const MMRESULT result = OutShort(handle, 0x80u | channel | note << 8))
                return result;
    }
    return MMSYSERR_NOERROR;
}

bool MidiStreams::HasQueuedHeaders(HMIDISTRM handle) const {
    const std::lock_guard lock(mutex_);
    const auto stream = Find(handle);
    return stream && stream->kind == Kind::kOutput &&
           (stream->playing || !stream->waiting.IsEmpty() || !stream->held.IsEmpty() || !stream->returning.IsEmpty());
}

MMRESULT MidiStreams::Restart(HMIDISTRM handle) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream)
        return MMSYSERR_INVALHANDLE;
    stream->paused = false;
    LetWork(*stream, lock);
    return MMSYSERR_NOERROR;
}

MMRESULT MidiStreams::Stop(HMIDISTRM handle) {
    Lock lock(mutex_);
    const auto stream = Find(handle);
    if (!stream)
        return MMSYSERR_INVALHANDLE;
    stream->paused = true;
    ReturnQueued(*stream, lock);
    return MMSYSERR_NOERROR;
}

void MidiStreams::ReturnQueued(Stream& stream, Lock& lock) {
    HeaderQueue stopped;
    stopped.Take(stream.waiting);
    stopped.Take(stream.held);
    stopped.SetAllDue(SteadyClock::now() + returnDelay_);
    stream.returning.Take(stopped);
    LetWork(stream, lock);
    if (returnDelay_ > std::chrono::milliseconds(0) || (stream.busy && stream.busyThread == std::this_thread::get_id()))
        return;
    stream.changed.wait_until(lock, SteadyClock::now() + kStopPatience,
                              [&] { return !stream.busy && !HasWork(stream); });
}

std::shared_ptr<OutputDevices::Place> MidiStreams::GetPlace(HMIDISTRM handle) const {
    const std::lock_guard lock(mutex_);
    const auto stream = Find(handle);
    return stream ? stream->place : nullptr;
}

void MidiStreams::SetDelivery(Delivery delivery) {
    const std::lock_guard lock(mutex_);
    delivery_ = delivery;
}

void MidiStreams::SetObserver(Layer::Observer observer) {
    auto replacement = observer ? std::make_shared<const Layer::Observer>(std::move(observer)) : nullptr;
    const std::lock_guard lock(mutex_);
    observer_.swap(replacement);
}

void MidiStreams::HoldBuffers(int count) {
    const std::lock_guard lock(mutex_);
    buffersToHold_ = std::max(count, 0);
}

void MidiStreams::ReleaseHeldBuffers() {
    Lock lock(mutex_);
    buffersToHold_ = 0;
    std::vector<std::shared_ptr<Stream>> streams;
    for (const auto& [handle, stream] : streams_)
        streams.push_back(stream);
    for (const auto& stream : streams) {
        stream->held.Take(stream->waiting);  // they were handed over first
        stream->waiting.Take(stream->held);
        LetWork(*stream, lock);
    }
}

void MidiStreams::DelayReturns(std::chrono::milliseconds delay) {
    const std::lock_guard lock(mutex_);
    returnDelay_ = delay;
}

void MidiStreams::Reset() {
    SetObserver({});
    DelayReturns(std::chrono::milliseconds(0));
    SetDelivery(Delivery::kThread);
    ReleaseHeldBuffers();
    const std::lock_guard lock(mutex_);
    totals_.streamOuts = 0;
    totals_.doneCallbacks = 0;
    if (streams_.empty())  // what a closed stream left prepared
        totals_.preparedHeaders = 0;
}

MidiStreams::Totals MidiStreams::GetTotals() const {
    const std::lock_guard lock(mutex_);
    return totals_;
}

std::shared_ptr<MidiStreams::Stream> MidiStreams::Find(HMIDISTRM handle) const {
    const auto found = streams_.find(handle);
    return found == streams_.end() ? nullptr : found->second;
}

void MidiStreams::Run(const std::shared_ptr<Stream>& stream) {
    Lock lock(mutex_);
    while (!stream->finish) {
        if (stream->busy || stream->inlineCallers > 0) {
            stream->changed.wait(lock);
        } else if (HasWork(*stream)) {
            WorkOnce(*stream, lock);
        } else if (stream->returning.IsEmpty()) {
            stream->changed.wait(lock);
        } else {
            stream->changed.wait_until(lock, stream->returning.GetFirstDue());
        }
    }
}

bool MidiStreams::HasWork(const Stream& stream) {
    return (!stream.returning.IsEmpty() && stream.returning.GetFirstDue() <= SteadyClock::now()) ||
           (!stream.paused && !stream.waiting.IsEmpty());
}

void MidiStreams::WorkOnce(Stream& stream, Lock& lock) {
    stream.busy = true;
    stream.busyThread = std::this_thread::get_id();
    if (!stream.returning.IsEmpty() && stream.returning.GetFirstDue() <= SteadyClock::now()) {
        GiveBack(stream, stream.returning.Pop(), lock);
    } else if (const LPMIDIHDR header = stream.waiting.Pop(); header && Play(stream, header, lock)) {
        if (returnDelay_ > std::chrono::milliseconds(0) && !stream.closed) {
            HeaderQueue::SetDue(header, SteadyClock::now() + returnDelay_);
            stream.returning.Push(header);
        } else {
            GiveBack(stream, header, lock);
        }
    }
    stream.busy = false;
    stream.changed.notify_all();
}

/// False when a callback inside closed the stream: the header is gone then.
bool MidiStreams::Play(Stream& stream, LPMIDIHDR header, Lock& lock) {
    stream.playing = header;
    lock.unlock();
    const std::chrono::nanoseconds time = LayerClock::Instance().Now();
    if (stream.kind == Kind::kOutput) {
        PlayBytes(stream, reinterpret_cast<const std::uint8_t*>(header->lpData), header->dwBufferLength, time);
        lock.lock();
        stream.playing = nullptr;
        return true;
    }
    // Null: lost. What it is sent is gone, and comes back all the sooner.
    const auto device = OutputDevices::Instance().GetPlaces().GetDevice(*stream.place);
    StreamEventReader reader(header->lpData, header->dwBytesRecorded);
    while (const auto event = reader.Next()) {
        if (event->messageBytes > 0 && device)
            device->Play(event->message, event->messageBytes, time);
        if (event->wantsCallback && stream.callback) {
            header->dwOffset = event->offset;
            stream.callback(reinterpret_cast<HMIDIOUT>(stream.handle), MOM_POSITIONCB, stream.instance,
                            reinterpret_cast<DWORD_PTR>(header), 0);
            lock.lock();
            if (stream.playing != header)
                return false;
            lock.unlock();
        }
    }
    if (device)
        device->EndBuffer();
    lock.lock();
    stream.playing = nullptr;
    return true;
}

void MidiStreams::PlayBytes(Stream& stream, const std::uint8_t* bytes, std::size_t count,
                            std::chrono::nanoseconds time) {
    const auto device = OutputDevices::Instance().GetPlaces().GetDevice(*stream.place);
    if (!device)
        return;
    device->Play(bytes, count, time);
    device->EndBuffer();
}

void MidiStreams::GiveBack(Stream& stream, LPMIDIHDR header, Lock& lock) {
    header->dwFlags = (header->dwFlags | MHDR_DONE) & ~DWORD{MHDR_INQUEUE};
    --totals_.queuedHeaders;
    ++totals_.doneCallbacks;
    if (!stream.callback)
        return;
    lock.unlock();
    stream.callback(reinterpret_cast<HMIDIOUT>(stream.handle), MOM_DONE, stream.instance,
                    reinterpret_cast<DWORD_PTR>(header), 0);
    lock.lock();
}

void MidiStreams::WorkInline(Stream& stream, Lock& lock) {
    if (stream.busy && stream.busyThread == std::this_thread::get_id())
        return;
    ++stream.inlineCallers;
    stream.changed.wait(lock, [&] { return !stream.busy; });
    while (HasWork(stream))
        WorkOnce(stream, lock);
    --stream.inlineCallers;
    stream.changed.notify_all();
}

void MidiStreams::LetWork(Stream& stream, Lock& lock) {
    if (delivery_ == Delivery::kInline)
        WorkInline(stream, lock);
    else
        stream.changed.notify_all();
}

void MidiStreams::Observe(const MIDIHDR& header, Lock& lock) {
    const auto observer = observer_;
    lock.unlock();
    const std::chrono::nanoseconds time = LayerClock::Instance().Now();
    StreamEventReader reader(header.lpData, header.dwBytesRecorded);
    while (const auto event = reader.Next())
        if (event->messageBytes > 0)
            (*observer)(event->message, event->messageBytes, time);
    lock.lock();
}

}  // namespace win32_layer

using win32_layer::Fault;
using win32_layer::Faults;
using win32_layer::MidiStreams;

namespace {

HMIDISTRM AsStream(HMIDIOUT output) {
    return reinterpret_cast<HMIDISTRM>(output);
}

}  // namespace

MMRESULT midiStreamOpen(LPHMIDISTRM stream, LPUINT device, DWORD deviceCount, DWORD_PTR callback, DWORD_PTR instance,
                        DWORD flags) {
    if (!stream)
        return MMSYSERR_INVALPARAM;
    *stream = nullptr;
    if (const auto code = Faults::Instance().Take(Fault::kOpen))
        return *code;
    if (!device || deviceCount != 1)
        return MMSYSERR_INVALPARAM;
    if (flags != CALLBACK_FUNCTION && flags != CALLBACK_NULL)
        return MMSYSERR_INVALFLAG;
    const auto function = flags == CALLBACK_FUNCTION ? reinterpret_cast<LPMIDICALLBACK>(callback) : nullptr;
    return MidiStreams::Instance().Open(*stream, MidiStreams::Kind::kStream, *device, function, instance);
}

MMRESULT midiStreamClose(HMIDISTRM stream) {
    return MidiStreams::Instance().Close(stream);
}

MMRESULT midiStreamOut(HMIDISTRM stream, LPMIDIHDR header, UINT headerBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kOut))
        return *code;
    return MidiStreams::Instance().Out(stream, header, headerBytes);
}

MMRESULT midiStreamRestart(HMIDISTRM stream) {
    if (const auto code = Faults::Instance().Take(Fault::kRestart))
        return *code;
    return MidiStreams::Instance().Restart(stream);
}

MMRESULT midiStreamStop(HMIDISTRM stream) {
    return MidiStreams::Instance().Stop(stream);
}

MMRESULT midiOutPrepareHeader(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kPrepare))
        return *code;
    return MidiStreams::Instance().Prepare(AsStream(output), header, headerBytes);
}

MMRESULT midiOutUnprepareHeader(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kUnprepare))
        return *code;
    return MidiStreams::Instance().Unprepare(AsStream(output), header, headerBytes);
}

MMRESULT midiOutOpen(LPHMIDIOUT output, UINT device, DWORD_PTR callback, DWORD_PTR instance, DWORD flags) {
    if (!output)
        return MMSYSERR_INVALPARAM;
    *output = nullptr;
    if (const auto code = Faults::Instance().Take(Fault::kOpen))
        return *code;
    if (flags != CALLBACK_FUNCTION && flags != CALLBACK_NULL)
        return MMSYSERR_INVALFLAG;
    const auto function = flags == CALLBACK_FUNCTION ? reinterpret_cast<LPMIDICALLBACK>(callback) : nullptr;
    HMIDISTRM handle = nullptr;
    const MMRESULT result =
        MidiStreams::Instance().Open(handle, MidiStreams::Kind::kOutput, device, function, instance);
    *output = reinterpret_cast<HMIDIOUT>(handle);
    return result;
}

MMRESULT midiOutShortMsg(HMIDIOUT output, DWORD message) {
    if (const auto code = Faults::Instance().Take(Fault::kOut))
        return *code;
    return MidiStreams::Instance().OutShort(AsStream(output), message);
}

MMRESULT midiOutLongMsg(HMIDIOUT output, LPMIDIHDR header, UINT headerBytes) {
    if (const auto code = Faults::Instance().Take(Fault::kOut))
        return *code;
    return MidiStreams::Instance().OutBytes(AsStream(output), header, headerBytes);
}

MMRESULT midiOutReset(HMIDIOUT output) {
    return MidiStreams::Instance().ResetOutput(AsStream(output));
}

MMRESULT midiOutClose(HMIDIOUT output) {
    if (MidiStreams::Instance().HasQueuedHeaders(AsStream(output)))
        return MIDIERR_STILLPLAYING;
    return MidiStreams::Instance().Close(AsStream(output));
}
