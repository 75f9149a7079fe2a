#include "QvStd/URL.h"

std::string TQvURL::Scheme() const
{
    const std::size_t colon = m_text.find(':');
    return colon == std::string::npos ? std::string() : m_text.substr(0, colon);
}

std::string TQvURL::Path() const
{
    const std::size_t colon = m_text.find(':');
    return colon == std::string::npos ? m_text : m_text.substr(colon + 1);
}

TQvURL MakeQvURL(const std::string& scheme, const std::string& path)
{
    return TQvURL(scheme + ":" + path);
}

TQvURLStream::~TQvURLStream() = default;
