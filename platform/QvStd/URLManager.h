// Dispatch of URLs to the handlers of their schemes.
//
// Thread-safety: operations are callable from any thread; what a handler allows is its own
// business.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "QvStd/DateTime.h"
#include "QvStd/Export.h"
#include "QvStd/Progress.h"
#include "QvStd/ResourceLabel.h"
#include "QvStd/Stream.h"
#include "QvStd/URL.h"
#include "QvStd/Var.h"

struct TQvURLAttrib
{
    std::uint64_t Size = 0;
    TQvDateTime UpdateTime;
    TQvDateTime CreationTime;
};

/// What a scheme offers. Operations without E answer failure with false, "" or an empty reference.
class QVSTD_API TQvURLHandler
{
public:
    virtual void Init() = 0;
    virtual TQvURL CreateURL(const std::string& prefix, const std::string& rest) = 0;
    virtual var_a<TQvStream*> OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                      unsigned long flags) = 0;
    virtual var_a<TQvStream*> OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                       unsigned long flags) = 0;
    virtual var_a<TQvStream*> OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                               qvShareMode share) = 0;
    virtual bool CopyResourceMeta(const TQvURL& from, const TQvURL& to) = 0;
    virtual bool DeleteResource(const TQvURL& url) = 0;
    virtual bool RenMovResource(const TQvURL& from, const TQvURL& to,
                                TQvProgressHandler* progress) = 0;
    virtual bool CopyResource(const TQvURL& from, const TQvURL& to,
                              TQvProgressHandler* progress) = 0;
    virtual bool CreateFolder(const TQvURL& url) = 0;
    virtual bool DeleteFolder(const TQvURL& url, bool clearFirst, TQvProgressHandler* progress) = 0;
    virtual bool ResourceExists(const TQvURL& url) = 0;
    virtual bool IsResource(const TQvURL& url) = 0;
    virtual bool IsFolder(const TQvURL& url) = 0;
    virtual bool ResourceMetaExists(const TQvURL& url) = 0;
    virtual bool GetResourceLabelWeak(const TQvURL& url, TQvResourceLabel* label) = 0;
    virtual std::string GetURLFile(const TQvURL& url, bool createIfMissing) = 0;
    virtual std::string GetURLFolder(const TQvURL& url) = 0;
    virtual std::string URL2Path(const TQvURL& url) = 0;
    virtual bool GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) = 0;

protected:
    /// Handlers are only owned through var_a, which knows the concrete class.
    ~TQvURLHandler() = default;
};

/// Hands each operation to the handler of the URL's scheme (compared byte for byte). Without one,
/// OpenURLE throws a TQvMessage that names the URL and the others answer failure.
class QVSTD_API TQvURLManager
{
public:
    /// Calls the handler's Init; a handler registered before for the scheme is replaced.
    void RegisterSchemeHandler(const std::string& scheme, var_a<TQvURLHandler*> handler);
    /// The handler of a scheme; empty when there is none.
    var_a<TQvURLHandler*> SchemeHandler(const std::string& scheme) const;

    var_a<TQvStream*> OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                              unsigned long flags) const;
    var_a<TQvStream*> OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                               unsigned long flags) const;
    var_a<TQvStream*> OpenResourceMeta(const TQvURL& url, qvOpenMode mode, qvShareMode share) const;
    bool DeleteResource(const TQvURL& url) const;
    bool CreateFolder(const TQvURL& url) const;
    bool DeleteFolder(const TQvURL& url, bool clearFirst, TQvProgressHandler* progress) const;
    bool ResourceExists(const TQvURL& url) const;
    bool IsResource(const TQvURL& url) const;
    bool IsFolder(const TQvURL& url) const;
    std::string GetURLFile(const TQvURL& url, bool createIfMissing) const;
    bool GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) const;

private:
    mutable std::mutex m_mutex;
    std::map<std::string, var_a<TQvURLHandler*>> m_handlers;
};

QVSTD_API extern TQvURLManager QvURLManager;
