#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace
{
using TKind = TQvXIniEntry::Kind;

var_a<TQvXIniTree*> Parse(const std::string& text)
{
    std::string error;
    auto tree = QvParseXIniTree(text, &error);
    EXPECT_TRUE(tree) << error;
    return tree ? tree : make_var<TQvXIniTree>();
}

/// What is thrown, as a person reads it.
template <class TCall>
std::string Thrown(const TCall& call)
{
    try {
        call();
    } catch (const TQvMessage& message) {
        return message.what();
    }
    return "<nothing>";
}

std::string Nested(int levels)
{
    std::string text;
    for (int i = 0; i < levels; ++i)
        text += "[s]\n";
    for (int i = 0; i < levels; ++i)
        text += "[/]\n";
    return text;
}

TEST(XIniTree, KeepsWhatItReadByteForByte)
{
    for (const std::string& text :
         {std::string("\n\r\n  \t\n"), std::string("\xEF\xBB\xBF; mark\r\na=1\r\n"),
          std::string(
              "  a = 1  \n[ s ]\n\tb=\"x\\x41\"\t\n ; c\n[/ s ]\n[s]\n[/]\n[s]\n[t]\n[/]\n[/s]"),
          std::string("a=1\na=2\n[a]\n[/a]\n\n; no line end"),
          std::string("\xEF\xBB\xBF\xEF\xBB\xBF=\xE4\xFF\nutf8=\xC3\xA4\na=\x01\x7F\r\r\n"),
          Nested(64)})
        EXPECT_EQ(QvFormatXIniTree(*Parse(text)), text);
}

TEST(XIniTree, UnderstandsValues)
{
    const std::pair<const char*, std::string> rows[] = {
        {"a=", ""},
        {"a= \t", ""},
        {"a = b c \r", "b c"},
        {"a=b=c", "b=c"},
        {"a=; c", "; c"},
        {"a=C:\\new \"x\"", "C:\\new \"x\""},
        {"a=\"\"", ""},
        {"a=\" b \"  ", " b "},
        {R"(a="\\\"\n\r\t\x00\xfF\x4a")", std::string("\\\"\n\r\t\0\xFF\x4A", 8)}};
    for (const auto& [text, value] : rows) {
        const auto tree = Parse(text);
        ASSERT_EQ(tree->Root.Children.size(), 1u);
        EXPECT_EQ(tree->Root.Children[0]->Name, "a") << text;
        EXPECT_EQ(tree->Root.Children[0]->Value, value) << text;
    }
}

TEST(XIniTree, ErrorsNameTheirLine)
{
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"line 3: it is no key (there is no \"=\"), no section and no comment.",
         {"a=1\r\n\r\nword\r\n", "\n\n# no comment"}},
        {"line 2: the name before the \"=\" is missing.", {"\n=1", "\n  = 1"}},
        {"line 1: a line that begins with \"[\" is \"[name]\" or \"[/name]\".",
         {"[s", "[s] ; comment", "[s]]", "[[s]", "[s=1", "["}},
        {"line 1: the name of the section is missing.", {"[]"}},
        {"line 2: the section \"s\" is never closed.", {"a=1\n[s]\n[t]\n[/]\n"}},
        {"line 3: no section is open that \"[/s]\" could close.", {"[s]\n[/s]\n[/s]\n"}},
        {"line 1: no section is open that \"[/]\" could close.", {"[/]"}},
        {"line 3: \"[/s]\" does not close the section \"S\" of line 2.", {"[s]\n[S]\n[/s]\n"}},
        {"line 2: it holds a byte 0.", {std::string("a=1\nb=\0\n", 8), std::string("\n; \0", 4)}},
        {"line 1: a value has no closing quote.", {"a=\"b", "a=\"b\\\"", "a=\""}},
        {"line 1: something follows the closing quote of a value.", {"a=\"b\" c"}},
        {"line 1: a value has a bad escape.",
         {R"(a="\q")", R"(a="\x4")", R"(a="\xG0")", R"(a="\)"}},
        {"line 65: sections are nested more than 64 levels deep.", {Nested(65)}}};
    for (const auto& [expected, texts] : rows) {
        for (const std::string& text : texts) {
            std::string error = "<well formed>";
            EXPECT_FALSE(QvParseXIniTree(text, &error)) << text;
            EXPECT_EQ(error, expected) << text;
        }
    }
}

