/// @file
/// Reading X-Ini documents (QvStd/XIniTree.h describes the format).
///
/// A reader is in one section at a time, at first the top level. The elements of a section are
/// numbered from 0, keys and sections together, in file order; that number is a "position".
///
///     const auto reader = GetXIniReader(TQvPath("/etc/example.x-ini")); // throws when it cannot
///     const TQvXIniSection mount = reader->EnterSectionSE("mount");
///     const auto node = reader->ReadE<std::string>(reader->FindFE("node"));
///     const int limit = reader->Read(reader->FindF("limit"), 10); // 10 when it is missing
///     reader->ExitSection(mount);
///
/// Thread-safety: one reader belongs to one thread at a time.
#pragma once

#include <string>
#include <vector>

#include "QvStd/Export.h"
#include "QvStd/Path.h"
#include "QvStd/Progress.h"
#include "QvStd/Stream.h"
#include "QvStd/Var.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniValue.h"

/// The section that was entered; null when there was none. Pass it to ExitSection.
using TQvXIniSection = const TQvXIniEntry*;

/// Reads a document section by section.
class QVSTD_API TQvXIniReader
{
public:
    /// Over a parsed document, which it keeps alive. `name` is what messages show.
    TQvXIniReader(var_a<TQvXIniTree*> tree, std::string name);
    virtual ~TQvXIniReader();
    TQvXIniReader(const TQvXIniReader&) = delete;
    TQvXIniReader& operator=(const TQvXIniReader&) = delete;

    /// The position of the first element named `name` at or after `start`; -1 when there is none.
    int FindF(const std::string& name, int start = 0) const;
    /// As FindF; throws a TQvMessage that names document, section and key when there is none.
    int FindFE(const std::string& name, int start = 0) const;
    /// The next element named `name` after `*position` (begin with -1); false, `*position`
    /// unchanged, when there is none.
    bool FindFP(const std::string& name, int* position) const;
    /// The number of elements with that name; without a name, of all elements.
    int Count(const std::string& name) const;
    /// @overload
    int Count() const;
    /// Whether there is an element at that position.
    bool Exists(int position) const { return position >= 0 && position < Count(); }
    /// Whether the element at a position is a section; false for a key and for no element.
    bool IsSection(int position) const;
    /// The name of the element at a position; "" when there is none.
    std::string Name(int position) const;

    /// The first section of that name; null (the reader stays where it is) when there is none.
    TQvXIniSection EnterSectionS(const std::string& name);
    /// As EnterSectionS; throws a TQvMessage that names document and section when there is none, or
    /// the parse error of a malformed document.
    TQvXIniSection EnterSectionSE(const std::string& name);
    /// The section at a position; null when there is no such position or it is a key.
    TQvXIniSection EnterSection(int position);
    /// Leaves `section`, and sections that were entered inside it. Null does nothing.
    void ExitSection(TQvXIniSection section);

    /// The value of the key at a position; `defaultValue` when there is no such position, or it is
    /// a section or a value that is no valid T.
    template <class T>
    T Read(int position, const T& defaultValue) const
    {
        T value = defaultValue;
        const std::string* text = ValueAt(position);
        return text != nullptr && QvXIniParseValue(*text, value) ? value : defaultValue;
    }
    /// As Read; throws a TQvMessage that names document, section and key instead of a default.
    template <class T>
    T ReadE(int position) const
    {
        T value{};
        const std::string* text = ValueAt(position);
        if (text == nullptr || !QvXIniParseValue(*text, value))
            ThrowBadValue(position);
        return value;
    }

    /// Whether the document was malformed or could not be read: then it reads as empty.
    bool ParseError() const { return !m_error.empty(); }
    /// Names the line; "" without an error.
    const std::string& ParseErrorText() const { return m_error; }

protected:
    TQvXIniReader() = default;
    /// `error` is shown as the second argument of the message `errorKey`.
    void Init(var_a<TQvXIniTree*> tree, std::string name, std::string error,
              const char* errorKey = "Err_XIniParse_name");

private:
    const std::vector<const TQvXIniEntry*>& Elements() const { return m_levels.back().Elements; }
    const TQvXIniEntry* At(int position) const;
    const std::string* ValueAt(int position) const;
    std::string WhereAmI() const;
    void ThrowIfMalformed() const;
    [[noreturn]] void ThrowBadValue(int position) const;
    void Enter(const TQvXIniEntry* section);

    struct TLevel
    {
        const TQvXIniEntry* Section;
        std::vector<const TQvXIniEntry*> Elements;
    };

    var_a<TQvXIniTree*> m_tree;
    std::string m_name;
    std::string m_error;
    const char* m_errorKey = nullptr;
    std::vector<TLevel> m_levels;
};

/// A reader over a stream, which it keeps alive.
class QVSTD_API TQvXIniStreamReader : public TQvXIniReader
{
public:
    /// Reads the stream from its start. With `readNow` false nothing is read until ReadDocument. A
    /// malformed or unreadable document does not throw here: ParseError is true then, and the ...E
    /// operations throw.
    explicit TQvXIniStreamReader(var_a<TQvStream*> stream, bool readNow = true,
                                 TQvProgressHandler* progress = nullptr);
    ~TQvXIniStreamReader() override;

    /// Reads (again) from the stream's start; false when ParseError is set then.
    bool ReadDocument(TQvProgressHandler* progress = nullptr);

private:
    var_a<TQvStream*> m_stream;
};

/// A reader over the file; throws a TQvMessage that names the file when it is missing or malformed.
/// `error` (may be null) receives the errno then, EBADMSG for a malformed one.
QVSTD_API var_a<TQvXIniReader*> GetXIniReader(const TQvPath& path, int* error = nullptr);
