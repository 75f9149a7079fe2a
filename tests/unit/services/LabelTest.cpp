#include <chrono>
#include <future>
#include <memory>
#include <tuple>
#include <unistd.h>

#include "QvStd/FileLock.h"
#include "QvStd/FileStream.h"
#include "QvStd/Files.h"
#include "services/ResourceLabels.h"
#include "support/MountedFolder.h"
#include "support/Thrown.h"

namespace
{
constexpr std::uint64_t kCrcOfHello = 0x3610a686; // crc32("hello")
constexpr std::int64_t kTime = 1500000000123;

TQvResourceLabel Label(std::uint64_t size, std::uint64_t crc, std::int64_t time = kTime)
{
    return {size, TQvDateTime(time), crc};
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
    std::string Stored() { return ReadResResourceLabel("/T/r", &label) ? Text(label) : "none"; }

    TQvResourceLabel label = Label(9, 9, 9);
};

TEST_F(Labels, AreComputedFromTheContent)
{
    EXPECT_TRUE(ComputeResResourceLabel("/t/r", &label, false));
    EXPECT_EQ(Text(label), Text(Label(5, 0)));
    EXPECT_THROW(ComputeResResourceLabel("/T/r", nullptr, true), TQvMessage);
    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    stream.setPosition(3);
    EXPECT_TRUE(ComputeResResourceLabelSC1(&stream, &label));
    EXPECT_EQ(Text(label), Text(Label(5, kCrcOfHello, 0)));
    EXPECT_TRUE(ComputeResResourceLabelSC2("/T/r", &label));
    EXPECT_EQ(Text(label), Text(Label(5, kCrcOfHello)));
    stream.Close();
    EXPECT_FALSE(ComputeResResourceLabelSC1(&stream, &label));

    // From the position of the stream, over several blocks; the sums of an independent
    // implementation.
    for (const auto& [size, crc] :
         {std::pair(std::size_t{0}, 0u), {256 * 1024, 0xBA8D8DC4}, {600000, 0xB8E3E871}}) {
        ASSERT_TRUE(stream.Open(Temp.Write("a", "xx" + std::string(size, 'a')), 10, kQvShareAll));
        stream.setPosition(2);
        EXPECT_EQ(ComputePartialCRC(&stream), crc) << size;
    }
}

TEST_F(Labels, ExistOnlyForReadableResources)
{
    Temp.MakeFolder("folder");
    for (const char* id : {"/T/none", "/T/folder", "no id"}) {
        EXPECT_FALSE(GetResResourceLabel(id, &label, true)) << id;
        EXPECT_FALSE(ReadResResourceLabel(id, &label)) << id;
        EXPECT_FALSE(WriteResResourceLabel(id, label)) << id;
        EXPECT_FALSE(WeakCheckResResourceLabel(Label(0, 0, 0), id)) << id;
    }
    // A resource that opens and cannot be read to its end has no checksum.
    ASSERT_EQ(symlink("/proc/self/mem", (Temp / "unreadable").c_str()), 0);
    EXPECT_FALSE(GetResResourceLabel("/T/unreadable", &label, false));
    EXPECT_EQ(Text(label), Text(Label(9, 9, 9)));
    const auto stream = ResourceManager.OpenResource("/T/unreadable", kQvOpenRead, kQvShareAll, 0);
    ASSERT_TRUE(TResourceManager::GetResourceLabelWeak("/T/unreadable", &label));
    label.CRC = 0; // that of the part which was read
    EXPECT_FALSE(StrongCheckResResourceLabel(label, "/T/unreadable", stream.get()));
    EXPECT_EQ(TResourceManager::LastFailure().Error, EIO);
    EXPECT_FALSE(ComputeResResourceLabelSC1(stream.get(), &label));
    EXPECT_EQ(TResourceManager::LastFailure().Error, EIO);
    EXPECT_EQ(NamesIn(Temp.Path()), (std::vector<std::string>{"folder", "r", "unreadable"}));
}

TEST_F(Labels, AreCheckedBySizeTimeAndChecksum)
{
    const std::tuple<TQvResourceLabel, bool, bool> kRows[] = {
        {Label(5, kCrcOfHello), true, true},
        {Label(5, 1), true, false}, // only the checksum differs
        {Label(6, kCrcOfHello), false, false},
        {Label(5, kCrcOfHello, kTime + 1), false, false},
    };
    TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
    for (const auto& [given, weak, strong] : kRows) {
        stream.setPosition(2);
        EXPECT_EQ(WeakCheckResResourceLabel(given, "/T/r"), weak) << Text(given);
        EXPECT_EQ(StrongCheckResResourceLabel(given, "/T/r", &stream), strong) << Text(given);
        EXPECT_EQ(stream.getPosition(), weak ? 0u : 2u);
    }
}

TEST_F(Labels, OnlyACompleteLabelIsRead)
{
    const TQvResourceLabel extreme = Label(UINT64_MAX, UINT32_MAX, -5);
    for (const char* unlabelled : {"[other]\n[/]\n", "[resource_label]\nsize=1\ntime=2\n[/]\n",
                                   "[resource_label]\nsize=1\ntime=\ncrc=3\n[/]\n",
                                   "[resource_label]\nsize=x\ntime=2\ncrc=3\n[/]\n",
                                   "[resource_label]\nsize=1\ntime=2\ncrc=-3\n[/]\n", ""}) {
        Temp.Write("r.meta", unlabelled);
        EXPECT_EQ(Stored(), "none") << unlabelled;
        EXPECT_TRUE(WriteResResourceLabel("/T/r", extreme));
        EXPECT_EQ(Stored(), Text(extreme)) << Sidecar();
    }
    EXPECT_EQ(Sidecar(), Text(extreme)) << "nothing else in an empty sidecar";

    const std::string broken = "[open\n" + std::string(300, 'x');
    Temp.Write("r.meta", broken);
    EXPECT_EQ(Stored(), "none");
    EXPECT_EQ(TResourceManager::LastFailure().Error, EBADMSG);
    const TQvMessage error = Thrown([this] { WriteResResourceLabel("/T/r", label); });
    EXPECT_EQ(error.text(), "@Internal logic error in %1% (%2%): (%3%)==false.");
    EXPECT_EQ(error.arguments().at(2), "tree");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false)) << "the label is good all the same";
    EXPECT_EQ(TResourceManager::LastFailure().Error, EBADMSG) << "and the reason is reported";
    EXPECT_EQ(Sidecar(), broken);
}

