/// @file
/// URLs, and streams that have one. A URL is a scheme, ":" and a path that the scheme defines:
/// "qvres:/Data/a.txt" is the resource "/Data/a.txt".
///
/// Thread-safety: plain values.
#pragma once

#include <string>
#include <utility>

#include "QvStd/Export.h"
#include "QvStd/Stream.h"

/// A URL whose text is kept byte for byte: nothing is decoded, encoded or normalised.
class QVSTD_API TQvURL
{
public:
    TQvURL() = default;
    /// Keeps `text` as it is.
    explicit TQvURL(std::string text) : m_text(std::move(text)) {}

    /// Replaces the text.
    void Init(std::string text) { m_text = std::move(text); }
    /// The text.
    const std::string& std_str() const { return m_text; }
    /// The text before the first ":"; "" when there is none.
    std::string Scheme() const;
    /// The text after the first ":"; the whole text when there is none.
    std::string Path() const;

    /// Whether both texts are equal, byte for byte.
    friend bool operator==(const TQvURL& a, const TQvURL& b) { return a.m_text == b.m_text; }
    /// The opposite.
    friend bool operator!=(const TQvURL& a, const TQvURL& b) { return !(a == b); }

private:
    std::string m_text;
};

/// The URL whose text is `scheme`, ":" and `path`.
QVSTD_API TQvURL MakeQvURL(const std::string& scheme, const std::string& path);

/// A stream that carries the URL it was opened for.
class QVSTD_API TQvURLStream : public virtual TQvStream
{
public:
    /// `url` is that for which the stream was opened.
    explicit TQvURLStream(TQvURL url) : m_url(std::move(url)) {}
    ~TQvURLStream() override;

    /// The URL that the stream was opened for.
    const TQvURL& URL() const { return m_url; }

private:
    TQvURL m_url;
};
