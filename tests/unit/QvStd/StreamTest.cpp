#include <algorithm>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/FileStream.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
constexpr qvShareMode kAlone = 0;

std::string ReadSome(TQvStream& stream, std::size_t count)
{
    std::string bytes(count, '?');
    const std::size_t got = stream.Read(bytes.data(), count);
    if (got == TQvStream::invalid_value)
        return "<error>";
    return bytes.substr(0, got);
}

/// Bytes that differ at every position nearby.
std::string Pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    return bytes;
}

class FileStream : public testing::Test
{
protected:
    TTempFolder m_folder;
};

TEST_F(FileStream, OpensByItsMode)
{
    constexpr const char* kNothing = "<missing>";
    struct TRow
    {
        qvOpenMode Mode;
        int ErrorOfMissing;
        int ErrorOfExisting;
        const char* ExistingAfterOpen;
        bool Reads;
        bool Writes;
    };
    const TRow rows[] = {
        {7, 0, 0, "old", false, true},       {8, -ENOENT, 0, "old", false, true},
        {9, 0, 0, "", true, true},           {10, -ENOENT, 0, "old", true, false},
        {11, 0, -EEXIST, "old", true, true}, {12, 0, 0, "old", true, true},
        {0, -EINVAL, -EINVAL, "old", 0, 0},  {6, -EINVAL, -EINVAL, "old", 0, 0},
        {13, -EINVAL, -EINVAL, "old", 0, 0}, {-1, -EINVAL, -EINVAL, "old", 0, 0},
    };
    for (const TRow& row : rows) {
        SCOPED_TRACE(row.Mode);
        const std::string missing = m_folder / ("missing" + std::to_string(row.Mode));
        TQvFileStream created(TQvPath(missing), row.Mode, kQvShareAll);
        EXPECT_EQ(created.getError(), row.ErrorOfMissing);
        EXPECT_EQ(static_cast<bool>(created), row.ErrorOfMissing == 0);
        EXPECT_EQ(ReadFile(missing), row.ErrorOfMissing == 0 ? "" : kNothing);

        const std::string existing = m_folder.Write("existing", "old");
        TQvFileStream stream(TQvPath(existing), row.Mode, kQvShareAll);
        EXPECT_EQ(stream.getError(), row.ErrorOfExisting);
        EXPECT_EQ(ReadFile(existing), row.ExistingAfterOpen);
        EXPECT_EQ(stream.getPosition(), 0u);
        if (!stream)
            continue;
        EXPECT_EQ(ReadSome(stream, 3), row.Reads ? row.ExistingAfterOpen : "<error>");
        ASSERT_TRUE(stream.setPosition(0));
        EXPECT_EQ(stream.Write("new", 3), row.Writes ? 3 : TQvStream::invalid_value);
        EXPECT_EQ(ReadFile(existing), row.Writes ? "new" : "old");
    }
}

TEST_F(FileStream, NeitherOpensNorWaitsForWhatIsNoRegularFile)
{
    const std::string fifo = m_folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const std::string link = m_folder / "link";
    ASSERT_EQ(symlink(m_folder.Path().c_str(), link.c_str()), 0);

    for (const qvOpenMode mode : {7, 8, 9, 10, 12}) {
        SCOPED_TRACE(mode);
        for (const std::string& path : {fifo, std::string("/dev/null")})
            EXPECT_EQ(TQvFileStream(TQvPath(path), mode, kQvShareAll).getError(), -EINVAL) << path;
        for (const std::string& path : {m_folder.Path(), link})
            EXPECT_EQ(TQvFileStream(TQvPath(path), mode, kQvShareAll).getError(), -EISDIR) << path;
    }
    // A path is not cut at a byte 0.
    m_folder.Write("a", "");
    TQvFileStream stream;
    EXPECT_FALSE(stream.Open(m_folder / std::string("a\0b", 3), kQvOpenRead, kQvShareAll));
    EXPECT_EQ(stream.getError(), -EINVAL);
}