TEST_F(Labels, GetPrefersAGivenOrStoredLabel)
{
    Temp.Write("r.meta", "[other]\n[/other]\n" + Text(Label(5, 77)));
    label = Label(4, 66);
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 77u) << "stored, not computed";
    label.CRC = 66;
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(label.CRC, 66u) << "a given label that is right is the answer";
    Put("r", kTime + 1, "hello");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, true));
    EXPECT_EQ(Sidecar(), "[other]\n[/other]\n" + Text(Label(5, kCrcOfHello, kTime + 1)));

    // A sidecar that another opener has locked exclusively opens neither for reading nor for
    // writing.
    const TQvFileStream alone(TQvPath(Temp / "r.meta"), kQvOpenRead, 0);
    label.CRC = 66;
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false));
    EXPECT_EQ(label.CRC, kCrcOfHello) << "it cannot be stored, and is good";
}

TEST_F(Labels, AChangeWithinOneTickIsNoticed)
{
    for (const char* content : {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9"}) {
        Temp.Write("r", "hell" + std::string(content));
        ASSERT_TRUE(GetResResourceLabel("/T/r", &label, false));
        TQvFileStream stream(TQvPath(Temp / "r"), kQvOpenRead, kQvShareAll);
        EXPECT_EQ(label.CRC, ComputePartialCRC(&stream)) << content;
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    Put("r", std::chrono::duration_cast<std::chrono::milliseconds>(now).count() + 60000, "hello");
    EXPECT_TRUE(GetResResourceLabel("/T/r", &label, false)) << "the future is not waited for";
    EXPECT_EQ(label.CRC, kCrcOfHello);
}

TEST_F(Labels, AWriterWaitsForTheLockAndReadsWhatWasWrittenMeanwhile)
{
    const std::string sidecar = Temp.Write("r.meta", "[old]\n[/old]\n");
    auto lock = std::make_unique<TQvFileLock>(sidecar, 0);
    ASSERT_TRUE(*lock);
    auto writer =
        std::async(std::launch::async, [] { return WriteResResourceLabel("/T/r", Label(5, 1)); });
    EXPECT_EQ(writer.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    EXPECT_EQ(Sidecar(), "[old]\n[/old]\n");
    EXPECT_TRUE(QvWriteFileAtomically(sidecar, "[new]\n[/new]\n"));
    lock.reset();
    EXPECT_TRUE(writer.get());
    EXPECT_EQ(Sidecar(), "[new]\n[/new]\n" + Text(Label(5, 1)));
}
} // namespace
