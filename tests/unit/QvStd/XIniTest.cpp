#include <gtest/gtest.h>
#include <stdexcept>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"
#include "support/TempFolder.h"
#include "support/Thrown.h"

namespace
{
using TKind = TQvXIniEntry::Kind;

class XIni : public testing::Test
{
protected:
    static var_a<TQvXIniTree*> Parse(const std::string& text)
    {
        auto tree = QvParseXIniTree(text, nullptr);
        return tree ? tree : throw std::invalid_argument(text);
    }
    /// What is thrown, as a person reads it, without the name of the file before it.
    template <class TCall>
    std::string Told(const TCall& call) const
    {
        const std::string name = "\"" + m_path.toSysStr() + "\"";
        const std::string text = Thrown(call).what();
        return text.compare(0, name.size(), name) == 0 ? text.substr(name.size()) : text;
    }
    std::string Content() const { return ReadFile(m_path.toSysStr()); }

    TTempFolder m_folder;
    const TQvPath m_path{m_folder.Write("file.x-ini", "old=1\n")};
};

TEST_F(XIni, ErrorsNameTheirLine)
{
    std::string deep;
    for (int i = 0; i < 64; ++i)
        deep = "[s]\n" + deep + "[/]\n";
    EXPECT_EQ(QvFormatXIniTree(*Parse(deep)), deep);
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"line 3: expected name=value, [section] or a comment.",
         {"a=1\r\n\r\nword\r\n", "\n\n# no comment"}},
        {"line 2: the name before the \"=\" is missing.", {"\n  = 1"}},
        {"line 1: a line that begins with \"[\" is \"[name]\" or \"[/name]\".",
         {"[s", "[s] ; comment", "[s]]", "[[s]", "[s=1", "["}},
        {"line 1: the name of the section is missing.", {"[]"}},
        {"line 2: the section \"s\" is never closed.", {"a=1\n[s]\n[t]\n[/]\n"}},
        {"line 3: no section is open that \"[/s]\" could close.", {"[s]\n[/s]\n[/s]\n"}},
        {"line 1: no section is open that \"[/]\" could close.", {"[/]"}},
        {"line 3: \"[/s]\" does not close the section \"S\" of line 2.", {"[s]\n[S]\n[/s]\n"}},
        {"line 2: it contains a byte 0.",
         {std::string("a=1\nb=\0\n", 8), std::string("\n; \0", 4)}},
        {"line 1: a value has no closing quote.", {"a=\"b\\\"", "a=\""}},
        {"line 1: something follows the closing quote of a value.", {"a=\"b\" c"}},
        {"line 1: a value has a bad escape.",
         {R"(a="\q")", R"(a="\x4")", R"(a="\xG0")", R"(a="\)"}},
        {"line 65: sections are nested more than 64 levels deep.", {deep.substr(0, 256) + "[s]"}}};
    for (const auto& [expected, texts] : rows) {
        for (const std::string& text : texts) {
            std::string error;
            EXPECT_FALSE(QvParseXIniTree(text, &error)) << text;
            EXPECT_EQ(error, expected) << text;
        }
    }
}

TEST_F(XIni, UnderstandsValues)
{
    const std::pair<const char*, std::string> rows[] = {
        {"a= \t", ""},
        {"a=\"\"", ""},
        {"a = b c \r", "b c"},
        {"a=b=c", "b=c"},
        {"a=; c", "; c"},
        {"a=C:\\new \"x\"", "C:\\new \"x\""},
        {"a=\" b \"  ", " b "},
        {R"(a="\\\"\n\r\t\x00\xfF\x4a")", std::string("\\\"\n\r\t\0\xFF\x4A", 8)}};
    for (const auto& [text, expected] : rows)
        EXPECT_EQ(Parse(text)->Root.Children.at(0)->Value, expected) << text;
    std::int32_t number = 7;
    for (const char* text : {"", " 1", "1 ", "+1", "0x1", "1.0", "2147483648", "-2147483649"})
        EXPECT_FALSE(QvXIniParseValue(text, number)) << text;
    EXPECT_EQ(number, 7);
    EXPECT_TRUE(QvXIniParseValue("-2147483648", number));
    std::uint32_t natural = 7;
    EXPECT_FALSE(QvXIniParseValue("-1", natural));
    EXPECT_TRUE(QvXIniParseValue("4294967295", natural));
}

