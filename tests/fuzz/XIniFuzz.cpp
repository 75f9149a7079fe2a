// Mutated X-Ini documents: none crashes the parser, what parses is written back byte for byte, and
// written anew from its names and values it still means the same. The seed is fixed, so that every
// run repeats.
#include <cstdio>
#include <iterator>
#include <random>
#include <string>

#include "QvStd/XIniTree.h"

namespace
{
const char* const kSeeds[] = {
    "; a comment\nremote=0\n[mount]\n  node=/Data\n  path=\"/srv/with space \"\n[/mount]\n",
    "\xEF\xBB\xBF[a]\r\n[b]\r\nk=\"\\x00\\\\\\\"\\n\\r\\t\"\r\n[/]\r\n[/a]\r\nlast = 1",
    "[s]\n[/]\n[s]\n; c\n\n[/s]\n\tk=\n k = \"\" \nk==\n",
    "\n\r\n  \t\n[ s ]\n\tb=\"x\\x41\"\t\n[/ s ]\nlatin1=\xE4\xFF\na=\x01\x7F\r\r\n; no line end"};
const char* const kPieces[] = {"[",  "]",    "[/]\n", "[s]\n", "[/s]\n",   "=",           "\"",
                               "\\", "\\x4", "\n",    "\r",    "\r\n",     " ",           "\t",
                               ";",  "k=",   "/",     "\x7F",  "\xC3\xA4", "\xEF\xBB\xBF"};
std::mt19937 random{20240305};

std::size_t Below(std::size_t limit)
{
    return random() % limit;
}

void Mutate(std::string* text)
{
    const std::size_t at = Below(text->size() + 1);
    const std::size_t kind = Below(4);
    if (kind == 0)
        text->insert(at, kPieces[Below(std::size(kPieces))]);
    else if (kind == 1)
        text->erase(at, 1 + Below(8));
    else if (kind == 2)
        text->insert(at, text->substr(Below(text->size() + 1), Below(40)));
    else if (at < text->size())
        (*text)[at] = static_cast<char>(Below(256));
}

/// Names, values and nesting alone; forgets the lines that were read.
std::string TakeMeaning(TQvXIniEntry& section)
{
    std::string text;
    for (const auto& child : section.Children) {
        child->Raw.clear();
        child->RawEnd.clear();
        if (child->Type == TQvXIniEntry::Kind::Key)
            text += "K" + child->Name + '\0' + child->Value + '\0';
        else if (child->Type == TQvXIniEntry::Kind::Section)
            text += "S" + child->Name + '\0' + TakeMeaning(*child) + "E";
    }
    return text;
}

const char* Check(const std::string& text, long* valid)
{
    std::string error;
    const auto tree = QvParseXIniTree(text, &error);
    if (!tree)
        return error.rfind("line ", 0) == 0 ? nullptr : "an error names no line";
    ++*valid;
    if (QvFormatXIniTree(*tree) != text)
        return "an untouched document changed";
    const std::string meaning = TakeMeaning(tree->Root);
    const std::string anew = QvFormatXIniTree(*tree);
    const auto again = QvParseXIniTree(anew, &error);
    if (!again || QvFormatXIniTree(*again) != anew)
        return "a second round is not stable";
    return TakeMeaning(again->Root) == meaning ? nullptr
                                               : "a document written anew means something else";
}
} // namespace

int main()
{
    constexpr long kCount = 50'000;
    long valid = 0;
    for (long i = 0; i < kCount; ++i) {
        std::string text = kSeeds[Below(std::size(kSeeds))];
        for (std::size_t mutations = Below(6); mutations > 0; --mutations)
            Mutate(&text);
        if (const char* fault = Check(text, &valid)) {
            std::fprintf(stderr, "document %ld: %s:\n%s\n", i, fault, text.c_str());
            return 1;
        }
    }
    std::printf("%ld documents, %ld of them well formed\n", kCount, valid);
    // A run that hardly meets valid documents, or only those, checks nothing.
    return valid > kCount / 20 && valid < kCount ? 0 : 1;
}
