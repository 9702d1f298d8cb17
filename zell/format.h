#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "zell/zell_export.h"

namespace zell {

/// One argument of format(), reduced to what a conversion can print.
class ZELL_EXPORT FormatArgument {
public:
    // NOLINTBEGIN(google-explicit-constructor): a caller lists plain values.
    template <class T>
        requires std::is_integral_v<T> || std::is_enum_v<T>
    explicit FormatArgument(T value)
        : kind_(IsSigned<T>() ? Kind::kSigned : Kind::kUnsigned),
          size_(sizeof(T)),
          integer_(static_cast<unsigned long long>(value)) {}
    explicit FormatArgument(double value) : kind_(Kind::kReal), real_(value) {}
    explicit FormatArgument(const char* value) : kind_(Kind::kText), text_(value ? value : "(null)") {}
    explicit FormatArgument(const std::string& value) : kind_(Kind::kText), text_(value) {}
    explicit FormatArgument(std::string_view value) : kind_(Kind::kText), text_(value) {}
    // NOLINTEND(google-explicit-constructor)

private:
    friend ZELL_EXPORT std::string FormatList(std::string_view, const std::vector<FormatArgument>&);
    enum class Kind { kSigned, kUnsigned, kReal, kText };
    template <class T>
    static constexpr bool IsSigned() {
        if constexpr (std::is_enum_v<T>)
            return std::is_signed_v<std::underlying_type_t<T>>;
        else
            return std::is_signed_v<T>;
    }
    std::string Print(const std::string& flags, const std::string& precision, char conversion) const;

    Kind kind_;
    std::size_t size_ = 0;  // of the integer, in bytes: the width of its hexadecimal form
    unsigned long long integer_ = 0;
    double real_ = 0;
    std::string text_;
};

ZELL_EXPORT std::string FormatList(std::string_view pattern, const std::vector<FormatArgument>& arguments);

/// printf-style text that cannot go wrong at run time: %s takes std::string and
/// C strings, %d, %i and %u any integer or enumeration with its own value, %x
/// and %X its bits, %f and %g a double, with flags, width and precision (at most
/// 999); %% is a percent sign. An argument that does not fit its conversion is
/// printed in its own way, a missing one as "%!", one too many not at all.
///
/// Threads: any.
template <class... Arguments>
std::string format(std::string_view pattern, const Arguments&... arguments) {
    return FormatList(pattern, std::vector<FormatArgument>{FormatArgument(arguments)...});
}

}  // namespace zell
