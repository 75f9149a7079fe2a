/// @file
/// URLs, and streams that have one.
///
/// Thread-safety: plain values.
#pragma once

#include <string>
#include <utility>

#include "QvStd/Export.h"
#include "QvStd/Stream.h"

/// A URL that keeps its text to the byte: nothing is decoded, encoded or normalised.
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
    /// What stands before the first ":"; "" when there is none.
    std::string Scheme() const;
    /// What stands after the first ":"; the whole text when there is none.
    std::string Path() const;

    /// Equal to the byte.
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
    /// Set by the opener of the stream.
    explicit TQvURLStream(TQvURL url) : m_url(std::move(url)) {}
    ~TQvURLStream() override;

    /// The URL that the stream was opened for.
    const TQvURL& URL() const { return m_url; }

private:
    TQvURL m_url;
};
