#include "zell/errors.h"

namespace zell {

NotImplementedError::NotImplementedError(const std::string& message) : std::logic_error(message) {}
NotImplementedError::~NotImplementedError() = default;

RuntimeError::RuntimeError(const std::string& message) : std::runtime_error(message) {}
RuntimeError::~RuntimeError() = default;

IoError::IoError(const std::string& message) : RuntimeError(message) {}
IoError::~IoError() = default;

}  // namespace zell
