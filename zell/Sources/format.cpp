#include "zell/format.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace zell {

namespace {

template <class T>
std::string PrintNumber(const std::string& conversion, T value) {
    const std::string pattern = "%" + conversion;
    const int size = std::snprintf(nullptr, 0, pattern.c_str(), value);
    std::string text(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    std::snprintf(text.data(), text.size() + 1, pattern.c_str(), value);
    return text;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// The pattern of a format, read from left to right.
class Reader {
public:
    explicit Reader(std::string_view pattern) : rest_(pattern) {}

    bool AtEnd() const { return rest_.empty(); }
    std::string TakeAnyOf(std::string_view wanted) {
        std::string taken;
        while (!rest_.empty() && wanted.find(rest_.front()) != std::string_view::npos)
            taken += Take();
        return taken;
    }
    std::string TakeNumber() {
        std::string digits;
        while (!rest_.empty() && IsDigit(rest_.front())) {
            const char digit = Take();
            if (digits.size() < 3)  // nobody means a line of more
                digits += digit;
        }
        return digits;
    }
    char Take() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }
    std::string_view Rest() const { return rest_; }

private:
    std::string_view rest_;
};

}  // namespace

/// flags: the flags and the width. precision: with its point, or empty.
std::string FormatArgument::Print(const std::string& flags, const std::string& precision, char conversion) const {
    const bool asBits = conversion == 'x' || conversion == 'X';
    const bool asReal = std::string_view("fFeEgG").find(conversion) != std::string_view::npos;
    switch (kind_) {
        case Kind::kText: {
            std::string text = text_;
            if (conversion == 's' && !precision.empty())
                text.resize(std::min(text.size(), static_cast<std::size_t>(std::atoi(precision.c_str() + 1))));
            const std::size_t width = static_cast<std::size_t>(
                std::atoi(flags.c_str() + std::min(flags.find_first_of("123456789"), flags.size())));
            if (text.size() < width)
                text.insert(flags.find('-') == std::string::npos ? 0 : text.size(), width - text.size(), ' ');
            return text;
        }
        case Kind::kReal: return PrintNumber(flags + precision + (asReal ? conversion : 'g'), real_);
        case Kind::kSigned:
        case Kind::kUnsigned: break;
    }
    const std::string digits = conversion == 's' || asReal ? std::string() : precision;
    if (asBits) {
        const unsigned long long mask = size_ < sizeof integer_ ? (1ULL << (8 * size_)) - 1 : ~0ULL;
        return PrintNumber(flags + digits + "ll" + conversion, integer_ & mask);
    }
    if (kind_ == Kind::kSigned)
        return PrintNumber(flags + digits + "lld", static_cast<long long>(integer_));
    return PrintNumber(flags + digits + "llu", integer_);
}

std::string FormatList(std::string_view pattern, const std::vector<FormatArgument>& arguments) {
    std::string text;
    auto next = arguments.begin();
    Reader reader(pattern);
    while (!reader.AtEnd()) {
        const std::string_view start = reader.Rest();
        if (const char c = reader.Take(); c != '%') {
            text += c;
            continue;
        }
        std::string flags = reader.TakeAnyOf("-+ #0");
        flags += reader.TakeNumber();
        std::string precision = reader.TakeAnyOf(".").substr(0, 1);
        if (!precision.empty())
            precision += "0" + reader.TakeNumber();
        reader.TakeAnyOf("hlLqjzt");  // the argument knows its size
        const char conversion = reader.AtEnd() ? '\0' : reader.Take();
        if (conversion == '%') {
            text += '%';
        } else if (conversion == '\0' || std::string_view("sdiuxXfFeEgG").find(conversion) == std::string_view::npos) {
            text += start.substr(0, start.size() - reader.Rest().size());
        } else if (next == arguments.end()) {
            text += "%!";
        } else {
            text += (next++)->Print(flags, precision, conversion);
        }
    }
    return text;
}

}  // namespace zell
