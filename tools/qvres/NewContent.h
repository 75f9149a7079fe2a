// New content for a resource, whole or not at all.
//
// Thread-safety: one object belongs to one thread.
#pragma once

#include <cstddef>
#include <string>

#include <QvServices/QvServices.h>

/// The content on its way: a hidden neighbour, moved over the resource when it is complete and
/// removed when it is not. What cannot be written throws a TFailure, or TQvUserBreak when the user
/// broke it off.
class TNewContent
{
public:
    TNewContent(const TResourceManager& tree, const std::string& id);
    ~TNewContent();
    TNewContent(const TNewContent&) = delete;
    TNewContent& operator=(const TNewContent&) = delete;

    void Write(const char* bytes, std::size_t count);
    /// Brings the content to the disk and puts it in its place.
    void Finish();

private:
    [[noreturn]] void Fail(const TQvStream* stream) const;
    void KeepPermissions() const;

    const TResourceManager& m_tree;
    std::string m_id;
    std::string m_neighbour;
    var_a<TQvStream*> m_existing;
    var_a<TQvStream*> m_stream; ///< of the neighbour; null when there is none any more
};