TEST_F(FileStream, SharesOnlyWithThoseWhoShare)
{
    const TQvPath path(m_folder.Write("file", "content"));
    const auto openElsewhere = [&path](qvOpenMode mode, qvShareMode share) {
        return TChildProcess([&] { return -TQvFileStream(path, mode, share).getError(); }).Wait();
    };
    for (const qvShareMode first : {kQvShareAll, kAlone, kQvShareAll - 1}) {
        for (const qvShareMode second : {kQvShareAll, kAlone, kQvShareAll - 1}) {
            SCOPED_TRACE(testing::Message() << first << " then " << second);
            TQvFileStream holder(path, kQvOpenRead, first);
            ASSERT_TRUE(holder);
            const int expected = first == kQvShareAll && second == kQvShareAll ? 0 : EACCES;
            // Mode 9 must not have emptied what it was refused.
            const qvOpenMode mode = expected == 0 ? kQvOpenReadWrite : kQvOpenCreate;
            EXPECT_EQ(-TQvFileStream(path, mode, second).getError(), expected);
            EXPECT_EQ(openElsewhere(mode, second), expected);
            EXPECT_EQ(ReadFile(path.toSysStr()), "content");
            EXPECT_TRUE(holder.Close());
            EXPECT_EQ(openElsewhere(kQvOpenRead, second), 0);
        }
    }
}

