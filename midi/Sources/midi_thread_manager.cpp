#include "midi/midi_thread_manager.h"

MidiThreadManager::MidiThreadManager() = default;
MidiThreadManager::~MidiThreadManager() = default;

void MidiThreadManager::Resume() {
    std::lock_guard lock(resumeMutex_);
    queueIsWaiting_ = false;
    resumeCondition_.notify_all();
}

void MidiThreadManager::ResumeToExit() {
    std::lock_guard lock(resumeMutex_);
    mustExit_ = true;
    queueIsWaiting_ = false;
    resumeCondition_.notify_all();
}

void MidiThreadManager::SignalParked() {
    std::lock_guard lock(waitingMutex_);
    queueIsWaiting_ = true;
    ++parkCount_;
    waitingCondition_.notify_all();
}

void MidiThreadManager::SignalEnded() {
    std::lock_guard lock(waitingMutex_);
    ended_ = true;
    waitingCondition_.notify_all();
}
