/// @file
/// Dispatch of URLs to the handlers of their schemes.
///
/// A module that has resources derives from TQvURLHandler and registers it once; then any module
/// opens them without knowing that one:
///
///     QvURLManager.RegisterSchemeHandler("mail", make_var<TMailHandler>());
///     var_a<TQvStream*> stream =
///         QvURLManager.OpenURLE(TQvURL("mail:inbox/1"), kQvOpenRead, kQvShareAll, 0);
///
/// Thread-safety: operations are callable from any thread, as far as the handler allows that.
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

/// Attributes of the resource of a URL.
struct TQvURLAttrib
{
    std::uint64_t Size = 0;   ///< bytes
    TQvDateTime UpdateTime;   ///< last modification
    TQvDateTime CreationTime; ///< may be "no time"
};

/// The operations of a scheme. Those without E answer failure with false, "" or an empty reference.
class QVSTD_API TQvURLHandler
{
public:
    /// Called once, when the handler is registered.
    virtual void Init() = 0;
    /// The URL made of `prefix` and `rest`; the scheme defines both.
    virtual TQvURL CreateURL(const std::string& prefix, const std::string& rest) = 0;
    /// Empty, or a stream that may not be open (operator bool). The scheme defines `sizeHint`; for
    /// "qvres" it is the expected size in bytes of a resource that is created, 0 when unknown.
    virtual var_a<TQvStream*> OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                      unsigned long sizeHint) = 0;
    /// An open stream, or a TQvMessage that names the URL.
    virtual var_a<TQvStream*> OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                       unsigned long sizeHint) = 0;
    /// Opens the metadata of the resource; empty when there is none.
    virtual var_a<TQvStream*> OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                               qvShareMode share) = 0;
    /// Copies only the metadata.
    virtual bool CopyResourceMeta(const TQvURL& from, const TQvURL& to) = 0;
    /// Deletes a resource with its metadata.
    virtual bool DeleteResource(const TQvURL& url) = 0;
    /// Moves a resource with its metadata; `progress` may be null.
    virtual bool RenMovResource(const TQvURL& from, const TQvURL& to,
                                TQvProgressHandler* progress) = 0;
    /// Copies a resource with its metadata; `progress` may be null.
    virtual bool CopyResource(const TQvURL& from, const TQvURL& to,
                              TQvProgressHandler* progress) = 0;
    /// True when the folder is there afterwards.
    virtual bool CreateFolder(const TQvURL& url) = 0;
    /// Deletes a folder, with `clearFirst` with its content; `progress` may be null.
    virtual bool DeleteFolder(const TQvURL& url, bool clearFirst, TQvProgressHandler* progress) = 0;
    /// Whether a resource or a folder exists.
    virtual bool ResourceExists(const TQvURL& url) = 0;
    /// Whether a resource exists, and no folder.
    virtual bool IsResource(const TQvURL& url) = 0;
    /// Whether a folder exists.
    virtual bool IsFolder(const TQvURL& url) = 0;
    /// Whether the resource has metadata.
    virtual bool ResourceMetaExists(const TQvURL& url) = 0;
    /// Size and time, without a checksum.
    virtual bool GetResourceLabelWeak(const TQvURL& url, TQvResourceLabel* label) = 0;
    /// The path of the disk file of a resource, with `createIfMissing` created first; "" when there
    /// is none.
    virtual std::string GetURLFile(const TQvURL& url, bool createIfMissing) = 0;
    /// The disk folder of that file.
    virtual std::string GetURLFolder(const TQvURL& url) = 0;
    /// The URL's text without the scheme, as the scheme reads it.
    virtual std::string URL2Path(const TQvURL& url) = 0;
    /// Size and times; false when nothing is there.
    virtual bool GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) = 0;

protected:
    /// Handlers are only owned through var_a, which destroys the concrete class.
    ~TQvURLHandler() = default;
};

/// Forwards each operation to the handler of the URL's scheme (compared byte for byte). Without
/// one, OpenURLE throws a TQvMessage that names the URL and the others answer failure.
class QVSTD_API TQvURLManager
{
public:
    /// Calls the handler's Init; a handler registered before for the scheme is replaced.
    void RegisterSchemeHandler(const std::string& scheme, var_a<TQvURLHandler*> handler);
    /// The handler of a scheme; empty when there is none.
    var_a<TQvURLHandler*> SchemeHandler(const std::string& scheme) const;

    /// @name As those of TQvURLHandler
    /// @{

    /// As in TQvURLHandler, by the handler of the URL's scheme.
    var_a<TQvStream*> OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                              unsigned long sizeHint) const;
    var_a<TQvStream*> OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                               unsigned long sizeHint) const;
    var_a<TQvStream*> OpenResourceMeta(const TQvURL& url, qvOpenMode mode, qvShareMode share) const;
    bool DeleteResource(const TQvURL& url) const;
    bool CreateFolder(const TQvURL& url) const;
    bool DeleteFolder(const TQvURL& url, bool clearFirst, TQvProgressHandler* progress) const;
    bool ResourceExists(const TQvURL& url) const;
    bool IsResource(const TQvURL& url) const;
    bool IsFolder(const TQvURL& url) const;
    std::string GetURLFile(const TQvURL& url, bool createIfMissing) const;
    bool GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) const;
    /// @}

private:
    mutable std::mutex m_mutex;
    std::map<std::string, var_a<TQvURLHandler*>> m_handlers;
};

/// The one manager of the process.
QVSTD_API extern TQvURLManager QvURLManager;
