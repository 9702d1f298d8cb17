#pragma once

#include <mutex>
#include <string>
#include <utility>

#include "zell/cout_buffer.h"

/// Keeps what is written to the console while it lives.
///
/// Threads: any thread may write; Take() on the test's.
class ConsoleCapture {
public:
    ConsoleCapture()
        : before_(zell::CoutBuffer::SetSink([this](const std::string& text) {
              std::lock_guard lock(mutex_);
              text_ += text;
          })) {}
    ~ConsoleCapture() { zell::CoutBuffer::SetSink(before_); }

    /// What was written since the last call.
    std::string Take() {
        std::lock_guard lock(mutex_);
        return std::exchange(text_, std::string());
    }

private:
    std::mutex mutex_;
    std::string text_;
    zell::CoutBuffer::Sink before_;
};
