/// @file
/// Streams that carry the id of their resource.
///
/// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/URL.h"

/// Kinds of resource streams.
inline constexpr unsigned kStreamPlainFile = 1;
inline constexpr unsigned kStreamStorage = 2; ///< a stream of a resource storage

/// The type of every opened resource. A module that has a TQvStream gets its resource so:
///
///     if (const auto* resource = dynamic_cast<const TQvResStream*>(stream.get()))
///         Use(resource->ResId());
class QVSERVICES_API TQvResStream : public virtual TQvURLStream
{
public:
    /// Its URL is that of the resource `id`.
    explicit TQvResStream(const std::string& id);

    /// kStreamPlainFile or kStreamStorage.
    virtual unsigned Type() const = 0;
    ~TQvResStream() override;

    /// The id with which the resource was opened.
    const std::string& ResId() const;

protected:
    /// The most derived class initializes the virtual base.
    static TQvURL ResourceURL(const std::string& id);

private:
    mutable std::string m_id; ///< made from the URL on first use
};
