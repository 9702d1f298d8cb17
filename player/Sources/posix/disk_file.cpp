#include "player/disk_file.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace player {

namespace {

constexpr std::intptr_t kClosed = -1;

[[noreturn]] void Fail(const char* call, int error = errno) {
    throw std::system_error(error, std::generic_category(), call);
}

}  // namespace

DiskFile::DiskFile(const std::filesystem::path& path)
    : handle_(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666)) {
    if (handle_ == kClosed)
        Fail("open");
    // Where the program was started with a standard stream closed, the file would
    // take its place, and what is printed would end up in it.
    if (handle_ > STDERR_FILENO)
        return;
    const int low = static_cast<int>(handle_);
    handle_ = ::fcntl(low, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    ::close(low);
    if (handle_ == kClosed)
        Fail("fcntl", error);
}

DiskFile::~DiskFile() {
    if (handle_ != kClosed)
        ::close(static_cast<int>(handle_));
}

void DiskFile::Write(std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(static_cast<int>(handle_), bytes.data(), bytes.size());
        if (written >= 0)
            bytes = bytes.subspan(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            Fail("write");
    }
}

void DiskFile::Finish() {
    const int handle = static_cast<int>(handle_);
    if (::fsync(handle) != 0)
        Fail("fsync");
    handle_ = kClosed;
    if (::close(handle) != 0)
        Fail("close");
}

void DiskFile::Replace(const std::filesystem::path& from, const std::filesystem::path& to) {
    if (::rename(from.c_str(), to.c_str()) != 0)
        Fail("rename");
    // The new name is on the disk only with its folder. Where the system cannot
    // flush a folder, the file is whole all the same, and that is no failure.
    const int folder = ::open(to.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder == kClosed)
        return;
    ::fsync(folder);
    ::close(folder);
}

}  // namespace player