class XIni : public testing::Test
{
protected:
    TTempFolder m_folder;
    const TQvPath m_path{m_folder / "file.x-ini"};
    const std::string m_shown = "\"" + m_path.toSysStr() + "\"";

    std::string Content() const { return ReadFile(m_path.toSysStr()); }
};

TEST_F(XIni, ReadsBackWhatWasWritten)
{
    const std::string values[] = {"",           "plain",   " lead", "trail\t",
                                  "\"quoted\"", "a\"b\\c", "\n\r",  "\x7F\xFF",
                                  "; c",        "[x]",     "=",     std::string("\0\x1F", 2)};
    auto writer = GetXIniWriter(m_path);
    const auto outer = writer->BeginSectionSE("outer");
    writer->BeginSectionSE("inner one");
    for (const std::string& value : values)
        EXPECT_TRUE(writer->WriteS("key", value));
    writer->EndSection(outer);
    EXPECT_TRUE(writer->WriteS("number", -5));
    EXPECT_TRUE(writer->WriteS("big", UINT64_MAX));
    EXPECT_TRUE(writer->WriteS("path", TQvPath("/a/b c")));
    EXPECT_FALSE(Exists(m_path.toSysStr()));
    writer->CommitE();
    EXPECT_EQ(Content().substr(0, 54),
              "[outer]\n  [inner one]\n    key=\n    key=plain\n    key=\"");

    const auto reader = GetXIniReader(m_path);
    const auto section = reader->EnterSectionSE("outer");
    reader->EnterSectionSE("inner one");
    int position = -1;
    for (const std::string& value : values) {
        ASSERT_TRUE(reader->FindFP("key", &position));
        EXPECT_EQ(reader->ReadE<std::string>(position), value);
    }
    EXPECT_FALSE(reader->FindFP("key", &position));
    EXPECT_EQ(position, reader->Count() - 1);
    reader->ExitSection(section);
    EXPECT_EQ(reader->ReadE<int>(reader->FindFE("number")), -5);
    EXPECT_EQ(reader->ReadE<std::uint64_t>(reader->FindFE("big")), UINT64_MAX);
    EXPECT_EQ(reader->Read(reader->FindF("path"), TQvPath()), TQvPath("/a/b c"));
}

TEST(XIniValue, NumbersAreDecimalWholeAndInRange)
{
    std::int32_t value = 7;
    for (const char* text : {"", " 1", "1 ", "+1", "0x1", "1.0", "2147483648", "-2147483649"})
        EXPECT_FALSE(QvXIniParseValue(text, value)) << text;
    EXPECT_EQ(value, 7);
    std::uint32_t natural = 7;
    EXPECT_FALSE(QvXIniParseValue("-1", natural));
    EXPECT_TRUE(QvXIniParseValue("4294967295", natural));
}

TEST_F(XIni, TheReaderWalksPositionsAndNamesWhatIsMissing)
{
    m_folder.Write("file.x-ini", "a=1\n; c\n[s]\nb=x\n[t]\n[/]\n[/s]\na=2\n[a]\n[/]\n");
    const auto reader = GetXIniReader(m_path);
    EXPECT_EQ(reader->Count(), 4);
    EXPECT_EQ(reader->Count("a"), 3);
    EXPECT_EQ(reader->FindF("a", 1), 2);
    EXPECT_EQ(reader->FindF("a", -9), 0);
    EXPECT_EQ(reader->FindF("b"), -1);
    EXPECT_EQ(reader->Name(1) + reader->Name(4), "s");
    EXPECT_EQ(reader->EnterSection(0), nullptr) << "a key";
    EXPECT_EQ(reader->EnterSection(-1), nullptr);
    EXPECT_EQ(reader->Read(1, std::string("default")), "default") << "a section";
    EXPECT_EQ(Thrown([&] { reader->FindFE("b"); }), m_shown + " has no key \"b\".");

    const auto section = reader->EnterSectionSE("s");
    EXPECT_EQ(reader->Read(0, 5), 5) << "no number";
    EXPECT_EQ(Thrown([&] { reader->ReadE<int>(0); }),
              m_shown + ": the value of \"s/b\" cannot be used.");
    EXPECT_EQ(Thrown([&] { reader->ReadE<int>(9); }), m_shown + " has no key \"s/#9\".");
    ASSERT_NE(reader->EnterSection(1), nullptr);
    EXPECT_EQ(Thrown([&] { reader->EnterSectionSE("u"); }), m_shown + " has no section \"s/t/u\".");
    reader->ExitSection(nullptr);
    EXPECT_EQ(reader->Count(), 0);
    reader->ExitSection(section);
    EXPECT_EQ(reader->Count(), 4);
}

