#include <csignal>
#include <gtest/gtest.h>
#include <iterator>
#include <stdexcept>
#include <sys/resource.h>

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

std::string ParseError(const std::string& text)
{
    std::string error;
    return QvParseXIniTree(text, &error) ? "<well formed>" : error;
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
    const std::string documents[] = {
        "",
        "\n\r\n  \t\n",
        "\xEF\xBB\xBF; mark\r\na=1\r\n",
        "\xEF\xBB\xBF\xEF\xBB\xBF"
        "a=1",
        "  a = 1  \n[ s ]\n\tb=\"x\\x41\"\t\n ; c\n[/ s ]\n[s]\n[/]\n[s]\n[t]\n[/]\n[/s]",
        "a=1\na=2\n[a]\n[/a]\n\n; no line end",
        "latin1=\xE4\xFF\nutf8=\xC3\xA4\na=\x01\x7F\r\r\n",
        Nested(64),
    };
    for (const std::string& text : documents)
        EXPECT_EQ(QvFormatXIniTree(*Parse(text)), text);
}

TEST(XIniTree, UnderstandsValues)
{
    const std::pair<const char*, std::string> rows[] = {
        {"a=", ""},
        {"a= \t", ""},
        {"a = b c \r", "b c"},
        {"a=b=c", "b=c"},
        {"a=; no comment", "; no comment"},
        {"a=C:\\new \"x\"", "C:\\new \"x\""},
        {"a=\"\"", ""},
        {"a=\" b \"  ", " b "},
        {R"(a="\\\"\n\r\t\x00\xfF\x4a")", std::string("\\\"\n\r\t\0\xFF\x4A", 8)},
    };
    for (const auto& [text, value] : rows) {
        const auto tree = Parse(text);
        ASSERT_EQ(tree->Root.Children.size(), 1u);
        EXPECT_EQ(tree->Root.Children[0]->Name, "a") << text;
        EXPECT_EQ(tree->Root.Children[0]->Value, value) << text;
    }
}

TEST(XIniTree, ErrorsNameTheirLine)
{
    const std::string noKey = "it is no key (there is no \"=\"), no section and no comment.";
    const std::string noBrackets = "a line that begins with \"[\" is \"[name]\" or \"[/name]\".";
    const std::string tooDeep = "sections are nested more than 64 levels deep.";
    const std::pair<std::string, std::string> rows[] = {
        {"a=1\r\n\r\nword\r\n", "line 3: " + noKey},
        {"\n# no comment", "line 2: " + noKey},
        {"=1", "line 1: the name before the \"=\" is missing."},
        {"\n  = 1", "line 2: the name before the \"=\" is missing."},
        {"[s", "line 1: " + noBrackets},
        {"[s] ; comment", "line 1: " + noBrackets},
        {"[s]]", "line 1: " + noBrackets},
        {"[[s]", "line 1: " + noBrackets},
        {"[s=1", "line 1: " + noBrackets},
        {"[", "line 1: " + noBrackets},
        {"[]", "line 1: the name of the section is missing."},
        {"a=1\n[s]\n[t]\n[/]\n", "line 2: the section \"s\" is never closed."},
        {"[s]\n[/s]\n[/s]\n", "line 3: no section is open that \"[/s]\" could close."},
        {"[/]", "line 1: no section is open that \"[/]\" could close."},
        {"[s]\n[S]\n[/s]\n", "line 3: \"[/s]\" does not close the section \"S\" of line 2."},
        {std::string("a=1\nb=\0\n", 8), "line 2: it holds a byte 0."},
        {std::string("; \0", 3), "line 1: it holds a byte 0."},
        {"a=\"b", "line 1: a value has no closing quote."},
        {"a=\"b\\\"", "line 1: a value has no closing quote."},
        {"a=\"", "line 1: a value has no closing quote."},
        {"a=\"b\" c", "line 1: something follows the closing quote of a value."},
        {"a=\"\\q\"", "line 1: a value has a bad escape."},
        {"a=\"\\x4\"", "line 1: a value has a bad escape."},
        {"a=\"\\xG0\"", "line 1: a value has a bad escape."},
        {"a=\"\\", "line 1: a value has a bad escape."},
        {Nested(65), "line 65: " + tooDeep},
    };
    for (const auto& [text, error] : rows)
        EXPECT_EQ(ParseError(text), error) << text;
}

class XIni : public testing::Test
{
protected:
    TTempFolder m_folder;
    const TQvPath m_path{m_folder / "file.x-ini"};
};

