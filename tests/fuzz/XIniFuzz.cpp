// Mutated X-Ini documents: none crashes the parser, what parses is written back byte for byte, and
// written anew from its names and values it still means the same. The seed is fixed, so that every
// run repeats; the argument is the number of documents.
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>

#include "QvStd/XIniTree.h"

namespace
{
const std::string kSeeds[] = {
    "; a comment\nremote=0\n[mount]\n  node=/Data\n  path=\"/srv/with space \"\n[/mount]\n",
    "\xEF\xBB\xBF[a]\r\n[b]\r\nk=\"\\x00\\\\\\\"\\n\\r\\t\"\r\n[/]\r\n[/a]\r\nlast = 1",
    "[s]\n[/]\n[s]\n; c\n\n[/s]\n\tk=\n k = \"\" \nk==\n",
};
const std::string kPieces[] = {"[",
                               "]",
                               "[/]\n",
                               "[s]\n",
                               "[/s]\n",
                               "=",
                               "\"",
                               "\\",
                               "\\x4",
                               "\n",
                               "\r",
                               "\r\n",
                               " ",
                               "\t",
                               ";",
                               "k=",
                               "/",
                               "\x7F",
                               "\xC3\xA4",
                               "\xEF\xBB\xBF",
                               std::string(1, '\0')};

class TMutator
{
public:
    std::string Next()
    {
        std::string text = kSeeds[Below(std::size(kSeeds))];
        for (std::size_t i = Below(6); i > 0; --i)
            Mutate(&text);
        return text;
    }

private:
    std::size_t Below(std::size_t limit) { return m_random() % limit; }

    void Mutate(std::string* text)
    {
        const std::size_t at = Below(text->size() + 1);
        switch (Below(4)) {
        case 0:
            text->insert(at, kPieces[Below(std::size(kPieces))]);
            break;
        case 1:
            text->erase(at, 1 + Below(8));
            break;
        case 2:
            text->insert(at, text->substr(Below(text->size() + 1), Below(40)));
            break;
        default:
            if (at < text->size())
                (*text)[at] = static_cast<char>(Below(256));
        }
    }

    std::mt19937 m_random{20240305};
};

/// Names, values and nesting alone.
std::string Meaning(const TQvXIniEntry& section)
{
    std::string text;
    for (const auto& child : section.Children) {
        if (child->Type == TQvXIniEntry::Kind::Key)
            text += "K" + child->Name + '\0' + child->Value + '\0';
        else if (child->Type == TQvXIniEntry::Kind::Section)
            text += "S" + child->Name + '\0' + Meaning(*child) + "E";
    }
    return text;
}

void ForgetLines(TQvXIniEntry& section)
{
    for (const auto& child : section.Children) {
        child->Raw.clear();
        child->RawEnd.clear();
        ForgetLines(*child);
    }
}

const char* Check(const std::string& text, bool* isValid)
{
    std::string error;
    const auto tree = QvParseXIniTree(text, &error);
    *isValid = tree != nullptr;
    if (!tree)
        return error.rfind("line ", 0) == 0 ? nullptr : "an error names no line";
    if (QvFormatXIniTree(*tree) != text)
        return "an untouched document changed";
    const std::string meaning = Meaning(tree->Root);
    ForgetLines(tree->Root);
    const std::string anew = QvFormatXIniTree(*tree);
    const auto again = QvParseXIniTree(anew, &error);
    if (!again || Meaning(again->Root) != meaning)
        return "a document written anew means something else";
    return QvFormatXIniTree(*again) == anew ? nullptr : "a second round is not stable";
}
} // namespace

int main(int argc, char** argv)
{
    const long count = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 50'000;
    TMutator mutator;
    long valid = 0;
    for (long i = 0; i < count; ++i) {
        const std::string text = mutator.Next();
        bool isValid = false;
        if (const char* fault = Check(text, &isValid)) {
            std::fprintf(stderr, "document %ld: %s:\n%s\n", i, fault, text.c_str());
            return 1;
        }
        valid += isValid ? 1 : 0;
    }
    std::printf("%ld documents, %ld of them well formed\n", count, valid);
    // A run that hardly meets valid documents, or only those, checks nothing.
    return valid > count / 20 && valid < count ? 0 : 1;
}