TEST_F(XIni, MissingAndMalformedFilesAreNamed)
{
    EXPECT_EQ(Thrown([&] { GetXIniReader(m_path); }), m_shown + " cannot be opened for reading.");
    m_folder.Write("file.x-ini", "a=1\nword\n");
    const std::string malformed =
        m_shown +
        " is not well formed: line 2: it is no key (there is no \"=\"), no section and no comment.";
    EXPECT_EQ(Thrown([&] { GetXIniReader(m_path); }), malformed);
    EXPECT_FALSE(ReadQvXIniTree(m_path));

    const auto stream = make_var<TQvFileStream>(m_path, kQvOpenReadWrite, kQvShareAll);
    stream->SetInfoName(m_path.toSysStr());
    TQvXIniStreamReader reader(stream);
    EXPECT_TRUE(reader.ParseError());
    EXPECT_EQ(reader.Count(), 0);
    EXPECT_EQ(Thrown([&] { reader.EnterSectionSE("s"); }), malformed);
    EXPECT_EQ(Thrown([&] { reader.FindFE("a"); }), malformed);

    ASSERT_TRUE(stream->setSize(4)); // it is read from its start again
    EXPECT_TRUE(reader.ReadDocument());
    EXPECT_EQ(reader.ReadE<int>(reader.FindFE("a")), 1);
    stream->Close();
    EXPECT_FALSE(reader.ReadDocument());
    EXPECT_EQ(Thrown([&] { reader.FindFE("a"); }),
              m_shown + " cannot be read: Bad file descriptor.");
}

TEST_F(XIni, TheTreeWriterChangesOnlyWhatItIsAskedTo)
{
    const auto tree = Parse("; head\r\n\tkey = \"old\"  \r\n[s]\n\n  same=\"1\"\n  [t]\n  [/]\n"
                            "[/s]\ngone=1\n; stays\n[gone]\nx=1\n[/]\nempty=\r\nlast= 1");
    TQvXIniTreeWriter writer(tree);
    EXPECT_TRUE(writer.Write(writer.FindF("key"), std::string("new ")));
    EXPECT_TRUE(writer.WriteS("empty", 5));
    EXPECT_TRUE(writer.WriteS("last", 2));
    EXPECT_TRUE(writer.Delete(writer.FindF("gone", TKind::Section)));
    EXPECT_TRUE(writer.Delete(writer.FindF("gone")));
    EXPECT_EQ(writer.FindF("gone"), -1);
    ASSERT_TRUE(writer.OpenSection(writer.FindCreateF("s", TKind::Section)));
    EXPECT_TRUE(writer.WriteS("same", 1)); // its quotes stay
    ASSERT_TRUE(writer.OpenSection(writer.FindF("t", TKind::Section)));
    EXPECT_TRUE(writer.WriteS("added", std::string("1")));
    EXPECT_TRUE(writer.ExitSection());
    EXPECT_TRUE(writer.ExitSection());
    EXPECT_FALSE(writer.ExitSection());
    EXPECT_EQ(writer.FindCreateF("s", TKind::Section), 1);
    EXPECT_EQ(writer.FindCreateF("u", TKind::Section), 4);
    const std::string expected =
        "; head\r\n\tkey = \"new \"\r\n[s]\n\n  same=\"1\"\n  [t]\n"
        "    added=1\n  [/]\n[/s]\n; stays\nempty=5\r\nlast= 2\n[u]\n[/u]\n";
    EXPECT_EQ(QvFormatXIniTree(*tree), expected);

    EXPECT_FALSE(writer.Write(1, 1)) << "a section";
    EXPECT_FALSE(writer.Write(-1, 1));
    EXPECT_FALSE(writer.Delete(-1));
    EXPECT_FALSE(writer.OpenSection(0)) << "a key";
    EXPECT_EQ(writer.FindCreateF("a=b"), -1);
    EXPECT_EQ(QvFormatXIniTree(*tree), expected);
    WriteQvXIniTreeE(m_path, *tree);
    EXPECT_EQ(Content(), expected);
}

