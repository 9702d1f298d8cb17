#pragma once

#include <functional>
#include <string>

#include "vemo_core/vemo_core_export.h"

/// Logs an exception that a thread or a callback would otherwise have let
/// escape. sourcePath and line say where it was caught.
///
/// Threads: any. Never throws, never blocks for long.
VEMO_CORE_EXPORT void VemoLogException(const std::string& message, const std::string& sourcePath, int line) noexcept;

struct LoggedException {
    std::string message;
    std::string sourcePath;
    int line;
};

using ExceptionLogSink = std::function<void(const LoggedException&)>;
/// Replaces where exceptions are logged and returns the sink before, which by
/// then runs on no other thread; an empty one means the console: "EXCEPTION
/// message (sourcePath line N)". The sink runs on the logging thread, on several
/// at once; what it throws is dropped. Never called with a lock held that the
/// sink takes.
VEMO_CORE_EXPORT ExceptionLogSink SetExceptionLogSink(ExceptionLogSink sink);
