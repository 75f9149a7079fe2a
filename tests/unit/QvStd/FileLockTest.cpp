#include "QvStd/FileLock.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "QvStd/LockFile.h"
#include "support/TempFolder.h"

namespace
{
TEST(FileLock, AnythingButAWritableFileIsRefusedAndNothingIsCreated)
{
    const TTempFolder folder;
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_EQ(TQvFileLock(folder / "fifo", 0).getError(), -EINVAL);
    EXPECT_EQ(TQvFileLock(folder.Path(), 0).getError(), -EISDIR);
    EXPECT_EQ(TQvFileLock(folder / "missing", 0).getError(), -ENOENT);
    EXPECT_EQ(NamesIn(folder.Path()), std::vector<std::string>{"fifo"});
}

TEST(FileLock, TheMessageNamesTheHolderOrTheReason)
{
    const TTempFolder folder;
    const std::string path = folder / "x.lock";
    const TQvLockFile lock(path, true, "backup@host", 0);
    const TQvFileLock refused(path, 0);
    EXPECT_EQ(refused.getError(), -EAGAIN) << "both kinds exclude each other";
    const std::string text = QvLockMessage(path, refused.getError()).what();
    const std::string start = "\"" + path + "\" is locked by another process (owner=backup@host " +
                              "pid=" + std::to_string(getpid()) + " time=";
    EXPECT_EQ(text.substr(0, start.size()), start);
    EXPECT_EQ(text.substr(text.size() - 3), "Z).") << text;
    const std::string other = folder.Write("other", "no note");
    EXPECT_EQ(QvLockMessage(other, -EAGAIN).what(),
              "\"" + other + "\" is locked by another process.");
    EXPECT_EQ(QvLockMessage(other, -EROFS).what(),
              "\"" + other + "\" cannot be locked: Read-only file system.");
}
} // namespace
