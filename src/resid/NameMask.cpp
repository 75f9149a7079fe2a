#include "resid/NameMask.h"

TNameMask::TNameMask(const std::string& mask) : m_all(mask == "*")
{
    if (m_all)
        return;
    m_expression.setPattern(
        QRegularExpression::wildcardToRegularExpression(QString::fromStdString(mask)));
    m_expression.setPatternOptions(QRegularExpression::CaseInsensitiveOption);
    // Asked once: each match would complain on standard error.
    m_none = !m_expression.isValid();
    if (!m_none)
        m_expression.optimize();
}

bool TNameMask::Matches(std::string_view name) const
{
    if (m_all || m_none)
        return m_all;
    return m_expression.match(QString::fromUtf8(name.data(), static_cast<int>(name.size())))
        .hasMatch();
}
