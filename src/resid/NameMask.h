// The mask of a listing.
//
// Thread-safety: one mask may match on any thread at once.
#pragma once

#include <string>
#include <string_view>

#include <QRegularExpression>

/// Wildcards "*", "?" and "[...]" as Qt takes them, without regard to case. A text that is no valid
/// mask matches nothing.
class TNameMask
{
public:
    explicit TNameMask(const std::string& mask);
    /// A name in UTF-8; bytes that are none count as one unknown character each.
    bool Matches(std::string_view name) const;

private:
    bool m_all; ///< "*" needs no look at the name
    bool m_none = false;
    QRegularExpression m_expression;
};
