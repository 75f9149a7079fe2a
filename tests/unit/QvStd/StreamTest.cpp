#include <cerrno>
#include <gtest/gtest.h>
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
    return got == TQvStream::invalid_value ? "<error>" : bytes.substr(0, got);
}

int OpenError(const std::string& path, qvOpenMode mode, qvShareMode share = kQvShareAll)
{
    return -TQvFileStream(TQvPath(path), mode, share).getError();
}

class FileStream : public testing::Test
{
protected:
    TTempFolder m_folder;
};

TEST_F(FileStream, OpensByItsMode)
{
    struct TRow
    {
        qvOpenMode Mode;
        int ErrorOfMissing, ErrorOfExisting;
        const char* ExistingAfterOpen;
        bool Reads, Writes;
    };
    const TRow rows[] = {{7, 0, 0, "old", false, true},    {8, ENOENT, 0, "old", false, true},
                         {9, 0, 0, "", true, true},        {10, ENOENT, 0, "old", true, false},
                         {11, 0, EEXIST, "old", 0, 0},     {12, 0, 0, "old", true, true},
                         {6, EINVAL, EINVAL, "old", 0, 0}, {13, EINVAL, EINVAL, "old", 0, 0}};
    for (const TRow& row : rows) {
        SCOPED_TRACE(row.Mode);
        const std::string missing = m_folder / ("missing" + std::to_string(row.Mode));
        EXPECT_EQ(OpenError(missing, row.Mode), row.ErrorOfMissing);
        EXPECT_EQ(ReadFile(missing), row.ErrorOfMissing == 0 ? "" : "<missing>");
        const std::string existing = m_folder.Write("existing", "old");
        TQvFileStream stream(TQvPath(existing), row.Mode, kQvShareAll);
        EXPECT_EQ(-stream.getError(), row.ErrorOfExisting);
        EXPECT_EQ(ReadFile(existing), row.ExistingAfterOpen);
        EXPECT_EQ(ReadSome(stream, 3), row.Reads ? row.ExistingAfterOpen : "<error>");
        EXPECT_EQ(stream.setPosition(0), row.ErrorOfExisting == 0);
        EXPECT_EQ(stream.Write("new", 3), row.Writes ? 3 : TQvStream::invalid_value);
        EXPECT_EQ(ReadFile(existing), row.Writes ? "new" : "old");
    }
}

TEST_F(FileStream, NeitherOpensNorWaitsForWhatIsNoRegularFile)
{
    const std::string fifo = m_folder / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    m_folder.Write("a", "");
    for (const qvOpenMode mode : {7, 8, 9, 10, 12}) {
        EXPECT_EQ(OpenError(fifo, mode), EINVAL) << mode;
        EXPECT_EQ(OpenError("/dev/null", mode), EINVAL) << mode;
        EXPECT_EQ(OpenError(m_folder.Path(), mode), EISDIR) << mode;
        EXPECT_EQ(OpenError(m_folder / std::string("a\0b", 3), mode), EINVAL) << "cut to a";
    }
}

TEST_F(FileStream, SharesOnlyWithThoseWhoShare)
{
    const std::string path = m_folder.Write("file", "content");
    for (const qvShareMode first : {kQvShareAll, kAlone, kQvShareAll - 1}) {
        for (const qvShareMode second : {kQvShareAll, kAlone, kQvShareAll - 1}) {
            SCOPED_TRACE(testing::Message() << first << " then " << second);
            const TQvFileStream holder(TQvPath(path), kQvOpenRead, first);
            const int expected = first == kQvShareAll && second == kQvShareAll ? 0 : EACCES;
            // Mode 9 must not have emptied what it was refused.
            const qvOpenMode mode = expected == 0 ? kQvOpenReadWrite : kQvOpenCreate;
            const auto open = [&] { return OpenError(path, mode, second); };
            EXPECT_EQ(open(), expected);
            EXPECT_EQ(TChildProcess(open).Wait(), expected) << "another process";
            EXPECT_EQ(ReadFile(path), "content");
        }
    }
}

TEST_F(FileStream, ReadsTheSameWhateverTheSizes)
{
    const std::string content = Pattern(100'003);
    TQvFileStream stream(TQvPath(m_folder.Write("file", content)), kQvOpenRead, kQvShareAll);
    for (const std::size_t step : {1u, 999u, 4095u, 4096u, 200'000u}) {
        ASSERT_TRUE(stream.setPosition(0));
        std::string seen;
        for (std::string part; !(part = ReadSome(stream, step)).empty();)
            seen += part;
        EXPECT_EQ(seen, content) << step;
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
    EXPECT_EQ(ReadFile(m_folder / "file"), "01xy45" + std::string(4, '\0') + "z");

    // Opening another file forgets the old one, and its lock.
    ASSERT_TRUE(stream.Open(m_folder.Write("a", "aaaa"), kQvOpenRead, kAlone));
    EXPECT_EQ(ReadSome(stream, 1), "a");
    ASSERT_TRUE(stream.Open(m_folder.Write("b", "bbbb"), kQvOpenRead, kQvShareAll));
    EXPECT_EQ(ReadSome(stream, 2), "bb");
    EXPECT_EQ(OpenError(m_folder / "a", kQvOpenRead, kAlone), 0);
}

TEST_F(FileStream, RefusesWhatCannotBe)
{
    TQvFileStream stream(TQvPath(m_folder / "file"), kQvOpenReadWrite, kQvShareAll);
    EXPECT_FALSE(stream.setPosition(std::uint64_t{INT64_MAX} + 1));
    EXPECT_TRUE(PassesInChild([&] {
        LimitFileSize(10'000);
        EXPECT_EQ(stream.Write(Pattern(12'000).data(), 12'000), 10'000u) << "how far it came";
        EXPECT_EQ(stream.getPosition(), 10'000u);
        EXPECT_EQ(stream.Write("x", 1), TQvStream::invalid_value);
        EXPECT_EQ(stream.getError(), -EFBIG);
    }));
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(ReadSome(stream, 1), "<error>");
    EXPECT_FALSE(stream.Close() || stream.setPosition(0) || stream.setSize(0) || stream.Flush());
    EXPECT_EQ(stream.getError(), -EBADF);
}

TEST_F(FileStream, CopiesFromPositionToTheEnd)
{
    constexpr std::size_t kBig = 20 * 1024 * 1024;
    const std::string content = Pattern(kBig);
    TQvFileStream from(TQvPath(m_folder.Write("from", "skip" + content)), kQvOpenRead, kQvShareAll);
    TQvFileStream to(TQvPath(m_folder / "to"), kQvOpenCreate, kQvShareAll);
    ASSERT_TRUE(from.setPosition(4));
    ASSERT_EQ(to.Write("head", 4), 4u);
    TTestProgress progress;
    progress.Start();
    EXPECT_TRUE(QvCopyStream(&from, &to, &progress));
    EXPECT_TRUE(ReadFile(m_folder / "to") == "head" + content);
    EXPECT_EQ(progress.Positions.size(), 3u);
    EXPECT_EQ(progress.Positions.back(), 1.0);

    ASSERT_TRUE(from.setPosition(0));
    EXPECT_FALSE(QvCopyStream(&from, &from, nullptr)) << "read-only";
    ASSERT_TRUE(from.setPosition(0));
    progress.BreakAfter = progress.Polls + static_cast<int>(progress.Positions.size()) + 6;
    EXPECT_FALSE(QvCopyStream(&from, &to, &progress));
}
} // namespace
