#pragma once

#include <string>

/// What a call throws says: of an exception of that class; others pass.
template <class Error, class Call>
std::string MessageOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}
