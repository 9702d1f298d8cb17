#include "header_queue.h"

#include <utility>

namespace win32_layer {

void HeaderQueue::Push(LPMIDIHDR header) {
    header->lpNext = nullptr;
    if (last_)
        last_->lpNext = header;
    else
        first_ = header;
    last_ = header;
}

void HeaderQueue::Take(HeaderQueue& other) {
    if (!other.first_)
        return;
    if (last_)
        last_->lpNext = other.first_;
    else
        first_ = other.first_;
    last_ = other.last_;
    other = HeaderQueue();
}

LPMIDIHDR HeaderQueue::Pop() {
    const LPMIDIHDR header = first_;
    if (!header)
        return nullptr;
    first_ = std::exchange(header->lpNext, nullptr);
    if (!first_)
        last_ = nullptr;
    return header;
}

HeaderQueue::Time HeaderQueue::GetFirstDue() const {
    return Time(Time::duration(static_cast<Time::rep>(first_->dwReserved[0])));
}

void HeaderQueue::SetAllDue(Time due) {
    for (LPMIDIHDR header = first_; header; header = header->lpNext)
        SetDue(header, due);
}

void HeaderQueue::SetDue(LPMIDIHDR header, Time due) {
    header->dwReserved[0] = static_cast<DWORD_PTR>(due.time_since_epoch().count());
}

}  // namespace win32_layer
