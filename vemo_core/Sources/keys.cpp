#include "vemo_core/keys.h"

#include <array>

namespace Keys {

namespace {

/// Names of a signature of so many sharps, from seven flats to seven sharps.
struct Names {
    const char* major;
    const char* minor;
};
constexpr std::array<Names, 15> kNames{{{"C flat major", "A flat minor"},
                                        {"G flat major", "E flat minor"},
                                        {"D flat major", "B flat minor"},
                                        {"A flat major", "F minor"},
                                        {"E flat major", "C minor"},
                                        {"B flat major", "G minor"},
                                        {"F major", "D minor"},
                                        {"C major", "A minor"},
                                        {"G major", "E minor"},
                                        {"D major", "B minor"},
                                        {"A major", "F sharp minor"},
                                        {"E major", "C sharp minor"},
                                        {"B major", "G sharp minor"},
                                        {"F sharp major", "D sharp minor"},
                                        {"C sharp major", "A sharp minor"}}};

}  // namespace

std::string getTransposedName(int sharps, bool minor, int semitones) {
    int transposed = sharps;
    if (semitones % 12 != 0 || sharps < -7 || sharps > 7) {
        // A semitone is seven fifths up, and twelve fifths come home again.
        transposed = (sharps % 12 + semitones % 12 * 7) % 12;
        if (transposed > 6)
            transposed -= 12;
        else if (transposed < -6)
            transposed += 12;
        // Six sharps and six flats sound alike: stay on the side of the written key.
        if (transposed == -6 && sharps >= 0)
            transposed = 6;
        else if (transposed == 6 && sharps < 0)
            transposed = -6;
    }
    const Names& names = kNames[static_cast<std::size_t>(transposed + 7)];
    return minor ? names.minor : names.major;
}

}  // namespace Keys
