#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <linux/filter.h>
#include <linux/limits.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "QvStd/Descriptor.h"
#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "support/ChildProcess.h"
#include "support/FolderTree.h"
#include "support/TestProgress.h"

namespace
{
using TNames = std::vector<std::string>;

struct stat Status(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

/// 0 for success, else errno.
int Failure(bool succeeded)
{
    return succeeded ? 0 : errno;
}

/// Makes renameat2 answer EINVAL in this process, as file systems do that lack the exclusive form.
void ForbidExclusiveRename()
{
    sock_filter code[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
                          BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog program = {sizeof code / sizeof code[0], code};
    ASSERT_EQ(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0), 0);
    ASSERT_EQ(prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0);
}

class Files : public testing::Test
{
protected:
    void Link(const std::string& target, const std::string& name) const
    {
        ASSERT_EQ(symlink(target.c_str(), (m_temp / name).c_str()), 0) << name;
    }
    TNames Names() const { return NamesIn(m_temp.Path()); }

    TTempFolder m_temp;
    std::string m_from = m_temp.Write("from", "new");
    std::string m_to = m_temp.Write("to", "old");
};

TEST_F(Files, RefusalsReportTheErrorAndChangeNothing)
{
    const std::string fifo = m_temp / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Link("nowhere", "dangling");
    Link("loop", "loop");
    const TNames before = Names();
    std::string read = "kept";
    EXPECT_EQ(Failure(QvCopyFile(m_temp.Path(), m_to, false)), EISDIR);
    EXPECT_EQ(Failure(QvCopyFile(fifo, m_to, false)), EINVAL);
    EXPECT_EQ(Failure(QvCopyFile(m_from, m_to, true)), EEXIST);
    EXPECT_EQ(Failure(QvCopyFile(m_from, m_temp / "dangling", true)), EEXIST);
    EXPECT_EQ(Failure(QvCopyFile(m_from, m_temp / "new/", false)), ENOENT);
    EXPECT_EQ(Failure(QvReadWholeFile(fifo, &read)), EINVAL);
    EXPECT_EQ(Failure(QvWriteFileAtomically(m_temp.Path(), "x")), EISDIR);
    EXPECT_EQ(Failure(QvWriteFileAtomically(m_temp / "loop", "x")), ELOOP);
    EXPECT_EQ(Failure(QvWriteFileAtomically(fifo, "x")), EINVAL);
    EXPECT_EQ(Failure(QvForceDirectories(m_to + "/x")), ENOTDIR);
    EXPECT_EQ(Failure(QvForceDirectories(m_temp / "dangling")), EEXIST);
    EXPECT_EQ(Names(), before);
    EXPECT_EQ(ReadFile(m_to), "old");
    EXPECT_EQ(read, "kept");
    // A file that claims to be empty.
    EXPECT_TRUE(QvReadWholeFile("/proc/filesystems", &read));
    EXPECT_NE(read, "");
    EXPECT_TRUE(QvCopyFile("/proc/filesystems", m_to, false));
    EXPECT_EQ(ReadFile(m_to), read);
}

TEST_F(Files, ACopyKeepsHoles)
{
    ASSERT_EQ(truncate(m_from.c_str(), off_t{1} << 30), 0);
    EXPECT_TRUE(QvCopyFile(m_from, m_to, false));
    EXPECT_EQ(Status(m_to).st_size, off_t{1} << 30);
    EXPECT_LT(Status(m_to).st_blocks, 1000);
}

TEST_F(Files, AnotherFileSystemIsReachedByALinkAndByAMove)
{
    const TTempFolder memory("/dev/shm");
    const std::string there = memory.Write("there", "old");
    if (Status(there).st_dev == Status(m_from).st_dev)
        GTEST_SKIP() << "the folder of temporary files is on it";
    Link(there, "link");
    EXPECT_TRUE(QvCopyFile(m_from, m_temp / "link", false));
    EXPECT_EQ(ReadFile(there), "new");
    EXPECT_TRUE(std::filesystem::is_symlink(m_temp / "link"));
    TTestProgress breaking;
    breaking.BreakAfter = 1;
    EXPECT_EQ(Failure(QvMoveFileEx(m_from, there, true, true, &breaking)), ECANCELED);
    EXPECT_TRUE(Exists(m_from));
    EXPECT_TRUE(QvMoveFileEx(m_from, there, true, true));
    EXPECT_FALSE(Exists(m_from));
}

TEST_F(Files, CopiesAfterEachOtherFindFoldersThatWereReplaced)
{
    TQvCopyFolders folders;
    // Its folder can be opened, and its name is free there.
    std::string tooLong = m_temp / "out/";
    tooLong.resize(PATH_MAX - 3, '/');
    tooLong += "name";
    for (const std::string content : {"first", "second"}) {
        std::filesystem::remove_all(m_temp / "in");
        std::filesystem::remove_all(m_temp / "out");
        std::filesystem::create_directory(m_temp / "out");
        m_temp.Write("in/x", content);
        EXPECT_TRUE(QvCopyFileToNew(m_temp / "in/x", m_temp / "out/x", nullptr, &folders));
        EXPECT_EQ(ReadFile(m_temp / "out/x"), content);
        EXPECT_EQ(QvCopyFileToNew(m_temp / "in/x", tooLong, nullptr, &folders).Error(),
                  ENAMETOOLONG);
        EXPECT_EQ(QvCopyFileToNew(m_temp / "in/x", m_temp / "out/x", nullptr, &folders).Error(),
                  EEXIST);
    }
}

TEST_F(Files, MoveReplacesOnlyWithOverwrite)
{
    const std::string folder = m_temp / "folder";
    const std::string free = m_temp / "free";
    for (const bool isForbidden : {false, true}) {
        MakeTree(m_temp.Path(), "empty/ folder/ from=new to=old");
        EXPECT_TRUE(PassesInChild([&] {
            if (isForbidden)
                ForbidExclusiveRename();
            EXPECT_EQ(Failure(QvMoveFileEx(m_from, m_to, false, false)), EEXIST);
            EXPECT_EQ(Failure(QvMoveFileEx(folder, m_temp / "empty", false, false)), EEXIST);
            EXPECT_EQ(Failure(QvMoveFileEx(folder, folder + "/x", false, false)), EINVAL);
            EXPECT_TRUE(QvMoveFileEx(folder, free, false, false));
            EXPECT_TRUE(QvRemoveDirectory(free)) << "nothing was left in it";
            EXPECT_TRUE(QvMoveFileEx(m_from, free, false, false));
            EXPECT_EQ(TreeOf(m_temp.Path()), "empty/ free=new to=old");
        })) << isForbidden;
    }
}

TEST_F(Files, RemovalNeverFollowsLinks)
{
    MakeTree(m_temp.Path(), "to=old tree/deep/er/file= tree/back\\slash= tree/link>.. "
                            "tree/deep/er/link>../../../to first>tree second>tree");
    for (const std::string& refused :
         {std::string(), std::string("/"), m_temp / "tree/./", m_temp / "tree/deep/..",
          (m_temp / "tree") + std::string("\0x", 2)})
        EXPECT_EQ(Failure(QvRemoveDirectoryEx(refused, true, true, nullptr)), EINVAL) << refused;
    EXPECT_EQ(Failure(QvRemoveDirectory(m_temp / "tree")), ENOTEMPTY);
    EXPECT_EQ(Failure(QvRemoveDirectoryEx(m_temp / "tree", false, true, nullptr)), ENOTEMPTY);
    // Of a link to a folder only the link is removed.
    EXPECT_TRUE(QvRemoveDirectoryEx(m_temp / "first/", true, true, nullptr));
    EXPECT_TRUE(QvRemoveDirectory(m_temp / "second//"));
    EXPECT_EQ(Names(), (TNames{"to", "tree"}));
    EXPECT_TRUE(Exists(m_temp / "tree/deep/er/file"));
    EXPECT_TRUE(QvRemoveDirectoryEx(m_temp / "tree/", true, false, nullptr));
    EXPECT_EQ(TreeOf(m_temp.Path()), "to=old");
}

TEST_F(Files, OnlyForceRemovesWriteProtectedEntries)
{
    ASSERT_EQ(chmod(m_temp.Path().c_str(), 0777), 0);
    EXPECT_TRUE(PassesInChild([&] {
        ASSERT_TRUE(geteuid() != 0 || setuid(65534) == 0) << "for root no bits count";
        const std::string tree = m_temp / "tree";
        m_temp.Write("tree/protected/sub/file", "");
        m_temp.Write("tree/other/file", "");
        for (const auto& [name, mode] : {std::pair("/protected/sub", 0u), {"/protected", 0500u}})
            ASSERT_EQ(chmod((tree + name).c_str(), mode), 0);
        std::string text;
        EXPECT_EQ(Failure(QvRemoveDirectoryEx(tree, true, false, &text)), EACCES);
        EXPECT_EQ(text, "\"" + tree + "/protected/sub\": Permission denied");
        EXPECT_EQ(NamesIn(tree), TNames{"protected"}) << "the rest is removed";
        EXPECT_TRUE(QvRemoveDirectoryEx(tree, true, true, &text));
        EXPECT_FALSE(Exists(tree));
    }));
}

TEST_F(Files, FoundByMaskInOrderAndNotThroughLinks)
{
    MakeTree(m_temp.Path(),
             "b.txt= a.txt= .hidden= B.TXT= [x]*= sub/deep/d.txt= link>sub sub/loop>.");
    const auto find = [&](const char* mask, bool withFolders, bool recursive) {
        std::string found;
        for (const std::string& path : QvFindFiles(m_temp / "", mask, withFolders, recursive))
            found += path.substr(m_temp.Path().size() + 1) + " ";
        return found;
    };
    EXPECT_EQ(find("*.*", true, true),
              ".hidden B.TXT [x]* a.txt b.txt link sub sub/deep sub/deep/d.txt sub/loop ");
    EXPECT_EQ(find("?.txt", false, true), "a.txt b.txt sub/deep/d.txt ");
    EXPECT_EQ(find("*l*n*", true, false), "link ");
    EXPECT_EQ(find("[x]*", false, false), "[x]* ");
    EXPECT_TRUE(QvFindFiles(m_temp / "missing", "*", true, true).empty());
    EXPECT_THROW(QvFindFiles(m_temp / "a.txt", "*", true, true), TQvMessage) << "no folder";
    TTestProgress breaking;
    breaking.BreakAfter = 1;
    EXPECT_THROW(QvFindFiles(m_temp.Path(), "*", true, true, &breaking), TQvUserBreak);
}
} // namespace
