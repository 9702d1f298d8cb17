#include "zell/thread_names.h"

#include "zell/Sources/system_thread_name.h"

namespace zell {

ThreadNames::ThreadNames() = default;
ThreadNames::~ThreadNames() = default;

void ThreadNames::SetNameOfCurrentThread(const std::string& name) noexcept {
    try {
        SetSystemNameOfCurrentThread(name);
        const std::lock_guard lock(mutex_);
        names_[std::this_thread::get_id()] = name;
    } catch (...) {  // a thread without a name works as well
    }
}

std::string ThreadNames::GetNameOfCurrentThread() const {
    return GetName(std::this_thread::get_id());
}

std::string ThreadNames::GetName(std::thread::id id) const {
    const std::lock_guard lock(mutex_);
    const auto found = names_.find(id);
    return found == names_.end() ? std::string() : found->second;
}

ThreadNames& threadNames = *new ThreadNames;

}  // namespace zell
