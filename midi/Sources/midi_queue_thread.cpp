#include "midi/midi_queue_thread.h"

#include <windows.h>

#include <exception>
#include <mutex>

#include "midi/midi_buffer.h"
#include "midi/midi_output.h"
#include "midi/midi_thread_manager.h"
#include "vemo_core/exception_log.h"
#include "zell/cout_buffer.h"
#include "zell/thread_names.h"

namespace {

constexpr char kSource[] = "midi/Sources/midi_queue_thread";

}  // namespace

MidiQueueThread::MidiQueueThread(MidiOutput& output, MidiThreadManager& threadManager)
    : output_(output), threadManager_(threadManager) {
    thread_ = std::thread([this] { RunThread(); });
}

MidiQueueThread::~MidiQueueThread() = default;

void MidiQueueThread::RunThread() {
    if (!SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_HIGHEST))
        zell::CoutBuffer() << "Unable to SetThreadPriority of midi clock. dwError = " << GetLastError() << zell::endl;
    zell::threadNames.SetNameOfCurrentThread("midi_queue_run");
    try {
        Run();
    } catch (const std::exception& error) {
        VemoLogException(error.what(), kSource, __LINE__);
    } catch (...) {
        VemoLogException("Unknown exception.", kSource, __LINE__);
    }
    threadManager_.SignalEnded();
}

void MidiQueueThread::Run() {
    while (ShouldRun()) {
        output_.QueueWaitForPlayback();
        if (!ShouldRun())
            return;
        MidiBuffer& buffer = output_.GetFillBuffer();
        buffer.WaitUntilNeedsData();
        if (!ShouldRun())
            return;
        if (!output_.PlaybackIsActive())
            continue;
        buffer.Reset();
        output_.fillMidiBufferCallback_(buffer);
        output_.IncrementFillBufferIndex();
    }
}

void MidiQueueThread::Join() {
    if (joined_)
        return;
    exit_ = true;
    {
        MidiBuffer& buffer = output_.GetFillBuffer();
        std::lock_guard lock(buffer.GetMutex());
        buffer.SetHasData(false);
    }
    threadManager_.ResumeToExit();
    thread_.join();
    joined_ = true;
}
