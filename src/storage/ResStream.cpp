#include "storage/ResStream.h"

#include "storage/ResFileStream.h"

namespace
{
TQvURL ResourceURL(const std::string& id)
{
    return MakeQvURL("qvres", id);
}
} // namespace

TQvResStream::TQvResStream(const std::string& id) : TQvURLStream(ResourceURL(id)) {}

TQvResStream::~TQvResStream() = default;

const std::string& TQvResStream::ResId() const
{
    if (m_id.empty())
        m_id = URL().Path();
    return m_id;
}

TResFileStream::TResFileStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}

TResStorageStream::TResStorageStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}
