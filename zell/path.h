#pragma once

#include <string>

#include "zell/zell_export.h"

namespace zell::path {

/// left and right with exactly one separator between them; an empty part adds none.
ZELL_EXPORT std::string Join(const std::string& left, const std::string& right);

}  // namespace zell::path