TEST_F(XIni, WritesNothingBeforeTheCommit)
{
    auto writer = GetXIniWriter(m_path);
    const auto outer = writer->BeginSectionSE("outer");
    writer->BeginSectionSE("inner one");
    for (const std::string value : {"", " lead", "a\"b\\c", "\n\r"})
        EXPECT_TRUE(writer->WriteS("key", value));
    writer->EndSection(outer);
    EXPECT_TRUE(writer->WriteS("big", UINT64_MAX));
    EXPECT_EQ(Content(), "old=1\n") << "not yet committed";
    writer->CommitE();
    EXPECT_EQ(Content(), "[outer]\n  [inner one]\n    key=\n    key=\" lead\"\n    key=a\"b\\c\n"
                         "    key=\"\\n\\r\"\n  [/inner one]\n[/outer]\n"
                         "big=18446744073709551615\n");
}

TEST_F(XIni, TheReaderWalksPositionsAndNamesWhatIsMissing)
{
    m_folder.Write("file.x-ini", "a=1\n; c\n[s]\nb=x\n[t]\n[/]\n[/s]\na=2\n[a]\n[/]\n");
    const auto reader = GetXIniReader(m_path);
    EXPECT_EQ(reader->Count(), 4);
    EXPECT_EQ(reader->Count("a"), 3);
    EXPECT_EQ(reader->FindF("a", 1), 2);
    EXPECT_EQ(reader->FindF("a", -9), 0);
    int position = 0;
    EXPECT_TRUE(reader->FindFP("a", &position));
    EXPECT_TRUE(reader->FindFP("a", &position));
    EXPECT_FALSE(reader->FindFP("a", &position));
    EXPECT_EQ(position, 3) << "it stays where it was";
    EXPECT_FALSE(reader->EnterSection(0)) << "a key";
    EXPECT_FALSE(reader->EnterSection(-1));
    EXPECT_EQ(reader->Read(1, std::string("default")), "default") << "a section";
    EXPECT_EQ(Told([&] { reader->FindFE("b"); }), " has no key \"b\".");
    const auto section = reader->EnterSectionSE("s");
    EXPECT_EQ(reader->Read(0, 5), 5) << "no number";
    EXPECT_EQ(Told([&] { reader->ReadE<int>(0); }), ": the value of \"s/b\" cannot be used.");
    EXPECT_EQ(Told([&] { reader->ReadE<int>(9); }), " has no key \"s/#9\".");
    ASSERT_TRUE(reader->EnterSection(1));
    EXPECT_EQ(Told([&] { reader->EnterSectionSE("u"); }), " has no section \"s/t/u\".");
    reader->ExitSection(nullptr);
    EXPECT_EQ(reader->Count(), 0);
    reader->ExitSection(section);
    EXPECT_EQ(reader->Count(), 4);
}

TEST_F(XIni, MissingAndMalformedFilesAreNamed)
{
    m_folder.Write("file.x-ini", "a=1\n[]\n");
    const std::string bad = " is not well formed: line 2: the name of the section is missing.";
    EXPECT_EQ(Told([&] { GetXIniReader(m_path); }), bad);
    EXPECT_FALSE(ReadQvXIniTree(m_path));
    const auto stream = make_var<TQvFileStream>(m_path, kQvOpenReadWrite, kQvShareAll);
    stream->SetInfoName(m_path.toSysStr());
    TQvXIniStreamReader reader(stream);
    EXPECT_TRUE(reader.ParseError());
    EXPECT_EQ(Told([&] { reader.EnterSectionSE("s"); }), bad);
    EXPECT_EQ(Told([&] { reader.FindFE("a"); }), bad);
    ASSERT_TRUE(stream->setSize(4)); // it is read from its start again
    EXPECT_TRUE(reader.ReadDocument());
    EXPECT_EQ(reader.ReadE<int>(reader.FindFE("a")), 1);
    stream->Close();
    EXPECT_FALSE(reader.ReadDocument());
    EXPECT_FALSE(ReadQvXIniTree(stream.get()));
    EXPECT_EQ(Told([&] { reader.FindFE("a"); }), " cannot be read: Bad file descriptor.");
    ASSERT_EQ(std::remove(m_path.toSysStr().c_str()), 0);
    EXPECT_EQ(Told([&] { GetXIniReader(m_path); }), " cannot be opened for reading.");
}

