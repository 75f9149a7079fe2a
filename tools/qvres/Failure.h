// How a command ends that cannot do what it was asked.
#pragma once

#include <stdexcept>

/// The operation failed: one line for the user, exit status 1.
class TFailure : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};
