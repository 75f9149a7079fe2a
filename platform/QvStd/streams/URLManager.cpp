#include "QvStd/URLManager.h"

#include "QvStd/Message.h"

TQvURLManager QvURLManager;

void TQvURLManager::RegisterSchemeHandler(const std::string& scheme, var_a<TQvURLHandler*> handler)
{
    // Outside the lock: a handler may register others while it starts.
    if (handler)
        handler->Init();
    // Swapped, so that the old handler is destroyed outside the lock: its destructor may call this
    // manager.
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_handlers[scheme].swap(handler);
}

/// A reference of its own: the handler lives as long as the call, also when it is replaced
/// meanwhile.
var_a<TQvURLHandler*> TQvURLManager::SchemeHandler(const std::string& scheme) const
{
    const std::lock_guard<std::mutex> guard(m_mutex);
    const auto found = m_handlers.find(scheme);
    return found != m_handlers.end() ? found->second : nullptr;
}

// The operations differ in arguments and results, so that each forwards by itself.

var_a<TQvStream*> TQvURLManager::OpenURL(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                         unsigned long sizeHint) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler ? handler->OpenURL(url, mode, share, sizeHint) : nullptr;
}

var_a<TQvStream*> TQvURLManager::OpenURLE(const TQvURL& url, qvOpenMode mode, qvShareMode share,
                                          unsigned long sizeHint) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    if (!handler)
        throw TQvMessage(QvMsg_helper("Err_NoURLHandler_url") << url.std_str());
    return handler->OpenURLE(url, mode, share, sizeHint);
}

var_a<TQvStream*> TQvURLManager::OpenResourceMeta(const TQvURL& url, qvOpenMode mode,
                                                  qvShareMode share) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler ? handler->OpenResourceMeta(url, mode, share) : nullptr;
}

bool TQvURLManager::DeleteResource(const TQvURL& url) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->DeleteResource(url);
}

bool TQvURLManager::CreateFolder(const TQvURL& url) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->CreateFolder(url);
}

bool TQvURLManager::DeleteFolder(const TQvURL& url, bool clearFirst,
                                 TQvProgressHandler* progress) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->DeleteFolder(url, clearFirst, progress);
}

bool TQvURLManager::ResourceExists(const TQvURL& url) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->ResourceExists(url);
}

bool TQvURLManager::IsResource(const TQvURL& url) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->IsResource(url);
}

bool TQvURLManager::IsFolder(const TQvURL& url) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->IsFolder(url);
}

std::string TQvURLManager::GetURLFile(const TQvURL& url, bool createIfMissing) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler ? handler->GetURLFile(url, createIfMissing) : std::string();
}

bool TQvURLManager::GetURLAttr(const TQvURL& url, TQvURLAttrib* attributes) const
{
    const var_a<TQvURLHandler*> handler = SchemeHandler(url.Scheme());
    return handler && handler->GetURLAttr(url, attributes);
}
