#include <cerrno>
#include <gtest/gtest.h>
#include <random>
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

TEST_F(FileStream, OpensOnlyRegularFilesAndNeverWaits)
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

TEST_F(FileStream, SharesOnlyWithOpenersThatShare)
{
    const std::string path = m_folder.Write("file", "content");
    for (const qvShareMode first : {kQvShareAll, kAlone, kQvShareAll - 1}) {
        for (const qvShareMode second : {kQvShareAll, kAlone, kQvShareAll - 1}) {
            SCOPED_TRACE(testing::Message() << first << " then " << second);
            const TQvFileStream holder(TQvPath(path), kQvOpenRead, first);
            const int expected = first == kQvShareAll && second == kQvShareAll ? 0 : EACCES;
            // A refused kQvOpenCreate must not truncate.
            const qvOpenMode mode = expected == 0 ? kQvOpenReadWrite : kQvOpenCreate;
            const auto open = [&] { return OpenError(path, mode, second); };
            EXPECT_EQ(open(), expected);
            EXPECT_EQ(TChildProcess(open).Wait(), expected) << "another process";
            EXPECT_EQ(ReadFile(path), "content");
        }
    }
}

TEST_F(FileStream, EqualsTheBytesForAllSizes)
{
    std::minstd_rand random;
    const auto below = [&random](std::size_t limit) { return random() % limit; };
    std::string bytes(400000, ' ');
    for (char& c : bytes)
        c = static_cast<char>(below(256));
    TQvFileStream stream(TQvPath(m_folder.Write("file", bytes)), kQvOpenReadWrite, kQvShareAll);
    std::size_t position = 0;
    for (int i = 0; i < 60000; ++i) {
        const std::size_t count = below(20) > 0 ? below(40) : below(9000);
        if (below(200) == 0) {
            position = below(2) > 0 ? below(bytes.size() + 9) : position + below(20000);
            ASSERT_TRUE(stream.setPosition(position));
        } else if (count > 0 && below(300) == 0) {
            const std::string written(count, static_cast<char>(below(256)));
            ASSERT_EQ(stream.Write(written.data(), count), count);
            bytes.resize(std::max(bytes.size(), position + count));
            bytes.replace(position, count, written);
            position += count;
        } else if (below(3000) == 0) {
            bytes.resize(below(400000));
            ASSERT_TRUE(stream.setSize(bytes.size()));
        } else {
            const std::string expected =
                position < bytes.size() ? bytes.substr(position, count) : "";
            ASSERT_EQ(ReadSome(stream, count), expected) << count << " at " << position;
            position += expected.size();
        }
        ASSERT_EQ(stream.getPosition(), position);
    }
    EXPECT_EQ(ReadFile(m_folder / "file"), bytes);
}

TEST_F(FileStream, OpeningAnotherFileClosesTheOldOne)
{
    TQvFileStream stream;
    ASSERT_TRUE(stream.Open(m_folder.Write("a", "aaaa"), kQvOpenRead, kAlone));
    EXPECT_EQ(ReadSome(stream, 1), "a");
    ASSERT_TRUE(stream.Open(m_folder.Write("b", "bbbb"), kQvOpenRead, kQvShareAll));
    EXPECT_EQ(ReadSome(stream, 2), "bb");
    EXPECT_EQ(OpenError(m_folder / "a", kQvOpenRead, kAlone), 0);
}

TEST_F(FileStream, RefusesPositionsBeyondTheLimitAndAClosedStream)
{
    TQvFileStream stream(TQvPath(m_folder / "file"), kQvOpenReadWrite, kQvShareAll);
    EXPECT_FALSE(stream.setPosition(std::uint64_t{INT64_MAX} + 1));
    EXPECT_TRUE(PassesInChild([&] {
        LimitFileSize(10'000);
        EXPECT_EQ(stream.Write(Pattern(12'000).data(), 12'000), 10'000u)
            << "what was written before the failure";
        EXPECT_EQ(stream.getPosition(), 10'000u);
        EXPECT_EQ(stream.Write("x", 1), TQvStream::invalid_value);
        EXPECT_EQ(stream.getError(), -EFBIG);
    }));
    EXPECT_TRUE(stream.Close());
    EXPECT_EQ(ReadSome(stream, 1), "<error>");
    EXPECT_FALSE(stream.Close());
    EXPECT_FALSE(stream.setPosition(0));
    EXPECT_FALSE(stream.setSize(0));
    EXPECT_FALSE(stream.Flush());
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
