#include "storage/ResStream.h"

TQvResStream::TQvResStream(const std::string& id) : TQvURLStream(ResourceURL(id)) {}

TQvURL TQvResStream::ResourceURL(const std::string& id)
{
    return MakeQvURL("qvres", id);
}

TQvResStream::~TQvResStream() = default;

/// Kept as a URL alone until it is asked for: most streams are never asked.
const std::string& TQvResStream::ResId() const
{
    if (m_id.empty())
        m_id = URL().Path();
    return m_id;
}
