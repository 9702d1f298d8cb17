#pragma once

#include <stdexcept>
#include <string>

#include "zell/zell_export.h"

namespace zell {

/// An operation that this system's hardware or platform does not offer.
class ZELL_EXPORT NotImplementedError : public std::logic_error {
public:
    explicit NotImplementedError(const std::string& message);
    NotImplementedError(const NotImplementedError&) = default;
    ~NotImplementedError() override;
};

class ZELL_EXPORT RuntimeError : public std::runtime_error {
public:
    explicit RuntimeError(const std::string& message);
    RuntimeError(const RuntimeError&) = default;
    ~RuntimeError() override;
};

/// A file that cannot be read or written.
class ZELL_EXPORT IoError : public RuntimeError {
public:
    explicit IoError(const std::string& message);
    IoError(const IoError&) = default;
    ~IoError() override;
};

}  // namespace zell
