#include "vemo_core/directories.h"

Directories::Directories() : showDirectory_(".") {}
Directories::~Directories() = default;

void Directories::SetShowDirectory(const std::string& folder) {
    const std::lock_guard lock(mutex_);
    showDirectory_ = folder;
}

std::string Directories::GetShowDirectory() const {
    const std::lock_guard lock(mutex_);
    return showDirectory_;
}

Directories& directories = *new Directories;
