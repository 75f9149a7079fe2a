#include "resid/NameMask.h"

#include <algorithm>
#include <climits>

#include <QRegularExpression>

#include "QvStd/Strings.h"

namespace
{
bool IsAscii(std::string_view text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0; });
}

bool Contains(std::string_view text, std::string_view part)
{
    return text.find(part) != std::string_view::npos;
}
} // namespace

TNameMask::TNameMask(const std::string& mask)
    : m_mask(mask), m_matchesAll(mask == "*"), m_hasSingle(mask.find('?') != std::string::npos)
{
    if (IsAscii(mask) && mask.find('[') == std::string::npos)
        m_upperMask = toupper_locale(mask);
}

TNameMask::~TNameMask() = default;

bool TNameMask::Matches(std::string_view name) const
{
    if (m_matchesAll)
        return true;
    char upper[NAME_MAX];
    if (m_upperMask.empty() || name.size() > sizeof upper || !IsEasy(name))
        return MatchesExpression(name);
    std::transform(name.begin(), name.end(), upper, QvToUpper);
    return QvMatchesWildcards({upper, name.size()}, m_upperMask);
}

/// Whether comparing bytes gives the same result as Qt's characters. In a name beyond ASCII a "?"
/// may take more or less than one encoded character, long s and the Kelvin sign are "S" and "K" in
/// other letter cases, and a byte order mark in front does not count.
bool TNameMask::IsEasy(std::string_view name) const
{
    return IsAscii(name) || (!m_hasSingle && !Contains(name, u8"\u017F") &&
                             !Contains(name, u8"\u212A") && !Contains(name, u8"\uFEFF"));
}

bool TNameMask::MatchesExpression(std::string_view name) const
{
    if (!m_expression) {
        m_expression = std::make_unique<QRegularExpression>(
            QRegularExpression::wildcardToRegularExpression(QString::fromStdString(m_mask)),
            QRegularExpression::CaseInsensitiveOption);
        m_expression->optimize();
    }
    // Checked first: a match would print a warning on standard error.
    return m_expression->isValid() &&
           m_expression->match(QString::fromUtf8(name.data(), static_cast<int>(name.size())))
               .hasMatch();
}
