// The handler of the scheme "qvres": every resource is reachable as "qvres:" followed by its id.
//
// Each operation turns its URLs into ids and forwards to the global ResourceManager, which reports
// the failures. A URL of another scheme becomes the empty id.
//
// Thread-safety: without state; as the manager's operations.
#pragma once

#include <string>

#include "QvStd/URLManager.h"

class TQvURLResourceHandler : public TQvURLHandler
{
public:
    /// Virtual for derived handlers: the base class has no virtual destructor.
    virtual ~TQvURLResourceHandler() = default;

    void Init() override {}
    TQvURL CreateURL(const std::string& prefix, const std::string& rest) override;
    /// An open stream, or an empty reference; never throws for an id that is not valid or that no
    /// mount node answers for.
    var_a<TQvStream*> OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                              unsigned long sizeHint) override;
    /// Opens through the virtual OpenURL, so that a derived handler's override is used. Throws a
    /// TQvMessage that names the URL.
    var_a<TQvStream*> OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                               unsigned long sizeHint) override;
    var_a<TQvStream*> OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                       qvShareMode share) override;
    bool CopyResourceMeta(const TQvURL& from, const TQvURL& to) override;
    bool DeleteResource(const TQvURL& url) override;
    bool RenMovResource(const TQvURL& from, const TQvURL& to,
                        TQvProgressHandler* progress) override;
    bool CopyResource(const TQvURL& from, const TQvURL& to, TQvProgressHandler* progress) override;
    bool CreateFolder(const TQvURL& url) override;
    bool DeleteFolder(const TQvURL& url, bool clearFirst, TQvProgressHandler* progress) override;
    bool ResourceExists(const TQvURL& url) override;
    bool IsResource(const TQvURL& url) override;
    bool IsFolder(const TQvURL& url) override;
    bool ResourceMetaExists(const TQvURL& url) override;
    bool GetResourceLabelWeak(const TQvURL& url, TQvResourceLabel* label) override;
    std::string GetURLFile(const TQvURL& url, bool createIfMissing) override;
    std::string GetURLFolder(const TQvURL& url) override;
    /// The id in the URL, byte for byte; "" when the URL has another scheme (compared exactly).
    std::string URL2Path(const TQvURL& url) override;
    bool GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) override;
};
