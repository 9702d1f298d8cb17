#include <windows.h>

#include "zell/Sources/standard_output.h"

namespace zell {

void WriteToStandardOutput(std::string_view text) noexcept {
    const HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    while (!text.empty()) {
        constexpr std::size_t kLargestPiece = 16'384;  // some consoles refuse 64 KiB and more
        DWORD written = 0;
        const auto size = static_cast<DWORD>(text.size() < kLargestPiece ? text.size() : kLargestPiece);
        if (!WriteFile(output, text.data(), size, &written, nullptr) || written == 0)
            return;
        text.remove_prefix(written);
    }
}

}  // namespace zell
