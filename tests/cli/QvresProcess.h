// Runs the built qvres as a process of its own, in a home and with mounts that nobody else uses.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempFolder.h"

struct TResult
{
    int Status; ///< exit status, or -signal
    std::string Out;
    std::string Err;
};

using TArgs = std::vector<std::string>;

/// Replaces the process by qvres.
[[noreturn]] void ExecQvres(const TArgs& args);

class TQvresTest : public ::testing::Test
{
protected:
    TQvresTest();

    /// qvres with the folders a and b of Temp mounted at /A and /B.
    TResult Run(const TArgs& args, const std::string& input = {}) const;
    /// qvres as it is called, with the file `outFile` as standard output when it is given;
    /// `prepare` runs in the new process before.
    TResult RunPlain(const TArgs& args, const std::string& input = {},
                     const std::string& outFile = {},
                     const std::function<void()>& prepare = {}) const;
    /// The arguments with both mounts before them.
    TArgs WithMounts(const TArgs& args) const;
    /// Runs a call that must succeed silently; returns what it printed.
    std::string Good(const TArgs& args, const std::string& input = {}) const;
    /// Runs a call that must fail; returns its one line without "qvres: " and the line's end.
    std::string Bad(const TArgs& args, int status = 1) const;

    TTempFolder m_temp;
};
