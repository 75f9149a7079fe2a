#include <csignal>
#include <functional>
#include <sys/resource.h>
#include <unistd.h>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "services/ResourceLabels.h"
#include "support/MountedFolder.h"

namespace
{
constexpr std::uint64_t kCrcOfHello = 0x3610a686; // crc32("hello")
constexpr std::int64_t kTime = 1500000000123;

std::string Section(std::uint64_t size, std::uint64_t crc, std::int64_t time = kTime)
{
    return "[resource_label]\n  size=" + std::to_string(size) + "\n  time=" + std::to_string(time) +
           "\n  crc=" + std::to_string(crc) + "\n[/resource_label]\n";
}

TQvResourceLabel Label(std::uint64_t size, std::uint64_t crc, std::int64_t time = kTime)
{
    TQvResourceLabel label;
    label.Size = size;
    label.Time = TQvDateTime(time);
    label.CRC = crc;
    return label;
}

/// "/T/r" holds "hello".
class Labels : public TMountedFolder
{
protected:
    Labels() { Put("r", kTime, "hello"); }
    std::string Sidecar() const { return ReadFile(Temp / "r.meta"); }
    static std::string Text(const TQvResourceLabel& label)
    {
        return Section(label.Size, label.CRC, label.Time.Milliseconds());
    }
    /// What is thrown, with its arguments but the line.
    static std::string LogicError(const std::function<void()>& call)
    {
        try {
            call();
        } catch (const TQvMessage& message) {
            EXPECT_EQ(message.text(), "@Internal logic error in %1% (%2%): (%3%)==false.");
            return message.arguments().at(0) + ": " + message.arguments().at(2);
        }
        return "";
    }
};

TEST_F(Labels, Computed)
{
    TQvResourceLabel label = Label(9, 9, 9);
    EXPECT_TRUE(ComputeResResourceLabel("/t/r", &label, false));
    EXPECT_EQ(Text(label), Section(5, 0));
    EXPECT_TRUE(ComputeResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(Text(label), Section(5, kCrcOfHello));

    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    stream.setPosition(3);
    EXPECT_TRUE(ComputeResResourceLabelSC1(&stream, &label));
    EXPECT_EQ(Text(label), Section(5, kCrcOfHello, 0));
    label.CRC = 9;
    EXPECT_TRUE(ComputeResResourceLabelSC2("/T/r", &label));
    EXPECT_EQ(Text(label), Section(5, 9));
    stream.Close();
    EXPECT_FALSE(ComputeResResourceLabelSC1(&stream, &label));
    EXPECT_EQ(label.Size, TQvStream::invalid_value64) << "is set all the same";
}

TEST_F(Labels, NothingToLabel)
{
    for (const char* id : {"/T/none", "/T", "/T/folder", "", "/", "no id", "/T/r*"}) {
        Temp.MakeFolder("folder");
        TQvResourceLabel label = Label(9, 9, 9);
        EXPECT_FALSE(GetResResourceLabel(id, &label, true)) << id;
        EXPECT_FALSE(ReadResResourceLabel(id, &label)) << id;
        EXPECT_FALSE(WriteResResourceLabel(id, label)) << id;
        EXPECT_FALSE(WeakCheckResResourceLabel(Label(0, 0, 0), id)) << id;
        EXPECT_EQ(Text(label), Section(9, 9, 9)) << id;
        EXPECT_FALSE(ComputeResResourceLabelSC2(id, &label)) << id;
        EXPECT_FALSE(ComputeResResourceLabel(id, &label, true)) << id;
    }
    // What opens and cannot be read to its end has no checksum.
    ASSERT_EQ(symlink("/proc/self/mem", (Temp / "unreadable").c_str()), 0);
    TQvResourceLabel label;
    EXPECT_FALSE(GetResResourceLabel("/T/unreadable", &label, false));
    EXPECT_EQ(NamesIn(Temp.Path()), (std::vector<std::string>{"folder", "r", "unreadable"}));
}

TEST_F(Labels, Checks)
{
    const struct
    {
        TQvResourceLabel Given;
        bool Weak, Strong;
    } kRows[] = {
        {Label(5, kCrcOfHello), true, true},
        {Label(5, 1), true, false}, // only the checksum tells
        {Label(6, kCrcOfHello), false, false},
        {Label(5, kCrcOfHello, kTime + 1), false, false},
    };
    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    for (const auto& row : kRows) {
        stream.setPosition(2);
        EXPECT_EQ(WeakCheckResResourceLabel(row.Given, "/T/r"), row.Weak);
        EXPECT_EQ(StrongCheckResResourceLabel(row.Given, "/T/r", &stream), row.Strong);
        EXPECT_EQ(stream.getPosition(), row.Weak ? 0u : 2u);
    }
    EXPECT_FALSE(StrongCheckResResourceLabel(Label(5, kCrcOfHello, 0), "/T/none", &stream));
}

TEST_F(Labels, RewriteKeepsWhatOthersWrote)
{
    const std::string before = "; mine\r\n[other]\n\tkey =  \"x\"\n[/]\n";
    const std::string after = "\n;last\nkey=1";
    Temp.Write("r.meta", before + Section(123456789012345, 1) + after);
    EXPECT_TRUE(WriteResResourceLabel("/T/r", Label(5, 2)));
    EXPECT_EQ(Sidecar(), before + Section(5, 2) + after) << "shorter, and no tail is left";
    for (const char* empty : {"", "[other]\n[/]\n", "[resource_label]\n  size=x\n[/]\n"}) {
        Temp.Write("r.meta", empty);
        TQvResourceLabel label = Label(9, 9);
        EXPECT_FALSE(ReadResResourceLabel("/T/r", &label)) << empty;
        EXPECT_EQ(label.Size, 9u);
        EXPECT_TRUE(WriteResResourceLabel("/T/r", Label(5, 2)));
        EXPECT_TRUE(ReadResResourceLabel("/T/r", &label)) << Sidecar();
        EXPECT_EQ(Text(label), Section(5, 2));
    }
}

TEST_F(Labels, GetTakesTheCheapestGoodOne)
{
    Temp.Write("r.meta", "[other]\n[/other]\n" + Section(5, 77));
    TQvResourceLabel label = Label(4, 66);
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 77u) << "stored, not computed";
    Put("r", kTime + 1, "hello");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(Text(label), Section(5, kCrcOfHello, kTime + 1));
    EXPECT_EQ(Sidecar(), "[other]\n[/other]\n" + Text(label));

    // Held by somebody for himself, the sidecar neither opens for reading nor for writing.
    const TQvFileStream alone(TQvPath(Temp / "r.meta"), kQvOpenRead, 0);
    label.CRC = 66;
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 66u) << "a given label that is right is the answer";
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false));
    EXPECT_EQ(label.CRC, kCrcOfHello) << "a label that cannot be stored, too";
}

