#include "QvStd/URL.h"

#include <utility>

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
    std::string text;
    text.reserve(scheme.size() + 1 + path.size());
    text.append(scheme).append(1, ':').append(path);
    return TQvURL(std::move(text));
}

TQvURLStream::~TQvURLStream() = default;
