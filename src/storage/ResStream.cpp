#include "storage/ResStream.h"

TQvResStream::TQvResStream(const std::string& id) : TQvURLStream(ResourceURL(id)), m_id(id) {}

TQvURL TQvResStream::ResourceURL(const std::string& id)
{
    return MakeQvURL("qvres", id);
}

TQvResStream::~TQvResStream() = default;