TEST_F(XIni, TheTreeWriterKeepsAllOtherEntries)
{
    const auto tree = Parse("; head\r\n\tkey = \"old\"  \r\n[s]\n\n  same=\"1\"\n  [t]\n  [/]\n"
                            "[/s]\ngone=1\n; stays\n[gone]\nx=1\n[/]\nempty=\r\nlast= 1");
    TQvXIniTreeWriter writer(tree);
    EXPECT_TRUE(writer.Write(writer.FindF("key"), std::string("new ")));
    EXPECT_TRUE(writer.WriteS("empty", 5));
    EXPECT_TRUE(writer.WriteS("last", 2));
    EXPECT_TRUE(writer.Delete(writer.FindF("gone", TKind::Section)));
    EXPECT_TRUE(writer.Delete(writer.FindF("gone")));
    ASSERT_TRUE(writer.OpenSection(writer.FindCreateF("s", TKind::Section)));
    EXPECT_TRUE(writer.WriteS("same", 1)) << "its quotes stay";
    ASSERT_TRUE(writer.OpenSection(writer.FindF("t", TKind::Section)));
    EXPECT_TRUE(writer.WriteS("added", std::string("1")));
    for (const bool isInside : {true, true, false})
        EXPECT_EQ(writer.ExitSection(), isInside);
    EXPECT_EQ(writer.FindCreateF("u", TKind::Section), 4);
    EXPECT_FALSE(writer.Write(1, 1)) << "a section";
    EXPECT_FALSE(writer.OpenSection(0)) << "a key";
    EXPECT_FALSE(writer.Write(-1, 1));
    EXPECT_FALSE(writer.Delete(-1));
    EXPECT_EQ(writer.FindCreateF("a=b"), -1);
    WriteQvXIniTreeE(m_path, *tree);
    EXPECT_EQ(Content(),
              "; head\r\n\tkey = \"new \"\r\n[s]\n\n  same=\"1\"\n  [t]\n    added=1\n  [/]\n"
              "[/s]\n; stays\nempty=5\r\nlast= 2\n[u]\n[/u]\n");
}

TEST_F(XIni, ADocumentWithARefusedEntryIsNotCommitted)
{
    for (const std::string name : {" a", "a\t", "a=b", ";a", "[a", "a\nb"}) {
        const auto writer = GetXIniWriter(m_path);
        EXPECT_FALSE(writer->WriteS(name, 1)) << name;
        EXPECT_EQ(Told([&] { writer->CommitE(); }),
                  " cannot be written: \"" + name + "\" cannot be the name of a key.");
    }
    for (const char* name : {"", "/a", "a[", "a]", "a\rb"})
        EXPECT_THROW(GetXIniWriter(m_path)->BeginSectionSE(name), TQvMessage) << name;
    const auto deep = GetXIniWriter(m_path);
    for (int i = 0; i < 64; ++i)
        deep->BeginSectionSE("s");
    EXPECT_EQ(Told([&] { deep->BeginSectionSE("s"); }),
              " cannot be written: sections would be nested more than 64 levels deep.");

    const auto write = [this](const char* name, bool throws) {
        const auto writer = GetXIniWriter(m_path);
        writer->WriteS(name, 1);
        if (throws)
            throw TQvUserBreak();
    };
    write("", false);
    EXPECT_THROW(write("b", true), TQvUserBreak);
    EXPECT_EQ(Content(), "old=1\n");
    write("b", false);
    EXPECT_EQ(Content(), "b=1\n") << "destroying a writer commits";
    const TQvPath nowhere(m_folder / "no/file");
    EXPECT_THROW(GetXIniWriter(nowhere)->CommitE(), TQvMessage);
    EXPECT_THROW(WriteQvXIniTreeE(nowhere, *Parse("")), TQvMessage);
}
} // namespace
