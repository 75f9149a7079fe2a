#include <gtest/gtest.h>

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/FileStream.h"
#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "services/ResourceLabels.h"
#include "support/TempFolder.h"

namespace
{
constexpr std::uint64_t kCrcOfHello = 0x3610a686; // crc32("hello")
constexpr std::int64_t kTime = 1500000000123;

/// "/L" on the global manager, with the resource "/L/r" holding "hello".
class Labels : public testing::Test
{
protected:
    Labels()
    {
        ResourceManager.MountFileNodeE("/L", Temp.Path(), false);
        Put("hello");
    }
    ~Labels() override { ResourceManager.UnmountNodeE("/L", false); }

    /// Content, and a modification time of `second` whole seconds after kTime.
    void Put(const std::string& content, int second = 0) const
    {
        const std::string path = Temp.Write("r", content);
        const timespec time = {kTime / 1000 + second, 123000000};
        const timespec times[2] = {time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
    std::string Sidecar() const { return ReadFile(Temp / "r.meta"); }
    static std::string Stored(const std::string& size, std::int64_t time, std::uint64_t crc)
    {
        return "[resource_label]\n  size=" + size + "\n  time=" + std::to_string(time) +
               "\n  crc=" + std::to_string(crc) + "\n[/resource_label]\n";
    }
    static TQvResourceLabel Label(std::uint64_t size, std::int64_t time, std::uint64_t crc)
    {
        TQvResourceLabel label;
        label.Size = size;
        label.Time = TQvDateTime(time);
        label.CRC = crc;
        return label;
    }
    static void ExpectLabel(const TQvResourceLabel& label, std::uint64_t size, std::int64_t time,
                            std::uint64_t crc)
    {
        EXPECT_EQ(label.Size, size);
        EXPECT_EQ(label.Time.Milliseconds(), time);
        EXPECT_EQ(label.CRC, crc);
    }

    TTempFolder Temp;
};

constexpr char kNoLabels[][12] = {"/L/none", "/L", "/L/", "/L/folder", "", "/", "no id", "/L/a*"};

TEST_F(Labels, Computed)
{
    TQvResourceLabel label = Label(9, 9, 9);
    EXPECT_TRUE(ComputeResResourceLabel("/l/r", &label, false));
    ExpectLabel(label, 5, kTime, 0);
    EXPECT_TRUE(ComputeResResourceLabel("/L/r", &label, true));
    ExpectLabel(label, 5, kTime, kCrcOfHello);

    const auto stream = TQvFileStream::VCreate(Temp / "r", kQvOpenRead, kQvShareAll);
    stream->setPosition(3);
    label = Label(9, 9, 9);
    EXPECT_TRUE(ComputeResResourceLabelSC1(stream.get(), &label));
    ExpectLabel(label, 5, 0, kCrcOfHello);
    label = Label(9, 9, 9);
    EXPECT_TRUE(ComputeResResourceLabelSC2("/L/r", &label));
    ExpectLabel(label, 9, kTime, 9);
    stream->Close();
    EXPECT_FALSE(ComputeResResourceLabelSC1(stream.get(), &label));
    ExpectLabel(label, TQvStream::invalid_value64, 0, 0);
}

TEST_F(Labels, NothingToLabel)
{
    Temp.MakeFolder("folder");
    for (const char* id : kNoLabels) {
        TQvResourceLabel label = Label(9, 9, 9);
        EXPECT_FALSE(GetResResourceLabel(id, &label, true)) << id;
        EXPECT_FALSE(ReadResResourceLabel(id, &label)) << id;
        EXPECT_FALSE(WriteResResourceLabel(id, label)) << id;
        EXPECT_FALSE(WeakCheckResResourceLabel(Label(0, 0, 0), id)) << id;
        ExpectLabel(label, 9, 9, 9);
        EXPECT_FALSE(ComputeResResourceLabelSC2(id, &label)) << id;
        ExpectLabel(label, 9, 0, 9);
        EXPECT_FALSE(ComputeResResourceLabel(id, &label, true)) << id;
        ExpectLabel(label, 0, 0, 0);
    }
    // What opens and cannot be read to its end has no checksum.
    ASSERT_EQ(symlink("/proc/self/mem", (Temp / "unreadable").c_str()), 0);
    TQvResourceLabel label;
    EXPECT_FALSE(GetResResourceLabel("/L/unreadable", &label, false));
    EXPECT_FALSE(Exists(Temp / "unreadable.meta"));
}

TEST_F(Labels, Checks)
{
    const auto stream = TQvFileStream::VCreate(Temp / "r", kQvOpenRead, kQvShareAll);
    const struct
    {
        TQvResourceLabel Given;
        bool Weak, Strong;
    } kRows[] = {
        {Label(5, kTime, kCrcOfHello), true, true},
        {Label(5, kTime, 1), true, false}, // only the checksum tells
        {Label(6, kTime, kCrcOfHello), false, false},
        {Label(5, kTime + 1, kCrcOfHello), false, false}, // one millisecond
    };
    for (const auto& row : kRows) {
        stream->setPosition(2);
        EXPECT_EQ(WeakCheckResResourceLabel(row.Given, "/L/r"), row.Weak);
        EXPECT_EQ(StrongCheckResResourceLabel(row.Given, "/L/r", stream.get()), row.Strong);
        EXPECT_EQ(stream->getPosition(), row.Weak ? 0u : 2u);
    }
    EXPECT_FALSE(StrongCheckResResourceLabel(Label(5, 0, kCrcOfHello), "/L/none", stream.get()));
    stream->Close();
    EXPECT_FALSE(StrongCheckResResourceLabel(kRows[0].Given, "/L/r", stream.get()));
}

TEST_F(Labels, RewriteKeepsWhatOthersWrote)
{
    const std::string before = "; mine\r\n[other]\n\tkey =  \"x\"\n[/]\n";
    const std::string after = "\n;last\nkey=1";
    const std::string longOld = Stored("123456789012345678", kTime, 1);
    Temp.Write("r.meta", before + longOld + after);
    EXPECT_TRUE(WriteResResourceLabel("/L/r", Label(5, kTime, 2)));
    EXPECT_EQ(Sidecar(), before + Stored("5", kTime, 2) + after) << "no tail is left";
    TQvResourceLabel label;
    EXPECT_TRUE(ReadResResourceLabel("/L/r", &label));
    ExpectLabel(label, 5, kTime, 2);

    Temp.Write("r.meta", "");
    EXPECT_TRUE(WriteResResourceLabel("/L/r", Label(5, kTime, 2)));
    EXPECT_EQ(Sidecar(), Stored("5", kTime, 2));
}

TEST_F(Labels, StoredOnesThatDoNotCount)
{
    for (const std::string& sidecar :
         {std::string("[other]\n[/]\n"), Stored("x", kTime, 1),
          std::string("[resource_label]\n[/]"), Stored("5", kTime, 1) + "no entry\n"}) {
        Temp.Write("r.meta", sidecar);
        TQvResourceLabel label = Label(9, 9, 9);
        EXPECT_FALSE(ReadResResourceLabel("/L/r", &label)) << sidecar;
        ExpectLabel(label, 9, 9, 9);
    }
}

TEST_F(Labels, GetTakesTheCheapestGoodOne)
{
    // A given label that is right is not looked up: the sidecar has another and stays.
    Temp.Write("r.meta", Stored("5", kTime, 77));
    TQvResourceLabel label = Label(5, kTime, 66);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, true));
    ExpectLabel(label, 5, kTime, 66);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, false));
    ExpectLabel(label, 5, kTime, 77); // stored, not computed
    label = Label(4, kTime, 66);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, true));
    ExpectLabel(label, 5, kTime, 77);

    Temp.Write("r.meta", "[other]\n[/other]\n" + Stored("5", kTime, 77));
    Put("hello", 1);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, true));
    ExpectLabel(label, 5, kTime + 1000, kCrcOfHello);
    EXPECT_EQ(Sidecar(), "[other]\n[/other]\n" + Stored("5", kTime + 1000, kCrcOfHello));
}

