#pragma once

#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "vemo_core/exception_log.h"

/// Keeps what is logged as an exception while it lives.
///
/// Threads: any thread may log; Take() on the test's.
class ExceptionCapture {
public:
    ExceptionCapture()
        : before_(SetExceptionLogSink([this](const LoggedException& exception) {
              std::lock_guard lock(mutex_);
              exceptions_.push_back(exception);
              line_ = exception.line;
          })) {}
    ~ExceptionCapture() { SetExceptionLogSink(before_); }

    /// Of the latest that was logged.
    int GetLine() {
        std::lock_guard lock(mutex_);
        return line_;
    }
    /// What was logged since the last call, each as "source: message".
    std::vector<std::string> Take() {
        std::lock_guard lock(mutex_);
        std::vector<std::string> lines;
        for (const LoggedException& exception : std::exchange(exceptions_, {}))
            lines.push_back(exception.sourcePath + ": " + exception.message);
        return lines;
    }

private:
    std::mutex mutex_;
    // Guarded by mutex_.
    std::vector<LoggedException> exceptions_;
    int line_ = 0;
    ExceptionLogSink before_;
};
