// The mask of a listing.
//
// Thread-safety: one mask belongs to one thread at a time.
#pragma once

#include <memory>
#include <string>
#include <string_view>

class QRegularExpression;

/// Wildcards "*", "?" and "[...]" as in Qt, ignoring case. An invalid mask matches nothing.
class TNameMask
{
public:
    explicit TNameMask(const std::string& mask);
    ~TNameMask();
    /// A name of a folder entry in UTF-8; an invalid byte counts as one unknown character.
    bool Matches(std::string_view name) const;

private:
    bool IsEasy(std::string_view name) const;
    bool MatchesExpression(std::string_view name) const;

    std::string m_mask;
    std::string m_upperMask; ///< empty when only Qt can interpret the mask
    bool m_matchesAll;
    bool m_hasSingle; ///< a "?"
    /// Made when the first name needs it: compiling costs as much as matching hundreds of names.
    mutable std::unique_ptr<QRegularExpression> m_expression;
};