TEST_F(Labels, GivenLabelOpensNoMetadata)
{
    // Whoever holds the sidecar for himself would be noticed: opening it again is refused.
    Temp.Write("r.meta", Stored("5", kTime, 77));
    const auto alone = TQvFileStream::VCreate(Temp / "r.meta", kQvOpenRead, 0);
    const timespec longAgo[2] = {{1000, 0}, {1000, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, (Temp / "r.meta").c_str(), longAgo, 0), 0);
    TQvResourceLabel label = Label(5, kTime, 66);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, true));
    EXPECT_EQ(label.CRC, 66u);
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, false));
    EXPECT_EQ(label.CRC, kCrcOfHello) << "neither read nor stored, and still returned";
    EXPECT_EQ(Sidecar(), Stored("5", kTime, 77));
}

TEST_F(Labels, MalformedSidecarIsLeftAlone)
{
    const std::string broken = "[open\n" + std::string(300, 'x');
    Temp.Write("r.meta", broken);
    try {
        WriteResResourceLabel("/L/r", Label(1, 2, 3));
        ADD_FAILURE();
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(), "@Internal logic error in %1% (%2%): (%3%)==false.");
        EXPECT_EQ(message.arguments().at(0), "bool WriteResResourceLabel(const "
                                             "std::__cxx11::string &, const TQvResourceLabel &)");
        EXPECT_GT(std::stoi(message.arguments().at(1)), 0);
        EXPECT_EQ(message.arguments().at(2), "tree");
    }
    TQvResourceLabel label;
    EXPECT_TRUE(GetResResourceLabel("/L/r", &label, false)) << "the label is good all the same";
    ExpectLabel(label, 5, kTime, kCrcOfHello);
    EXPECT_EQ(Sidecar(), broken);
}

