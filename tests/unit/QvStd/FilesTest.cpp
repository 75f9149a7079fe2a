#include <gtest/gtest.h>

#include <QFileInfo>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "QvStd/Files.h"
#include "QvStd/FreeSpaceMap.h"
#include "QvStd/Message.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace
{
using TNames = std::vector<std::string>;
constexpr std::size_t kMiB = 1024 * 1024;

std::string Pattern(std::size_t size)
{
    std::string text(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        text[i] = static_cast<char>(i * 7 + i / 251);
    return text;
}

struct stat Status(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

mode_t Mode(const std::string& path)
{
    return Status(path).st_mode & 07777;
}

void Link(const std::string& target, const std::string& path)
{
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0) << path;
}

/// Records what a copy tells, and does something at a poll of its own choice.
class THandler : public TQvProgressHandler
{
public:
    void Start() override {}
    void Stop() override {}
    bool Started() const override { return true; }
    bool Active() const override { return true; }
    void SetPosition(double position) override { Positions.push_back(position); }
    void SetMessage(const std::string&) override {}
    bool Poll() override { return ++Polls == BreakAt || Polls == KillAt; }
    void Update() override
    {
        if (Polls == KillAt)
            raise(SIGKILL);
        if (Polls == BreakAt)
            throw TQvUserBreak();
    }
    bool UserBreak() const override { return false; }

    int Polls = 0;
    int BreakAt = -1;
    int KillAt = -1;
    std::vector<double> Positions;
};

/// Makes renameat2 answer EINVAL in this process, as file systems do that lack the exclusive form.
bool ForbidExclusiveRename()
{
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_renameat2, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EINVAL),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof code / sizeof code[0], code};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// Lets permission bits count for a test that runs as root too.
bool BecomeOrdinaryUser(const TNames& folders)
{
    constexpr uid_t kNobody = 65534;
    if (geteuid() != 0)
        return true;
    for (const std::string& folder : folders) {
        if (chown(folder.c_str(), kNobody, kNobody) != 0)
            return false;
    }
    return setuid(kNobody) == 0;
}
} // namespace

TEST(FileCopy, KeepsContentTimeAndPermissionsOfEverySize)
{
    const TTempFolder temp;
    const mode_t umaskBefore = umask(077);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4095},
                                   std::size_t{4096}, 256 * 1024 - 1ul, 256 * 1024ul, 3 * kMiB}) {
        const std::string from = temp.Write("from", Pattern(size));
        const timespec times[2] = {{5, 0}, {1234567890, 123456789}};
        ASSERT_EQ(utimensat(AT_FDCWD, from.c_str(), times, 0), 0);
        ASSERT_EQ(chmod(from.c_str(), 0654), 0);
        ASSERT_TRUE(QvCopyFile(from, temp / "to", false)) << size;
        EXPECT_EQ(ReadFile(temp / "to"), Pattern(size)) << size;
        EXPECT_EQ(Mode(temp / "to"), 0654u);
        EXPECT_EQ(Status(temp / "to").st_mtim.tv_nsec, 123456789);
        EXPECT_EQ(GetUnixFileTime(temp / "to"), 1234567890u);
        std::string read;
        EXPECT_TRUE(QvReadWholeFile(from, &read));
        EXPECT_EQ(read, Pattern(size)) << size;
    }
    umask(umaskBefore);
    EXPECT_EQ(NamesIn(temp.Path()), (TNames{"from", "to"}));
}

TEST(FileCopy, ReadsFilesThatClaimToBeEmpty)
{
    const TTempFolder temp;
    const std::string expected = ReadFile("/proc/filesystems");
    std::string read;
    ASSERT_FALSE(expected.empty());
    EXPECT_TRUE(QvReadWholeFile("/proc/filesystems", &read));
    EXPECT_EQ(read, expected);
    EXPECT_TRUE(QvCopyFile("/proc/filesystems", temp / "to", false));
    EXPECT_EQ(ReadFile(temp / "to"), expected);
}

