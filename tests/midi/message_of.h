#pragma once

#include <string>

/// What the exception of that class says that a call throws, or "accepted"; other exceptions pass.
template <class Error, class Call>
std::string MessageOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "accepted";
}
