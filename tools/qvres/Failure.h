// How a command ends that cannot do what it was asked.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>

/// The operation failed: one line for the user, exit status 1. `Id` and `Error` say to a program
/// what it is about and why.
class TFailure : public std::runtime_error
{
public:
    explicit TFailure(const std::string& message, std::string id = {}, int error = 0)
        : std::runtime_error(message), Id(std::move(id)), Error(error)
    {
    }

    std::string Id; ///< "" when it is about none
    int Error;      ///< an errno; 0 when the system gave no cause
};