TEST_F(FileStream, ReadsTheSameWhateverTheSizes)
{
    const std::string content = Pattern(100'003);
    const std::string path = m_folder.Write("file", content);
    for (const std::size_t step : {1u, 16u, 999u, 4095u, 4096u, 5000u, 200'000u}) {
        SCOPED_TRACE(step);
        TQvFileStream stream(TQvPath(path), kQvOpenRead, kQvShareAll);
        std::string seen;
        for (std::string part = ReadSome(stream, step); !part.empty();
             part = ReadSome(stream, step)) {
            seen += part;
            ASSERT_EQ(stream.getPosition(), seen.size());
        }
        EXPECT_EQ(seen, content);
        // Hither and thither, small reads and big ones mixed, over the end too.
        for (const std::size_t at : {50'000u, 49'990u, 0u, 99'990u, 65'536u, 100'003u, 300'000u}) {
            for (const std::size_t count : {step, std::size_t{7}}) {
                ASSERT_TRUE(stream.setPosition(at));
                const std::size_t start = std::min<std::size_t>(at, content.size());
                EXPECT_EQ(ReadSome(stream, count), content.substr(start, count)) << at;
            }
        }
        EXPECT_EQ(stream.getError(), 0);
    }
}

TEST_F(FileStream, ASmallReadSeesWhatThisStreamChanged)
{
    TQvFileStream stream(TQvPath(m_folder.Write("file", "0123456789")), kQvOpenReadWrite,
                         kQvShareAll);
    EXPECT_EQ(ReadSome(stream, 2), "01");
    EXPECT_EQ(stream.Write("xy", 2), 2u); // where reading stands, not where the buffer ends
    EXPECT_EQ(ReadSome(stream, 2), "45");
    ASSERT_TRUE(stream.setPosition(1));
    EXPECT_EQ(ReadSome(stream, 4), "1xy4");

    ASSERT_TRUE(stream.setSize(6));
    EXPECT_EQ(stream.getPosition(), 5u);
    EXPECT_EQ(ReadSome(stream, 4), "5");
    ASSERT_TRUE(stream.setSize(8));
    EXPECT_EQ(ReadSome(stream, 4), std::string(2, '\0'));

    ASSERT_TRUE(stream.setPosition(10));
    EXPECT_EQ(stream.Write("z", 1), 1u);
    EXPECT_EQ(stream.getSize(), 11u);
    EXPECT_TRUE(stream.Flush());
    EXPECT_EQ(ReadFile(m_folder / "file"), "01xy45" + std::string(4, '\0') + "z");
}

TEST_F(FileStream, ReopeningForgetsTheOldFile)
{
    TQvFileStream stream(TQvPath(m_folder.Write("a", "aaaa")), kQvOpenRead, kAlone);
    EXPECT_EQ(ReadSome(stream, 1), "a");
    ASSERT_TRUE(stream.Open(m_folder.Write("b", "bbbb"), kQvOpenRead, kQvShareAll));
    EXPECT_EQ(ReadSome(stream, 2), "bb");
    EXPECT_TRUE(TQvFileStream(TQvPath(m_folder / "a"), kQvOpenRead, kAlone)); // unlocked
    EXPECT_FALSE(stream.Open(m_folder / "missing", kQvOpenRead, kQvShareAll));
    EXPECT_EQ(ReadSome(stream, 1), "<error>");
}

TEST_F(FileStream, RefusesWhatCannotBe)
{
    TQvFileStream stream(TQvPath(m_folder / "file"), kQvOpenReadWrite, kQvShareAll);
    EXPECT_FALSE(stream.setPosition(std::uint64_t{INT64_MAX} + 1));
    EXPECT_EQ(stream.getError(), -EINVAL);
    EXPECT_FALSE(stream.setSize(TQvStream::invalid_value64));
    ASSERT_TRUE(stream.setPosition(INT64_MAX));
    EXPECT_EQ(ReadSome(stream, 10), "");
    EXPECT_EQ(ReadSome(stream, 5000), "");
    EXPECT_EQ(stream.Write("xy", 2), TQvStream::invalid_value);
    EXPECT_EQ(stream.getError(), -EFBIG);

    EXPECT_TRUE(stream.Close());
    EXPECT_FALSE(stream.Close());
    EXPECT_EQ(ReadSome(stream, 1), "<error>");
    EXPECT_EQ(stream.Write("x", 1), TQvStream::invalid_value);
    EXPECT_EQ(stream.getSize(), TQvStream::invalid_value64);
    EXPECT_FALSE(stream.setPosition(0));
    EXPECT_FALSE(stream.setSize(0));
    EXPECT_FALSE(stream.Flush());
    EXPECT_EQ(stream.getError(), -EBADF);
}

TEST_F(FileStream, AWriteThatIsCutShortTellsHowFarItCame)
{
    TChildProcess child([this] {
        signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{10'000, 10'000};
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 1;
        TQvFileStream stream(TQvPath(m_folder / "file"), kQvOpenCreate, kQvShareAll);
        const std::string bytes = Pattern(6'000);
        if (stream.Write(bytes.data(), 6'000) != 6'000 || stream.getError() != 0)
            return 2;
        if (stream.Write(bytes.data(), 6'000) != 4'000 || stream.getError() != -EFBIG)
            return 3;
        if (stream.getPosition() != 10'000)
            return 4;
        return stream.Write(bytes.data(), 1) == TQvStream::invalid_value ? 0 : 5;
    });
    EXPECT_EQ(child.Wait(), 0);
}

class CopyStream : public FileStream
{
protected:
    TQvFileStream m_from;
    TQvFileStream m_to;

    void Prepare(const std::string& content)
    {
        ASSERT_TRUE(m_from.Open(m_folder.Write("from", content), kQvOpenRead, kQvShareAll));
        ASSERT_TRUE(m_to.Open(m_folder / "to", kQvOpenCreate, kQvShareAll));
    }
};

TEST_F(CopyStream, CopiesFromPositionToPosition)
{
    for (const std::size_t size : {0u, 1u, 4096u, 262'144u, 700'001u}) {
        SCOPED_TRACE(size);
        const std::string content = Pattern(size);
        Prepare("skip" + content);
        ASSERT_TRUE(m_from.setPosition(4));
        ASSERT_EQ(m_to.Write("head", 4), 4u);
        TTestProgress progress;
        progress.Start();
        EXPECT_TRUE(QvCopyStream(&m_from, &m_to, &progress));
        EXPECT_EQ(ReadFile(m_folder / "to"), "head" + content);
        EXPECT_EQ(progress.Positions, std::vector<double>{1.0});
    }
}

TEST_F(CopyStream, ReportsAndBreaks)
{
    const std::size_t size = 20 * 1024 * 1024;
    Prepare(std::string(size, 'x'));
    TTestProgress progress;
    progress.Start();
    EXPECT_TRUE(QvCopyStream(&m_from, &m_to, &progress));
    EXPECT_EQ(progress.Positions, (std::vector<double>{0.4, 0.8, 1.0}));
    EXPECT_EQ(m_to.getSize(), size);

    Prepare(std::string(size, 'x'));
    progress.BreakAfter = progress.Polls + static_cast<int>(progress.Positions.size()) + 2;
    EXPECT_FALSE(QvCopyStream(&m_from, &m_to, &progress));
    EXPECT_LT(m_to.getSize(), size);
}

TEST_F(CopyStream, FailsWithItsStreams)
{
    Prepare("content");
    EXPECT_FALSE(QvCopyStream(nullptr, &m_to, nullptr));
    EXPECT_FALSE(QvCopyStream(&m_from, nullptr, nullptr));
    ASSERT_TRUE(m_to.Open(m_folder / "to", kQvOpenRead, kQvShareAll));
    EXPECT_FALSE(QvCopyStream(&m_from, &m_to, nullptr)) << "the target is read-only";
    m_from.Open(m_folder / "from", kQvOpenWrite, kQvShareAll);
    m_to.Open(m_folder / "to", kQvOpenWrite, kQvShareAll);
    EXPECT_FALSE(QvCopyStream(&m_from, &m_to, nullptr)) << "the source is write-only";
    m_to.Close();
    EXPECT_FALSE(QvCopyStream(&m_from, &m_to, nullptr)) << "the target is closed";
}
} // namespace
