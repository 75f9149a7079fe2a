/// @file
/// Regular expressions in "/pattern/" form, with the syntax of QRegularExpression. Letter case
/// counts.
///
/// Thread-safety: one expression belongs to one thread at a time.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <QRegularExpression>

#include "QvStd/Export.h"

/// Start and length, in bytes, of the whole match and of its groups.
struct SMatches
{
    std::vector<std::pair<int, int>>
        Ranges; ///< the whole match first; start -1 for a group without a match
};

/// A compiled expression.
class QVSTD_API CRegExp
{
public:
    /// Compiles an expression written between slashes ("/^A.*$/"). Bytes are taken as characters of
    /// their own, so that any byte string can be matched. False when it is no valid expression; it
    /// then matches nothing.
    bool SetExpr(const std::string& expression);
    /// Whether `text` matches; fills `matches` (may be null) then.
    bool Parse(const std::string& text, SMatches* matches) const;

private:
    QRegularExpression m_expression;
    bool m_valid = false;
};
