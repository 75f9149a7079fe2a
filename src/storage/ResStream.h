/// @file
/// Streams that know which resource they belong to.
///
/// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/URL.h"

/// Kinds of resource streams.
inline constexpr unsigned kStreamPlainFile = 1;
inline constexpr unsigned kStreamStorage = 2; ///< a stream of a resource storage

/// What every opened resource is: a module that is given a TQvStream finds out its resource with a
/// dynamic cast.
class QVSERVICES_API TQvResStream : public virtual TQvURLStream
{
public:
    /// Its URL is that of the resource `id`.
    explicit TQvResStream(const std::string& id);

    /// kStreamPlainFile or kStreamStorage.
    virtual unsigned Type() const = 0;
    ~TQvResStream() override;

    /// The resource, as it was opened.
    const std::string& ResId() const;

protected:
    /// For the most derived class, which initializes the virtual base.
    static TQvURL ResourceURL(const std::string& id);

private:
    mutable std::string m_id; ///< made of the URL when it is first asked for
};