TEST_F(XIni, NamesThatWouldNotComeBackAreRefused)
{
    m_folder.Write("file.x-ini", "old");
    const std::string prefix = m_shown + " cannot be written: ";
    for (const std::string name : {"", " a", "a\t", "a=b", ";a", "[a", "a\nb"}) {
        const auto writer = GetXIniWriter(m_path);
        EXPECT_FALSE(writer->WriteS(name, 1)) << name;
        const std::string reason =
            name.empty() ? "a key has no name." : "\"" + name + "\" cannot be the name of a key.";
        EXPECT_EQ(Thrown([&] { writer->CommitE(); }), prefix + reason) << "it would be incomplete";
    }
    for (const char* name : {"", "/a", "a[", "a]", "a\rb"})
        EXPECT_THROW(GetXIniWriter(m_path)->BeginSectionSE(name), TQvMessage) << name;
    const auto writer = GetXIniWriter(m_path);
    for (int i = 0; i < 64; ++i)
        writer->BeginSectionSE("s");
    EXPECT_EQ(Thrown([&] { writer->BeginSectionSE("s"); }),
              prefix + "sections would be nested more than 64 levels deep.");
    EXPECT_EQ(Content(), "old");
}

TEST_F(XIni, AWriterThatGoesCommitsUnlessSomethingIsWrong)
{
    const auto write = [this](bool isRefused, bool throws) {
        const auto writer = GetXIniWriter(m_path);
        writer->WriteS("a", isRefused || throws ? 2 : 1);
        if (isRefused)
            writer->WriteS("", 1);
        if (throws)
            throw std::runtime_error("passing");
    };
    write(false, false);
    EXPECT_EQ(Content(), "a=1\n");
    write(true, false);
    EXPECT_THROW(write(false, true), std::runtime_error);
    EXPECT_EQ(Content(), "a=1\n");

    m_folder.Write("file.x-ini", "long old content");
    const auto stream = make_var<TQvFileStream>(m_path, kQvOpenWrite, kQvShareAll);
    ASSERT_TRUE(stream->setPosition(5));
    TQvXIniStreamWriter writer(stream);
    writer.WriteS("a", 1);
    writer.CommitE();
    EXPECT_EQ(Content(), "a=1\n");
    EXPECT_FALSE(writer.WriteS("b", 1)) << "already committed";
}

TEST_F(XIni, AFailedWriteLeavesTheOldFileAndTells)
{
    m_folder.Write("file.x-ini", "old=1\n");
    EXPECT_TRUE(PassesInChild([this] {
        LimitFileSize(100);
        const std::string told = m_shown + " cannot be written: File too large.";
        const auto writer = GetXIniWriter(m_path);
        writer->WriteS("new", std::string(200, 'x'));
        EXPECT_EQ(Thrown([&] { writer->CommitE(); }), told);
        const auto tree = Parse("new=" + std::string(200, 'x'));
        EXPECT_EQ(Thrown([&] { WriteQvXIniTreeE(m_path, *tree); }), told);
    }));
    EXPECT_EQ(Content(), "old=1\n");
    EXPECT_EQ(NamesIn(m_folder.Path()).size(), 1u);

    const auto closed = make_var<TQvFileStream>();
    TQvXIniStreamWriter writer(closed);
    EXPECT_EQ(Thrown([&] { writer.CommitE(); }), "\"\" cannot be written: the stream is not open.");
    EXPECT_FALSE(WriteQvXIniTree(closed.get(), *Parse("a=1")));
    EXPECT_FALSE(ReadQvXIniTree(closed.get()));
}
} // namespace
