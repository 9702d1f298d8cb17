#include "player/input_posting.h"

#include <chrono>
#include <stdexcept>

namespace player {

void InputPosting::Open(Transport& transport) {
    const std::lock_guard lock(mutex_);
    transport_ = &transport;
}

void InputPosting::Close() {
    const std::lock_guard lock(mutex_);
    transport_ = nullptr;
}

std::future<CommandAnswer> InputPosting::Post(const TransportCommand& command) {
    const std::lock_guard lock(mutex_);
    return PostLocked(command);
}

void InputPosting::PostPress(CommandKind kind) {
    const std::lock_guard lock(mutex_);
    auto& presses = presses_[kind];
    while (!presses.empty() && presses.front().wait_for(std::chrono::seconds(0)) == std::future_status::ready)
        presses.pop_front();
    if (presses.size() >= kMostPresses)
        return;
    TransportCommand command;
    command.kind = kind;
    presses.push_back(PostLocked(command));
}

std::future<CommandAnswer> InputPosting::PostLocked(const TransportCommand& command) {
    if (transport_)
        return transport_->Post(command);
    std::promise<CommandAnswer> refused;
    refused.set_value({false, "no show is open", 0});
    return refused.get_future();
}

bool InputPosting::PlaysSongOf(const std::string& cue) const {
    const std::lock_guard lock(mutex_);
    if (!transport_)
        return false;
    const auto snapshot = transport_->GetSnapshot();
    if (snapshot->state != TransportState::kPlaying || !snapshot->show)
        return false;
    try {
        return snapshot->show->FindCue(cue).first + 1 == snapshot->song;
    } catch (const std::invalid_argument&) {
        return false;
    }
}

}  // namespace player
