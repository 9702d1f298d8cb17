#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// A folder of a test's own, with its files; gone with it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        static std::atomic<int> count{0};
        path_ = std::filesystem::canonical(::testing::TempDir()) /
                ("vemo_" + std::to_string(getpid()) + "_" + std::to_string(++count));
        std::filesystem::create_directories(path_);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }
    const std::filesystem::path& GetPath() const { return path_; }
    std::filesystem::path Put(const std::string& name, const std::string& contents) const {
        std::ofstream(path_ / name, std::ios::binary) << contents;
        return path_ / name;
    }
    static std::string Contents(const std::filesystem::path& path) {
        std::ifstream stream(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    std::filesystem::path path_;
};
