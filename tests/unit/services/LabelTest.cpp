#include <csignal>
#include <sys/resource.h>
#include <tuple>
#include <unistd.h>

#include "QvStd/FileStream.h"
#include "services/ResourceLabels.h"
#include "support/MountedFolder.h"
#include "support/Thrown.h"

namespace
{
constexpr std::uint64_t kCrcOfHello = 0x3610a686; // crc32("hello")
constexpr std::int64_t kTime = 1500000000123;

TQvResourceLabel Label(std::uint64_t size, std::uint64_t crc, std::int64_t time = kTime)
{
    TQvResourceLabel label;
    label.Size = size;
    label.Time = TQvDateTime(time);
    label.CRC = crc;
    return label;
}

std::string Text(const TQvResourceLabel& label)
{
    return "[resource_label]\n  size=" + std::to_string(label.Size) +
           "\n  time=" + std::to_string(label.Time.Milliseconds()) +
           "\n  crc=" + std::to_string(label.CRC) + "\n[/resource_label]\n";
}

/// "/T/r" holds "hello".
class Labels : public TMountedFolder
{
protected:
    Labels() { Put("r", kTime, "hello"); }
    std::string Sidecar() const { return ReadFile(Temp / "r.meta"); }
};

TEST_F(Labels, Computed)
{
    TQvResourceLabel label = Label(9, 9, 9);
    EXPECT_TRUE(ComputeResResourceLabel("/t/r", &label, false));
    EXPECT_EQ(Text(label), Text(Label(5, 0)));
    EXPECT_TRUE(ComputeResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(Text(label), Text(Label(5, kCrcOfHello)));
    EXPECT_THROW(ComputeResResourceLabel("/T/r", nullptr, true), TQvMessage);
    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    stream.setPosition(3);
    EXPECT_TRUE(ComputeResResourceLabelSC1(&stream, &label));
    EXPECT_EQ(Text(label), Text(Label(5, kCrcOfHello, 0)));
    EXPECT_TRUE(ComputeResResourceLabelSC2("/T/r", &label));
    EXPECT_EQ(Text(label), Text(Label(5, kCrcOfHello)));
    stream.Close();
    EXPECT_FALSE(ComputeResResourceLabelSC1(&stream, &label));
}

TEST_F(Labels, NothingToLabel)
{
    Temp.MakeFolder("folder");
    TQvResourceLabel label = Label(9, 9, 9);
    for (const char* id : {"/T/none", "/T/folder", "no id"}) {
        EXPECT_FALSE(GetResResourceLabel(id, &label, true)) << id;
        EXPECT_FALSE(ReadResResourceLabel(id, &label)) << id;
        EXPECT_FALSE(WriteResResourceLabel(id, label)) << id;
        EXPECT_FALSE(WeakCheckResResourceLabel(Label(0, 0, 0), id)) << id;
        EXPECT_EQ(Text(label), Text(Label(9, 9, 9))) << id;
    }
    // What opens and cannot be read to its end has no checksum.
    ASSERT_EQ(symlink("/proc/self/mem", (Temp / "unreadable").c_str()), 0);
    EXPECT_FALSE(GetResResourceLabel("/T/unreadable", &label, false));
    EXPECT_EQ(NamesIn(Temp.Path()), (std::vector<std::string>{"folder", "r", "unreadable"}));
}

TEST_F(Labels, Checks)
{
    const std::tuple<TQvResourceLabel, bool, bool> kRows[] = {
        {Label(5, kCrcOfHello), true, true},
        {Label(5, 1), true, false}, // only the checksum tells
        {Label(6, kCrcOfHello), false, false},
        {Label(5, kCrcOfHello, kTime + 1), false, false},
    };
    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    for (const auto& [label, weak, strong] : kRows) {
        stream.setPosition(2);
        EXPECT_EQ(WeakCheckResResourceLabel(label, "/T/r"), weak);
        EXPECT_EQ(StrongCheckResResourceLabel(label, "/T/r", &stream), strong);
        EXPECT_EQ(stream.getPosition(), weak ? 0u : 2u);
    }
}

TEST_F(Labels, RewriteKeepsWhatOthersWrote)
{
    const std::string before = "; mine\r\n[other]\n\tkey =  \"x\"\n[/]\n";
    const std::string after = "\n;last\nkey=1";
    Temp.Write("r.meta", before + Text(Label(123456789012345, 1)) + after);
    EXPECT_TRUE(WriteResResourceLabel("/T/r", Label(5, 2)));
    EXPECT_EQ(Sidecar(), before + Text(Label(5, 2)) + after) << "shorter, and no tail is left";
    TQvResourceLabel label;
    for (const char* unlabelled : {"", "[other]\n[/]\n", "[resource_label]\n  size=x\n[/]\n"}) {
        Temp.Write("r.meta", unlabelled);
        EXPECT_FALSE(ReadResResourceLabel("/T/r", &label)) << unlabelled;
        EXPECT_TRUE(WriteResResourceLabel("/T/r", Label(5, 2)));
        EXPECT_TRUE(ReadResResourceLabel("/T/r", &label)) << Sidecar();
    }
    EXPECT_EQ(Text(label), Text(Label(5, 2)));

    const std::string broken = "[open\n" + std::string(300, 'x');
    Temp.Write("r.meta", broken);
    const TQvMessage error = Thrown([&label] { WriteResResourceLabel("/T/r", label); });
    EXPECT_EQ(error.text(), "@Internal logic error in %1% (%2%): (%3%)==false.");
    EXPECT_EQ(error.arguments().at(2), "tree");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false)) << "the label is good all the same";
    EXPECT_EQ(Sidecar(), broken);
}

TEST_F(Labels, GetTakesTheCheapestGoodOne)
{
    Temp.Write("r.meta", "[other]\n[/other]\n" + Text(Label(5, 77)));
    TQvResourceLabel label = Label(4, 66);
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 77u) << "stored, not computed";
    label.CRC = 66;
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 66u) << "a given label that is right is the answer";
    Put("r", kTime + 1, "hello");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(Sidecar(), "[other]\n[/other]\n" + Text(Label(5, kCrcOfHello, kTime + 1)));

    // Held by somebody for himself, the sidecar neither opens for reading nor for writing.
    const TQvFileStream alone(TQvPath(Temp / "r.meta"), kQvOpenRead, 0);
    label.CRC = 66;
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false));
    EXPECT_EQ(label.CRC, kCrcOfHello) << "it cannot be stored, and is good";
}

TEST_F(Labels, FullDiskCostsNothing)
{
    const std::string old = Text(Label(5, 1)) + "[other]\nkey=value\n[/other]\n";
    Temp.Write("r.meta", old);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit full = {old.size() + 3, limit.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    const bool written = WriteResResourceLabel("/T/r", Label(5, 1234567890));
    setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, SIG_DFL);
    EXPECT_FALSE(written);
    EXPECT_EQ(Sidecar(), old);
}
} // namespace
