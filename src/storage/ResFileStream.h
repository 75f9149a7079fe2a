// The two concrete resource streams. Both are file streams; the code that constructs one opens it.
//
// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <string>

#include "QvStd/FileStream.h"
#include "storage/ResStream.h"

/// A resource that is a file of its own.
class TResFileStream : public virtual TQvResStream, public virtual TQvFileStream
{
public:
    explicit TResFileStream(const std::string& id);
    unsigned Type() const override { return kStreamPlainFile; }

protected:
    const std::string& DefaultInfoName() const override { return URL().std_str(); }
};

/// A resource kept inside a storage.
class TResStorageStream : public virtual TQvResStream, public virtual TQvFileStream
{
public:
    explicit TResStorageStream(const std::string& id);
    unsigned Type() const override { return kStreamStorage; }
};
