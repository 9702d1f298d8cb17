#include "player/disk_file.h"

#include <windows.h>

#include <algorithm>
#include <system_error>

namespace player {

namespace {

constexpr std::size_t kLargestWrite = std::size_t{1} << 20;

const std::intptr_t kClosed = reinterpret_cast<std::intptr_t>(INVALID_HANDLE_VALUE);

[[noreturn]] void Fail(const char* call) {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), call);
}

}  // namespace

DiskFile::DiskFile(const std::filesystem::path& path)
    : handle_(reinterpret_cast<std::intptr_t>(
          CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr))) {
    if (handle_ == kClosed)
        Fail("CreateFile");
}

DiskFile::~DiskFile() {
    if (handle_ != kClosed)
        CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

void DiskFile::Write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        DWORD written = 0;
        const DWORD length = static_cast<DWORD>(std::min(bytes.size(), kLargestWrite));
        if (!WriteFile(reinterpret_cast<HANDLE>(handle_), bytes.data(), length, &written, nullptr))
            Fail("WriteFile");
        bytes = bytes.subspan(written);
    }
}

void DiskFile::Finish() {
    const HANDLE handle = reinterpret_cast<HANDLE>(handle_);
    if (!FlushFileBuffers(handle))
        Fail("FlushFileBuffers");
    handle_ = kClosed;
    if (!CloseHandle(handle))
        Fail("CloseHandle");
}

void DiskFile::Replace(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (!MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        Fail("MoveFileEx");
}

}  // namespace player