TEST_F(Labels, FullDiskCostsNothing)
{
    const std::string old = Stored("5", kTime, 1) + "[other]\nkey=value\n[/other]\n";
    Temp.Write("r.meta", old);
    rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const auto oldHandler = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit full = {old.size() + 3, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &full), 0);
    const bool written = WriteResResourceLabel("/L/r", Label(5, kTime, 1234567890));
    setrlimit(RLIMIT_FSIZE, &before);
    std::signal(SIGXFSZ, oldHandler);
    EXPECT_FALSE(written);
    EXPECT_EQ(Sidecar(), old);
}

TEST_F(Labels, NullIsALogicError)
{
    const auto argumentsOf = [](auto call) {
        try {
            call();
        } catch (const TQvMessage& message) {
            return message.arguments().at(0) + " " + message.arguments().at(2);
        }
        return std::string();
    };
    const std::string id = "/L/r";
    TQvFileStream stream;
    EXPECT_EQ(argumentsOf([&] { ComputeResResourceLabel(id, nullptr, true); }),
              "bool ComputeResResourceLabel(const std::__cxx11::string &, TQvResourceLabel *, "
              "bool) rlabel");
    EXPECT_EQ(argumentsOf([&] { ComputeResResourceLabelSC1(&stream, nullptr); }),
              "bool ComputeResResourceLabelSC1(TQvStream *, TQvResourceLabel *) rlabel");
    EXPECT_EQ(argumentsOf([&] { ComputeResResourceLabelSC2(id, nullptr); }),
              "bool ComputeResResourceLabelSC2(const std::__cxx11::string &, TQvResourceLabel *) "
              "rlabel");
    EXPECT_NE(argumentsOf([&] { GetResResourceLabel(id, nullptr, true); }), "");
    EXPECT_NE(argumentsOf([&] { ReadResResourceLabel(id, nullptr); }), "");
}
} // namespace
