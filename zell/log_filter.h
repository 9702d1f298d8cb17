#pragma once

#include <functional>
#include <string>

#include "zell/zell_export.h"

namespace zell {

enum LogKind { LogAttempt, LogSuccess };

struct LogEntry {
    LogKind kind;
    const char* file;
    int line;
    const char* description;
    bool flag;
};

/// Notes the attempt or the success of a platform call. Called twice per MIDI
/// clock: while nobody listens it is one atomic load.
///
/// Threads: any; the listener runs on the calling thread, on several at once.
///          What it throws is dropped.
ZELL_EXPORT void LogFilter(LogKind kind, const char* file, int line, const char* description, bool flag) noexcept;

using LogListener = std::function<void(const LogEntry&)>;
/// Replaces the listener and returns the one before; an empty one switches logging
/// off. After it returns the old listener runs on no other thread. Never called with
/// a lock held that the listener takes.
ZELL_EXPORT LogListener SetLogListener(LogListener listener);

/// The text of a failed platform call: it names file, line, call and detail.
ZELL_EXPORT std::string CreateFailureMessage(const std::string& file, int line, const std::string& description,
                                             const std::string& detail);

}  // namespace zell
