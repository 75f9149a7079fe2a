#include "QvStd/RegExp.h"

namespace
{
QString FromBytes(const std::string& text)
{
    // Byte for byte, since names need not be UTF-8; positions in the result are those in the text.
    return QString::fromLatin1(text.data(), static_cast<int>(text.size()));
}
} // namespace

bool CRegExp::SetExpr(const std::string& expression)
{
    const bool inSlashes =
        expression.size() >= 2 && expression.front() == '/' && expression.back() == '/';
    QString pattern =
        FromBytes(inSlashes ? expression.substr(1, expression.size() - 2) : expression);
    // A final "$" would match before a line end too; names may hold one.
    if (pattern.endsWith(QLatin1Char('$')) && !pattern.endsWith(QLatin1String("\\$")))
        pattern.replace(pattern.size() - 1, 1, QLatin1String("\\z"));
    m_expression.setPattern(pattern);
    m_expression.setPatternOptions(QRegularExpression::DotMatchesEverythingOption);
    m_valid = m_expression.isValid();
    return m_valid;
}

bool CRegExp::Parse(const std::string& text, SMatches* matches) const
{
    if (!m_valid)
        return false;
    const QRegularExpressionMatch match = m_expression.match(FromBytes(text));
    if (!match.hasMatch())
        return false;
    if (matches != nullptr) {
        matches->Ranges.clear();
        for (int group = 0; group <= match.lastCapturedIndex(); ++group)
            matches->Ranges.emplace_back(match.capturedStart(group), match.capturedLength(group));
    }
    return true;
}
