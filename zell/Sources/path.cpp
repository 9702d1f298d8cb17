#include "zell/path.h"

#include <filesystem>
#include <string_view>

namespace zell::path {

std::string Join(const std::string& left, const std::string& right) {
    if (left.empty() || right.empty())
        return left + right;
    constexpr char kSeparator = static_cast<char>(std::filesystem::path::preferred_separator);
    static constexpr char kSeparators[] = {'/', kSeparator};
    constexpr std::string_view kAny(kSeparators, sizeof kSeparators);
    const std::size_t leftEnd = left.find_last_not_of(kAny) + 1;  // 0 where there is nothing else: the root
    const std::size_t rightStart = right.find_first_not_of(kAny);
    return left.substr(0, leftEnd) + kSeparator + (rightStart == std::string::npos ? "" : right.substr(rightStart));
}

}  // namespace zell::path
