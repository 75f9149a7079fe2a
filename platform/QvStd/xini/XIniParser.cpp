// The text of an X-Ini document to and from its tree.

#include <algorithm>
#include <cassert>

#include "QvStd/XIniTree.h"
#include "QvStd/xini/XIniFormat.h"

namespace
{
std::string Quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

/// Parses the document line by line, in place. The Take... functions return the fault of the line,
/// "" when there is none.
class TParser
{
public:
    explicit TParser(TQvXIniTree& tree) { m_open.push_back({&tree.Root, 0}); }

    /// False with a sentence that names the line.
    bool Parse(std::string_view text, std::string* error)
    {
        while (!text.empty()) {
            const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
            ++m_line;
            const std::string fault = TakeLine(text.substr(0, size));
            if (!fault.empty())
                return Fail(m_line, fault, error);
            text.remove_prefix(size);
        }
        if (m_open.size() == 1)
            return true;
        return Fail(m_open.back().Line,
                    "the section " + Quoted(m_open.back().Section->Name) + " is never closed.",
                    error);
    }

private:
    struct TOpenSection
    {
        TQvXIniEntry* Section;
        std::size_t Line;
    };

    static bool Fail(std::size_t line, const std::string& fault, std::string* error)
    {
        *error = "line " + std::to_string(line) + ": " + fault;
        return false;
    }

    std::string TakeLine(std::string_view raw)
    {
        // Binary files end here, and C functions would cut such a value.
        if (raw.find('\0') != std::string_view::npos)
            return "it contains a byte 0.";
        const std::string_view content = XIniTrim(raw.substr(0, raw.size() - XIniLineEndSize(raw)));
        if (content.empty() || content.front() == ';') {
            Append(TQvXIniEntry::Kind::Other, {}, raw);
            return {};
        }
        return content.front() == '[' ? TakeBrackets(content, raw) : TakeKey(content, raw);
    }

    std::string TakeKey(std::string_view content, std::string_view raw)
    {
        const std::size_t equals = content.find('=');
        if (equals == std::string_view::npos)
            return "expected name=value, [section] or a comment.";
        const std::string_view name = XIniTrim(content.substr(0, equals));
        if (name.empty())
            return "the name before the \"=\" is missing.";
        TQvXIniEntry& key = Append(TQvXIniEntry::Kind::Key, name, raw);
        const char* const fault = XIniUnquote(XIniTrim(content.substr(equals + 1)), &key.Value);
        return fault == nullptr ? "" : fault;
    }

    std::string TakeBrackets(std::string_view content, std::string_view raw)
    {
        if (content.find_first_of("[]", 1) != content.size() - 1 || content.back() != ']')
            return "a line that begins with \"[\" is \"[name]\" or \"[/name]\".";
        const std::string_view name = content.substr(1, content.size() - 2);
        if (name.empty())
            return "the name of the section is missing.";
        if (name.front() == '/')
            return CloseSection(name.substr(1), raw);
        // Formatting and callers recurse: a hostile file must not exhaust the stack.
        if (m_open.size() > kXIniMaxLevels)
            return "sections are nested more than 64 levels deep.";
        m_open.push_back({&Append(TQvXIniEntry::Kind::Section, name, raw), m_line});
        return {};
    }

    std::string CloseSection(std::string_view name, std::string_view raw)
    {
        if (m_open.size() == 1)
            return "no section is open that " + Quoted("[/" + std::string(name) + "]") +
                   " could close.";
        const TOpenSection& open = m_open.back();
        if (!name.empty() && name != open.Section->Name)
            return Quoted("[/" + std::string(name) + "]") + " does not close the section " +
                   Quoted(open.Section->Name) + " of line " + std::to_string(open.Line) + ".";
        assert(open.Section != m_open.front().Section); // the top level has no end
        open.Section->RawEnd = raw;
        m_open.pop_back();
        return {};
    }

    TQvXIniEntry& Append(TQvXIniEntry::Kind kind, std::string_view name, std::string_view raw)
    {
        assert(!m_open.empty());
        auto& entries = m_open.back().Section->Children;
        entries.push_back(std::make_unique<TQvXIniEntry>());
        TQvXIniEntry& entry = *entries.back();
        entry.Type = kind;
        entry.Name = name;
        entry.Raw = raw;
        return entry;
    }

    std::vector<TOpenSection> m_open; ///< the top level first
    std::size_t m_line = 0;
};

class TFormatter
{
public:
    void AppendChildren(const TQvXIniEntry& section, std::size_t level)
    {
        for (const auto& child : section.Children)
            AppendEntry(*child, level);
    }
    std::string Text;

private:
    void AppendEntry(const TQvXIniEntry& entry, std::size_t level)
    {
        switch (entry.Type) {
        case TQvXIniEntry::Kind::Other:
            // A parsed line is written back byte for byte; only new and changed ones are formatted.
            AppendLine(entry.Raw, level, {});
            break;
        case TQvXIniEntry::Kind::Key:
            AppendLine(entry.Raw, level,
                       entry.Raw.empty() ? entry.Name + "=" + XIniQuote(entry.Value) : "");
            break;
        case TQvXIniEntry::Kind::Section:
            AppendLine(entry.Raw, level, "[" + entry.Name + "]");
            AppendChildren(entry, level + 1);
            AppendLine(entry.RawEnd, level, "[/" + entry.Name + "]");
            break;
        }
    }

    void AppendLine(const std::string& raw, std::size_t level, const std::string& content)
    {
        // The last line of a parsed document may lack its line end.
        if (!Text.empty() && Text.back() != '\n')
            Text += '\n';
        if (raw.empty())
            Text.append(content.empty() ? 0 : 2 * level, ' ').append(content).append("\n");
        else
            Text += raw;
    }
};

bool StartsWithMark(const std::string& text)
{
    return text.compare(0, kXIniByteOrderMark.size(), kXIniByteOrderMark) == 0;
}
} // namespace

var_a<TQvXIniTree*> QvParseXIniTree(const std::string& text, std::string* error)
{
    auto tree = make_var<TQvXIniTree>();
    std::string_view rest = text;
    tree->HasByteOrderMark = StartsWithMark(text);
    if (tree->HasByteOrderMark)
        rest.remove_prefix(kXIniByteOrderMark.size());
    std::string fault;
    if (TParser(*tree).Parse(rest, &fault))
        return tree;
    if (error != nullptr)
        *error = fault;
    return nullptr;
}

std::string QvFormatXIniTree(const TQvXIniTree& tree)
{
    TFormatter formatter;
    formatter.AppendChildren(tree.Root, 0);
    // When the first name begins with these bytes, a reader would take them for a mark: write a
    // mark before them.
    if (tree.HasByteOrderMark || StartsWithMark(formatter.Text))
        formatter.Text.insert(0, kXIniByteOrderMark);
    return std::move(formatter.Text);
}
