#include "storage/ResFileStream.h"

TResFileStream::TResFileStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}

TResStorageStream::TResStorageStream(const std::string& id)
    : TQvURLStream(ResourceURL(id)), TQvResStream(id)
{
}
