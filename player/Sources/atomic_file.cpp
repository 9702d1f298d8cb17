#include "player/atomic_file.h"

#include <random>
#include <string>
#include <system_error>

#include "player/disk_file.h"
#include "player/display_text.h"
#include "zell/errors.h"
#include "zell/format.h"

namespace player {

namespace fs = std::filesystem;

namespace {

/// Nothing of the target's name is in it, which may have the full length that the
/// system allows.
std::string TemporaryName() {
    std::random_device random;
    return zell::format(".vemo-%08x%08x.tmp", random(), random());
}

}  // namespace

AtomicFile::AtomicFile(const fs::path& target) : shownName_(target) {
    std::error_code error;
    target_ = fs::absolute(target, error);
    if (error || !target.has_filename())
        Fail_("it is no name of a file");
    // To the end of a chain of links, also one whose last file is not there yet.
    constexpr int kMostLinks = 40;
    for (int links = 0; fs::is_symlink(fs::symlink_status(target_, error)); ++links) {
        const fs::path next = fs::read_symlink(target_, error);
        if (error || links == kMostLinks)
            Fail_("its links lead nowhere");
        target_ = (target_.parent_path() / next).lexically_normal();
    }
    const fs::file_status status = fs::status(target_, error);
    if (fs::is_directory(status))
        Fail_("it is a folder");
    if (fs::exists(status) && !fs::is_regular_file(status))
        Fail_("it is no plain file");
    if (fs::exists(status) && (status.permissions() & fs::perms::owner_write) == fs::perms::none)
        Fail_("it is write-protected");
    temporary_ = target_.parent_path() / TemporaryName();
    try {
        file_ = std::make_unique<DiskFile>(temporary_);
    } catch (const std::system_error& failure) {
        Fail_(failure.code().message());
    }
}

AtomicFile::~AtomicFile() {
    if (temporary_.empty())
        return;
    file_.reset();
    std::error_code ignored;
    fs::remove(temporary_, ignored);
}

void AtomicFile::Write(std::span<const std::uint8_t> bytes) {
    try {
        file_->Write(bytes);
    } catch (const std::system_error& failure) {
        Fail_(failure.code().message());
    }
}

void AtomicFile::Commit() {
    try {
        file_->Finish();
        const fs::file_status old = fs::status(target_);
        if (fs::exists(old))
            fs::permissions(temporary_, old.permissions());
        DiskFile::Replace(temporary_, target_);
    } catch (const std::system_error& failure) {
        Fail_(failure.code().message());
    }
    temporary_.clear();
}

void AtomicFile::Fail_(const std::string& reason) const {
    throw zell::IoError("cannot write " + DisplayText(shownName_.string()) + ": " + reason);
}

}  // namespace player