TEST(FileCopy, RefusalsChangeNothing)
{
    const TTempFolder temp;
    const std::string from = temp.Write("from", "new");
    const std::string old = temp.Write("old", "old");
    const std::string folder = temp.MakeFolder("folder");
    const std::string fifo = temp / "fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    Link("folder", temp / "to folder");
    Link("nowhere", temp / "dangling");
    const TNames before = NamesIn(temp.Path());
    struct TCase
    {
        std::string From;
        std::string To;
        bool FailIfExists;
        int Error;
    };
    const TCase cases[] = {
        {temp / "missing", old, false, ENOENT},
        {folder, old, false, EISDIR},
        {fifo, old, false, EINVAL},
        {from, folder, false, EISDIR},
        {from, temp / "to folder", false, EISDIR},
        {from, old, true, EEXIST},
        {from, temp / "dangling", true, EEXIST},
        {from, temp / "no/folder", false, ENOENT},
        {from, temp / "new/", false, ENOENT},
        {from, "", false, ENOENT},
        {from, temp / std::string(256, 'n'), false, ENAMETOOLONG},
    };
    for (const TCase& c : cases) {
        EXPECT_FALSE(QvCopyFile(c.From, c.To, c.FailIfExists)) << c.From << " to " << c.To;
        EXPECT_EQ(errno, c.Error) << c.From << " to " << c.To;
        EXPECT_EQ(NamesIn(temp.Path()), before) << c.From << " to " << c.To;
    }
    EXPECT_EQ(ReadFile(old), "old");
    std::string read = "kept";
    EXPECT_FALSE(QvReadWholeFile(fifo, &read));
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(read, "kept");
}

TEST(FileCopy, OntoItselfChangesNothingAndALinkIsReplaced)
{
    const TTempFolder temp;
    const std::string from = temp.Write("from", "text");
    const std::string twin = temp / "twin";
    ASSERT_EQ(link(from.c_str(), twin.c_str()), 0);
    EXPECT_TRUE(QvCopyFile(from, from, false));
    EXPECT_TRUE(QvCopyFile(from, twin, false));
    EXPECT_EQ(Status(from).st_ino, Status(twin).st_ino);

    const std::string other = temp.Write("other", "other");
    Link("other", temp / "link");
    EXPECT_TRUE(QvCopyFile(from, temp / "link", false));
    EXPECT_FALSE(QvIsSymLink(temp / "link"));
    EXPECT_EQ(ReadFile(temp / "link"), "text");
    EXPECT_EQ(ReadFile(other), "other");
    // The temporary's name must fit beside the longest one, and end between two characters.
    std::string longest;
    while (longest.size() < 254)
        longest += "\xC3\xA4";
    EXPECT_TRUE(QvCopyFile(from, temp / longest, false));
}

TEST(FileCopy, ReportsProgressAndBreaksOff)
{
    const TTempFolder temp;
    const std::string from = temp.Write("from", Pattern(20 * kMiB));
    const std::string to = temp.Write("to", "old");
    THandler breaking;
    breaking.BreakAt = 3;
    EXPECT_FALSE(QvCopyFileEx(from, to, false, &breaking));
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_EQ(ReadFile(to), "old");
    EXPECT_EQ(NamesIn(temp.Path()), (TNames{"from", "to"}));

    THandler watching;
    EXPECT_TRUE(QvCopyFileEx(from, to, false, &watching));
    EXPECT_TRUE(std::is_sorted(watching.Positions.begin(), watching.Positions.end()));
    EXPECT_GE(watching.Polls, 3);
    EXPECT_GE(watching.Positions.size(), 3u);
    EXPECT_EQ(watching.Positions.back(), 1.0);
}

TEST(FileCopy, KilledCopyLeavesTheOldTarget)
{
    const TTempFolder temp;
    const std::string from = temp.Write("from", Pattern(2 * kMiB));
    const std::string to = temp.Write("to", "old");
    TChildProcess child([&] {
        THandler handler;
        handler.KillAt = 4;
        return QvCopyFileEx(from, to, false, &handler) ? 0 : 1;
    });
    EXPECT_EQ(child.Wait(), -SIGKILL);
    EXPECT_EQ(ReadFile(to), "old");
}

