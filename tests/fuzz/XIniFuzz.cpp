// X-Ini documents: none crashes the parser, a malformed one is named with its line, what parses is
// written back byte for byte, and written anew from its names and values it still means the same.
#include "Fuzz.h"

#include "QvStd/XIniTree.h"

namespace
{
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
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string error;
    const auto tree = QvParseXIniTree(text, &error);
    if (!tree) {
        Require(error.rfind("line ", 0) == 0, "an error names its line");
        return 0;
    }
    Require(QvFormatXIniTree(*tree) == text, "an untouched document stays");
    const std::string meaning = TakeMeaning(tree->Root);
    const std::string anew = QvFormatXIniTree(*tree);
    const auto again = QvParseXIniTree(anew, &error);
    Require(again != nullptr, "a document written anew parses");
    Require(QvFormatXIniTree(*again) == anew, "a second round is stable");
    Require(TakeMeaning(again->Root) == meaning, "a document written anew means the same");
    return 0;
}