TEST_F(Labels, LogicErrors)
{
    TQvResourceLabel label;
    const std::string broken = "[open\n" + std::string(300, 'x');
    Temp.Write("r.meta", broken);
    EXPECT_EQ(LogicError([&] { WriteResResourceLabel("/T/r", label); }),
              "bool WriteResResourceLabel(const std::__cxx11::string &, const TQvResourceLabel "
              "&): tree");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false)) << "the label is good all the same";
    EXPECT_EQ(Sidecar(), broken);
    EXPECT_EQ(LogicError([] { ComputeResResourceLabel("/T/r", nullptr, true); }),
              "bool ComputeResResourceLabel(const std::__cxx11::string &, TQvResourceLabel *, "
              "bool): rlabel");
    EXPECT_EQ(LogicError([] { ComputeResResourceLabelSC2("/T/r", nullptr); }),
              "bool ComputeResResourceLabelSC2(const std::__cxx11::string &, TQvResourceLabel "
              "*): rlabel");
}

TEST_F(Labels, FullDiskCostsNothing)
{
    const std::string old = Section(5, 1) + "[other]\nkey=value\n[/other]\n";
    Temp.Write("r.meta", old);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit full = {old.size() + 3, limit.rlim_max};
    const auto handler = std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    const bool written = WriteResResourceLabel("/T/r", Label(5, 1234567890));
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, handler);
    EXPECT_FALSE(written);
    EXPECT_EQ(Sidecar(), old);
}
} // namespace