TEST(FileCopy, FullDiskLeavesTheOldTargetAndNoTemporary)
{
    const TTempFolder temp;
    const std::string from = temp.Write("from", Pattern(kMiB));
    const std::string to = temp.Write("to", "old");
    TChildProcess child([&] {
        const rlimit limit = {300 * 1024, 300 * 1024};
        signal(SIGXFSZ, SIG_IGN);
        if (setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 1;
        if (QvCopyFile(from, to, false) || errno != EFBIG)
            return 2;
        return QvWriteFileAtomically(to, Pattern(kMiB)) || errno != EFBIG ? 3 : 0;
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(ReadFile(to), "old");
    EXPECT_EQ(NamesIn(temp.Path()), (TNames{"from", "to"}));
}

TEST(FileMove, ReplacesOnlyWhenTold)
{
    const TTempFolder temp;
    const auto run = [&](bool exclusiveForbidden) {
        if (exclusiveForbidden && !ForbidExclusiveRename())
            return 1;
        const std::string from = temp.Write("from", "new");
        const std::string to = temp.Write("to", "old");
        const std::string folder = temp.MakeFolder("folder");
        const std::string empty = temp.MakeFolder("empty");
        if (QvMoveFileEx(from, to, false, false) || errno != EEXIST || ReadFile(to) != "old")
            return 2;
        if (QvMoveFileEx(folder, empty, false, false) || errno != EEXIST)
            return 3;
        if (QvMoveFileEx(folder, temp / "folder/inside", false, false) || errno != EINVAL ||
            Exists(temp / "folder/inside"))
            return 4;
        if (!QvMoveFileEx(from, temp / "free", false, false) || ReadFile(temp / "free") != "new")
            return 5;
        if (!QvMoveFileEx(folder, temp / "renamed", false, false) || Exists(folder))
            return 6;
        if (!QvMoveFileEx(temp / "free", to, true, false) || ReadFile(to) != "new")
            return 7;
        return rmdir((temp / "renamed").c_str()) == 0 ? 0 : 8;
    };
    EXPECT_EQ(run(false), 0);
    EXPECT_EQ(TChildProcess([&] { return run(true); }).Wait(), 0);
}

TEST(FileMove, AcrossDevicesCopiesThenDeletes)
{
    const TTempFolder temp;
    std::string other = "/dev/shm/qv.XXXXXX";
    if (mkdtemp(other.data()) == nullptr || Status(other).st_dev == Status(temp.Path()).st_dev) {
        rmdir(other.c_str());
        GTEST_SKIP() << "no second device";
    }
    const std::string from = temp.Write("from", "new");
    const std::string to = other + "/to";
    EXPECT_FALSE(QvMoveFileEx(from, to, true, false));
    EXPECT_EQ(errno, EXDEV);
    EXPECT_TRUE(QvMoveFileEx(from, to, false, true));
    EXPECT_EQ(ReadFile(to), "new");
    EXPECT_FALSE(Exists(from));
    temp.Write("from", "newer");
    EXPECT_FALSE(QvMoveFileEx(from, to, false, true));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(ReadFile(from), "newer");
    EXPECT_TRUE(QvRemoveDirectoryEx(other, true, false, nullptr));
}

TEST(WriteAtomically, KeepsPermissionsAndLinks)
{
    const TTempFolder temp;
    const std::string file = temp.Write("file", "old");
    ASSERT_EQ(chmod(file.c_str(), 0604), 0);
    temp.MakeFolder("folder");
    Link("../file", temp / "folder/link");
    Link("folder/link", temp / "chain");
    Link("folder/fresh", temp / "dangling");
    Link("loop", temp / "loop");
    EXPECT_TRUE(QvWriteFileAtomically(temp / "chain", "new"));
    EXPECT_EQ(ReadFile(file), "new");
    EXPECT_EQ(Mode(file), 0604u);
    EXPECT_TRUE(QvIsSymLink(temp / "folder/link"));
    EXPECT_TRUE(QvWriteFileAtomically(temp / "dangling", "fresh"));
    EXPECT_EQ(ReadFile(temp / "folder/fresh"), "fresh");
    const std::pair<std::string, int> refused[] = {
        {temp / "folder", EISDIR},
        {temp / "no/file", ENOENT},
        {temp / "loop", ELOOP},
        {"/dev/null", EINVAL},
        {"", ENOENT},
    };
    for (const auto& [path, error] : refused) {
        EXPECT_FALSE(QvWriteFileAtomically(path, "x")) << path;
        EXPECT_EQ(errno, error) << path;
    }
    EXPECT_EQ(NamesIn(temp.Path()), (TNames{"chain", "dangling", "file", "folder", "loop"}));
    EXPECT_EQ(NamesIn(temp / "folder"), (TNames{"fresh", "link"}));
}

TEST(Folders, ForceDirectoriesStandsOthersDoingTheSame)
{
    const TTempFolder temp;
    const std::string deep = temp / "a/b//c/d/e/f/g/h/";
    const auto make = [&] { return QvForceDirectories(deep) ? 0 : 1; };
    TChildProcess first(make);
    TChildProcess second(make);
    EXPECT_EQ(make() + first.Wait() + second.Wait(), 0);
    EXPECT_TRUE(QvDirExists(deep));
    const std::string file = temp.Write("file", "");
    Link("nowhere", temp / "dangling");
    const std::pair<std::string, int> refused[] = {
        {file, EEXIST}, {file + "/x", ENOTDIR}, {"", ENOENT}, {temp / "dangling", EEXIST}};
    for (const auto& [path, error] : refused) {
        EXPECT_FALSE(QvForceDirectories(path)) << path;
        EXPECT_EQ(errno, error) << path;
    }
}

TEST(Folders, RemoveDirectoryRemovesALinkToAFolder)
{
    const TTempFolder temp;
    temp.Write("folder/file", "");
    Link("folder", temp / "link");
    Link("folder/file", temp / "file link");
    EXPECT_TRUE(QvRemoveDirectory((temp / "link") + "//"));
    EXPECT_FALSE(QvRemoveDirectory(temp / "file link"));
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_FALSE(QvRemoveDirectory(temp / "folder"));
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_EQ(NamesIn(temp.Path()), (TNames{"file link", "folder"}));
}

TEST(Folders, RemovalIsNeverLedOutByLinks)
{
    const TTempFolder temp;
    temp.Write("outside/file", "kept");
    temp.Write("tree/deep/er/file", "");
    temp.Write("tree/back\\slash", "");
    Link("../outside", temp / "tree/link");
    Link("../../../outside/file", temp / "tree/deep/er/link");
    Link("tree", temp / "to tree");
    for (const std::string& refused :
         {std::string(), std::string("/"), temp / "tree/.", temp / "tree/deep/..", temp / "tree/./",
          (temp / "tree") + std::string("\0x", 2)}) {
        std::string text;
        EXPECT_FALSE(QvRemoveDirectoryEx(refused, true, true, &text)) << refused;
        EXPECT_EQ(errno, EINVAL) << refused;
        EXPECT_FALSE(text.empty());
    }
    EXPECT_FALSE(QvRemoveDirectoryEx(temp / "tree", false, true, nullptr));
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(QvRemoveDirectoryEx((temp / "to tree") + "/", true, true, nullptr));
    EXPECT_TRUE(Exists(temp / "tree/deep/er/file"));
    EXPECT_TRUE(QvRemoveDirectoryEx((temp / "tree") + "/", true, false, nullptr));
    EXPECT_EQ(NamesIn(temp.Path()), TNames{"outside"});
    EXPECT_EQ(ReadFile(temp / "outside/file"), "kept");
}

TEST(Folders, ForceRemovesWhatIsProtectedAndWithoutItTheRestGoes)
{
    const TTempFolder temp;
    temp.Write("tree/protected/sub/file", "");
    temp.Write("tree/other/file", "");
    TChildProcess child([&] {
        const std::string tree = temp / "tree";
        const std::string inner = tree + "/protected";
        if (!BecomeOrdinaryUser({temp.Path(), tree, inner, inner + "/sub", tree + "/other"}))
            return 1;
        std::string text;
        if (chmod((inner + "/sub").c_str(), 0) != 0 || chmod(inner.c_str(), 0500) != 0)
            return 2;
        if (QvRemoveDirectoryEx(tree, true, false, &text) || errno != EACCES)
            return 3;
        if (text != "\"" + inner + "/sub\": Permission denied" || NamesIn(tree).size() != 1)
            return 4;
        return QvRemoveDirectoryEx(tree, true, true, &text) && !Exists(tree) ? 0 : 5;
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST(FindFiles, MasksOrderAndLinks)
{
    const TTempFolder temp;
    for (const char* name : {"b.txt", "a.txt", ".hidden", "plain", "B.TXT", "\xC3\xA4.txt", "[x]*",
                             "sub/c.txt", "sub/deep/d.txt"})
        temp.Write(name, "");
    Link("sub", temp / "link");
    Link(".", temp / "sub/loop");
    struct TCase
    {
        const char* Mask;
        bool WithFolders;
        bool Recursive;
        TNames Names;
    };
    const TCase cases[] = {
        {"*",
         false,
         false,
         {".hidden", "B.TXT", "[x]*", "a.txt", "b.txt", "plain", "\xC3\xA4.txt"}},
        {"*.*",
         true,
         true,
         {".hidden", "B.TXT", "[x]*", "a.txt", "b.txt", "link", "plain", "sub", "sub/c.txt",
          "sub/deep", "sub/deep/d.txt", "sub/loop", "\xC3\xA4.txt"}},
        {"?.txt", false, true, {"a.txt", "b.txt", "sub/c.txt", "sub/deep/d.txt", "\xC3\xA4.txt"}},
        {"*l*n*", true, false, {"link", "plain"}},
        {"[x]*", true, false, {"[x]*"}},
        {"s*b", true, true, {"sub"}},
        {"", true, true, {}},
    };
    for (const TCase& c : cases) {
        TNames expected;
        for (const std::string& name : c.Names)
            expected.push_back(temp / name);
        EXPECT_EQ(QvFindFiles(temp.Path(), c.Mask, c.WithFolders, c.Recursive), expected) << c.Mask;
        EXPECT_EQ(QvFindFiles(temp.Path() + "/", c.Mask, c.WithFolders, c.Recursive), expected);
    }
    EXPECT_TRUE(QvFindFiles(temp / "missing", "*", true, true).empty());
    try {
        QvFindFiles(temp / "plain", "*", true, true);
        FAIL() << "a file was listed";
    } catch (const TQvMessage& message) {
        EXPECT_EQ(message.text(), "Err_ReadFolder_name");
        EXPECT_EQ(message.arguments(), (TNames{temp / "plain", "Not a directory"}));
    }
    THandler breaking;
    breaking.BreakAt = 2;
    EXPECT_THROW(QvFindFiles(temp.Path(), "*", true, true, &breaking), TQvUserBreak);
}

TEST(FileInfo, AgreesWithQt)
{
    const TTempFolder temp;
    temp.Write("a\\b", "12345");
    Link("a\\b", temp / "link");
    for (const std::string& path : {temp / "a\\b", temp / "link", temp.Path()}) {
        TQvFileInfo info;
        ASSERT_TRUE(QvGetFileInfo(path, &info)) << path;
        const QFileInfo other(QString::fromStdString(path));
        EXPECT_EQ(info.Size, static_cast<std::uint64_t>(other.size()));
        EXPECT_EQ(info.IsFolder, other.isDir());
        EXPECT_EQ(info.UpdateTime, TQvDateTime::FromQDateTime(other.lastModified()));
        const QDateTime born = other.birthTime();
        EXPECT_EQ(info.CreationTime,
                  TQvDateTime::FromQDateTime(born.isValid() ? born : other.metadataChangeTime()));
    }
}

TEST(FreeSpaceMap, CountsAVolumeOnce)
{
    const TTempFolder temp;
    const var_a<TQvFreeSpaceMap*> map = TQvFreeSpaceMap::VCreate();
    const std::string serial = map->GetVolumeSerial(TQvPath(temp.Path()));
    EXPECT_EQ(map->GetVolumeSerial(TQvPath(temp.MakeFolder("sub"))), serial);
    const std::string none = map->GetVolumeSerial(TQvPath(temp / "missing"));
    EXPECT_EQ(none, TQvFreeSpaceMap::InvalidVolSerial);
    EXPECT_NE(serial, none);
    EXPECT_NE(map->GetVolumeSerial(TQvPath("/proc")), serial);
    EXPECT_GT(map->GetTotalFreeSpace({serial, none}), 0u);
    EXPECT_EQ(map->GetTotalFreeSpace({none}), 0u);
    map->Clear();
    EXPECT_EQ(map->GetTotalFreeSpace({serial}), 0u);
}
