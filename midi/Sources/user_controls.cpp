#include "midi/user_controls.h"

#include <utility>

UserControls::UserControls() = default;
UserControls::~UserControls() = default;

double UserControls::GetTempoScale() const {
    std::lock_guard lock(mutex_);
    return tempoScale_;
}

void UserControls::SetTempoScale(double tempoScale) {
    std::lock_guard lock(mutex_);
    tempoScale_ = tempoScale;
}

double UserControls::IncreaseTempo() {
    std::lock_guard lock(mutex_);
    return tempoScale_ *= 1.01;
}

double UserControls::DecreaseTempo() {
    std::lock_guard lock(mutex_);
    return tempoScale_ *= 0.99;
}

int UserControls::GetTransposition() const {
    std::lock_guard lock(mutex_);
    return transposition_;
}

void UserControls::SetTransposition(int transposition) {
    std::lock_guard lock(mutex_);
    if (transposition == transposition_)
        return;
    transposition_ = transposition;
    transpositionChanged_ = true;
}

bool UserControls::GetTranspositionChanged() {
    std::lock_guard lock(mutex_);
    return std::exchange(transpositionChanged_, false);
}
