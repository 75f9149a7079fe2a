// Streams that know which resource they belong to.
//
// Thread-safety: one stream belongs to one thread at a time.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/URL.h"

/// Kinds of resource streams.
inline constexpr unsigned kStreamPlainFile = 1;
inline constexpr unsigned kStreamStorage = 2;

/// What every opened resource is: a module that is given a TQvStream finds out its resource with a
/// dynamic cast.
class QVSERVICES_API TQvResStream : public virtual TQvURLStream
{
public:
    explicit TQvResStream(const std::string& id);

    /// kStreamPlainFile or kStreamStorage.
    virtual unsigned Type() const = 0;
    ~TQvResStream() override;

    const std::string& ResId() const { return m_id; }

protected:
    /// For the most derived class, which initializes the virtual base.
    static TQvURL ResourceURL(const std::string& id);

private:
    std::string m_id;
};
