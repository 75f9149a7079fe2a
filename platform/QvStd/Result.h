/// @file
/// How an operation on files ended.
///
/// Thread-safety: plain values.
#pragma once

#include <string>
#include <utility>

#include "QvStd/Export.h"

/// Done, nothing there, or failed with the reason. Converts to bool: true when done.
///
/// "Nothing" is an answer to a query ("does it exist", "list this"); "failed" means that the query
/// could not be answered or the work could not be done. A caller distinguishes all three:
///
///     const TQvResult exists = QvFileDirExists(path, nullptr);
///     if (exists.HasFailed())
///         Report(exists.Name(), QvErrorText(exists.Error())); // unknown whether it exists
///     else if (exists.IsNothing())
///         Create(path);
class QVSTD_API TQvResult
{
public:
    TQvResult() = default;
    /// The work is done, or the answer is yes.
    static TQvResult Done() { return {}; }
    /// Error() is ENOENT then.
    static TQvResult Nothing(std::string name = {});
    /// `error` is an errno, not 0; `name` is the path or id that the failure is about.
    static TQvResult Failed(int error, std::string name = {});
    /// For a system call that has just failed: ENOENT is "nothing", everything else "failed". errno
    /// is unchanged.
    static TQvResult FromErrno(std::string name = {});

    /// Implicit, so that operations that answered a bool can answer a result.
    operator bool() const { return m_error == 0; } // NOLINT(google-explicit-constructor)
    /// Whether the answer is that nothing exists, which is no failure.
    bool IsNothing() const { return m_isNothing; }
    /// Whether the work could not be done, or the answer not be found out.
    bool HasFailed() const { return m_error != 0 && !m_isNothing; }
    /// 0 when done, else an errno.
    int Error() const { return m_error; }
    /// The path or id that it is about; may be empty.
    const std::string& Name() const { return m_name; }
    /// The same result about another name.
    TQvResult Named(std::string name) const;

private:
    TQvResult(int error, bool isNothing, std::string name)
        : m_error(error), m_isNothing(isNothing), m_name(std::move(name))
    {
    }

    int m_error = 0;
    bool m_isNothing = false;
    std::string m_name;
};

/// The system's text for an errno, "Permission denied".
QVSTD_API std::string QvErrorText(int error);