TEST_F(XIni, ReadsBackWhatWasWritten)
{
    const std::string values[] = {"",
                                  "plain",
                                  " lead",
                                  "trail\t",
                                  "\"quoted\"",
                                  "a\"b\\c",
                                  "\n\r",
                                  "\x7F",
                                  "ä",
                                  "; c",
                                  "[x]",
                                  "=",
                                  std::string("\0\x1F", 2),
                                  "\xFF"};
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
    EXPECT_EQ(ReadFile(m_path.toSysStr()).substr(0, 54),
              "[outer]\n  [inner one]\n    key=\n    key=plain\n    key=\"");

    const auto reader = GetXIniReader(m_path);
    const auto section = reader->EnterSectionSE("outer");
    reader->EnterSectionSE("inner one");
    ASSERT_EQ(reader->Count("key"), static_cast<int>(std::size(values)));
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

TEST_F(XIni, NumbersAreDecimalWholeAndInRange)
{
    for (const char* text : {"", " 1", "1 ", "+1", "0x1", "1.0", "2147483648", "-2147483649"}) {
        std::int32_t value = 7;
        EXPECT_FALSE(QvXIniParseValue(text, value)) << text;
        EXPECT_EQ(value, 7);
    }
    std::uint32_t value = 7;
    EXPECT_FALSE(QvXIniParseValue("-1", value));
    EXPECT_TRUE(QvXIniParseValue("4294967295", value));
    EXPECT_EQ(value, UINT32_MAX);
}

TEST_F(XIni, TheReaderWalksPositionsAndNamesWhatIsMissing)
{
    m_folder.Write("file.x-ini", "a=1\n; c\n[s]\nb=x\n[t]\n[/]\n[/s]\na=2\n[a]\n[/]\n");
    const std::string file = "\"" + m_path.toSysStr() + "\"";
    const auto reader = GetXIniReader(m_path);
    EXPECT_EQ(reader->Count(), 4);
    EXPECT_EQ(reader->Count("a"), 3);
    EXPECT_EQ(reader->FindF("a", 1), 2);
    EXPECT_EQ(reader->FindF("a", -9), 0);
    EXPECT_EQ(reader->FindF("b"), -1);
    EXPECT_EQ(reader->Name(1), "s");
    EXPECT_EQ(reader->Name(4), "");
    EXPECT_FALSE(reader->IsSection(0));
    EXPECT_EQ(reader->EnterSection(0), nullptr) << "a key";
    EXPECT_EQ(reader->EnterSection(-1), nullptr);
    EXPECT_EQ(reader->Read(1, std::string("default")), "default") << "a section";
    EXPECT_EQ(Thrown([&] { reader->FindFE("b"); }), file + " has no key \"b\".");

    const auto section = reader->EnterSectionSE("s");
    EXPECT_EQ(reader->Read(0, 5), 5) << "no number";
    EXPECT_EQ(Thrown([&] { reader->ReadE<int>(0); }),
              file + ": the value of \"s/b\" cannot be used.");
    EXPECT_EQ(Thrown([&] { reader->ReadE<int>(9); }), file + " has no key \"s/#9\".");
    ASSERT_NE(reader->EnterSection(1), nullptr);
    EXPECT_EQ(Thrown([&] { reader->EnterSectionSE("u"); }), file + " has no section \"s/t/u\".");
    reader->ExitSection(nullptr);
    EXPECT_EQ(reader->Count(), 0);
    reader->ExitSection(section);
    EXPECT_EQ(reader->Count(), 4);
}

TEST_F(XIni, MissingAndMalformedFilesAreNamed)
{
    const std::string file = "\"" + m_path.toSysStr() + "\"";
    EXPECT_EQ(Thrown([&] { GetXIniReader(m_path); }), file + " cannot be opened for reading.");
    EXPECT_FALSE(ReadQvXIniTree(m_path));
    m_folder.Write("file.x-ini", "a=1\nword\n");
    const std::string malformed = file + " is not well formed: line 2: it is no key (there is no "
                                         "\"=\"), no section and no comment.";
    EXPECT_EQ(Thrown([&] { GetXIniReader(m_path); }), malformed);
    EXPECT_FALSE(ReadQvXIniTree(m_path));

    const auto stream = make_var<TQvFileStream>(m_path, kQvOpenReadWrite, kQvShareAll);
    stream->SetInfoName(m_path.toSysStr());
    TQvXIniStreamReader reader(stream);
    EXPECT_TRUE(reader.ParseError());
    EXPECT_EQ(reader.Count(), 0);
    EXPECT_EQ(reader.EnterSectionS("s"), nullptr);
    EXPECT_EQ(Thrown([&] { reader.EnterSectionSE("s"); }), malformed);
    EXPECT_EQ(Thrown([&] { reader.FindFE("a"); }), malformed);

    ASSERT_TRUE(stream->setSize(4)); // it is read from its start again
    EXPECT_TRUE(reader.ReadDocument());
    EXPECT_EQ(reader.ReadE<int>(reader.FindFE("a")), 1);
    stream->Close();
    EXPECT_FALSE(reader.ReadDocument());
    EXPECT_EQ(Thrown([&] { reader.FindFE("a"); }), file + " cannot be read: Bad file descriptor.");
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
    EXPECT_EQ(writer.FindCreateF("", TKind::Other), -1);
    EXPECT_EQ(QvFormatXIniTree(*tree), expected);
    WriteQvXIniTreeE(m_path, *tree);
    EXPECT_EQ(ReadFile(m_path.toSysStr()), expected);
}

TEST_F(XIni, NamesThatWouldNotComeBackAreRefused)
{
    m_folder.Write("file.x-ini", "old");
    const std::string prefix = "\"" + m_path.toSysStr() + "\" cannot be written: ";
    for (const char* name : {"", " a", "a\t", "a=b", ";a", "[a", "a\nb"}) {
        const auto writer = GetXIniWriter(m_path);
        EXPECT_FALSE(writer->WriteS(name, 1)) << name;
        const std::string reason =
            *name == '\0' ? "a key has no name."
                          : "\"" + std::string(name) + "\" cannot be the name of a key.";
        EXPECT_EQ(Thrown([&] { writer->RaiseErrorE(); }), prefix + reason);
        EXPECT_EQ(Thrown([&] { writer->CommitE(); }), prefix + reason) << "it would be incomplete";
    }
    for (const char* name : {"", "/a", "a[", "a]", "a\rb"}) {
        const auto writer = GetXIniWriter(m_path);
        EXPECT_THROW(writer->BeginSectionSE(name), TQvMessage) << name;
    }
    const auto writer = GetXIniWriter(m_path);
    for (int i = 0; i < 64; ++i)
        writer->BeginSectionSE("s");
    EXPECT_EQ(Thrown([&] { writer->BeginSectionSE("s"); }),
              prefix + "sections would be nested more than 64 levels deep.");
    EXPECT_EQ(ReadFile(m_path.toSysStr()), "old");
}

TEST_F(XIni, AWriterThatGoesCommitsUnlessSomethingIsWrong)
{
    const auto write = [this](bool isRefused, bool throws) {
        const auto writer = GetXIniWriter(m_path);
        writer->WriteS("a", isRefused ? 2 : 1);
        if (isRefused)
            writer->WriteS("", 1);
        if (throws)
            throw std::runtime_error("passing");
    };
    write(false, false);
    EXPECT_EQ(ReadFile(m_path.toSysStr()), "a=1\n");
    write(true, false);
    EXPECT_THROW(write(false, true), std::runtime_error);
    EXPECT_EQ(ReadFile(m_path.toSysStr()), "a=1\n");

    const auto stream = make_var<TQvFileStream>(TQvPath(m_folder.Write("s", "long old content")),
                                                kQvOpenWrite, kQvShareAll);
    ASSERT_TRUE(stream->setPosition(5));
    TQvXIniStreamWriter writer(stream);
    writer.WriteS("a", 1);
    writer.CommitE();
    EXPECT_EQ(ReadFile(m_folder / "s"), "a=1\n");
    EXPECT_FALSE(writer.WriteS("b", 1)) << "already committed";
    EXPECT_THROW(writer.BeginSectionSE("s"), TQvMessage);
}

TEST_F(XIni, AFailedWriteLeavesTheOldFileAndTells)
{
    m_folder.Write("file.x-ini", "old=1\n");
    TChildProcess child([this] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{100, 100};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 1;
        const auto writer = GetXIniWriter(m_path);
        writer->WriteS("new", std::string(200, 'x'));
        const std::string told = "\"" + m_path.toSysStr() + "\" cannot be written: File too large.";
        if (Thrown([&] { writer->CommitE(); }) != told)
            return 2;
        const auto tree = Parse("new=" + std::string(200, 'x'));
        return Thrown([&] { WriteQvXIniTreeE(m_path, *tree); }) == told ? 0 : 3;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(ReadFile(m_path.toSysStr()), "old=1\n");
    EXPECT_EQ(NamesIn(m_folder.Path()).size(), 1u);

    const auto closed = make_var<TQvFileStream>();
    TQvXIniStreamWriter writer(closed);
    EXPECT_EQ(Thrown([&] { writer.CommitE(); }), "\"\" cannot be written: the stream is not open.");
    EXPECT_FALSE(WriteQvXIniTree(closed.get(), *Parse("a=1")));
    EXPECT_FALSE(ReadQvXIniTree(closed.get()));
}
} // namespace
