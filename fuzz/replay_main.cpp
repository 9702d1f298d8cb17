// Gives files to a fuzz target without a fuzzer, in every build and with every
// compiler, and each a thousand times with some of its bytes changed, the same each
// time: midi_file_replay FILE or FOLDER...
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr int kChanges = 1000;
constexpr std::size_t kMostChanged = 6;

std::vector<std::filesystem::path> Files(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path))
        return {path};
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
        if (entry.is_regular_file())
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

int main(int count, char** arguments) try {
    int replayed = 0;
    for (int index = 1; index < count; ++index) {
        for (const std::filesystem::path& path : Files(arguments[index])) {
            std::printf("%s\n", path.string().c_str());
            std::fflush(stdout);  // a crash must not hide which file it was
            std::ifstream stream(path, std::ios::binary);
            std::vector<std::uint8_t> bytes{std::istreambuf_iterator<char>(stream), {}};
            if (!stream) {
                std::printf("%s cannot be read\n", path.string().c_str());
                return 1;
            }
            LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
            std::mt19937 random(static_cast<unsigned>(bytes.size()));
            for (int change = 0; change < kChanges && !bytes.empty(); ++change) {
                std::vector<std::uint8_t> changed = bytes;
                for (std::size_t left = random() % kMostChanged; left > 0; --left)
                    changed[random() % changed.size()] = static_cast<std::uint8_t>(random());
                changed.resize(random() % 2 == 0 ? changed.size() : random() % changed.size());
                LLVMFuzzerTestOneInput(changed.data(), changed.size());
            }
            ++replayed;
        }
    }
    std::printf("%d passed, %d failed\n", replayed, replayed == 0 ? 1 : 0);
    return replayed == 0 ? 1 : 0;
} catch (const std::exception& failure) {
    std::printf("%s\n0 passed, 1 failed\n", failure.what());
    return 1;
}
