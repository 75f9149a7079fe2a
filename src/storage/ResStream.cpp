#include "storage/ResStream.h"

#include "storage/ResFileStream.h"

namespace
{
TQvURL ResourceURL(const std::string& id)
{
    return MakeQvURL("qvres", id);
}
} // namespace

TQvResStream::TQvResStream(const std::string& id) : TQvURLStream(ResourceURL(id)), m_id(id) {}

TQvResStream::~TQvResStream() = default;

TResFileStream::TResFileStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}

TResStorageStream::TResStorageStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}
