#include <cerrno>
#include <ctime>

#include "services/Backup.h"
#include "support/EnvironmentVariable.h"
#include "support/FolderTree.h"
#include "support/MountedFolder.h"
#include "support/Thrown.h"

namespace
{
/// In these trees a file with the content "5" was last written in 2005, at the end of the second
/// that its stamp says; "#5" is that stamp.
class Backups : public TMountedFolder
{
protected:
    Backups() { tzset(); }

    static std::string WithStamps(std::string tree)
    {
        for (std::size_t at; (at = tree.find('#')) != std::string::npos;)
            tree.replace(at, 2, std::string(".200") + tree[at + 1] + "-03-05.19-37-09");
        return tree;
    }
    void Expect(const std::string& id, std::size_t keep, const char* before, const char* after,
                const std::string& error = "")
    {
        MakeTree(Temp.Path(), WithStamps(before));
        for (const auto& file : std::filesystem::recursive_directory_iterator(Temp.Path())) {
            std::tm time = {};
            const std::string content = file.is_directory() ? "" : ReadFile(file.path());
            if (strptime(WithStamps('#' + content + ' ').c_str(), ".%Y-%m-%d.%H-%M-%S", &time) !=
                nullptr)
                Put(file.path().lexically_relative(Temp.Path()), mktime(&time) * 1000 + 999,
                    content);
        }
        EXPECT_EQ(Thrown([&] { BackupResource("/T/" + id, keep); }).text(), error) << before;
        EXPECT_EQ(TreeOf(Temp.Path()), WithStamps(after)) << "keeping " << keep << " of " << before;
    }

    const TEnvironmentVariable Zone{"TZ", "XYZ-5:30"}; // ahead of UTC
};

TEST_F(Backups, StampIsTheContentsLocalTime)
{
    Expect("a.tar.gz", 3, "a.tar.gz=5 a.tar.gz.meta=5",
           "backup/a.tar#5.gz=5 backup/a.tar#5.gz.meta=5");
    Expect("a.b", 3, "a.b=5 backup/a#5.b=4", "backup/a#5.b=5"); // the same second, the same name
}

TEST_F(Backups, KeepsAtMostThatManyOfItsOwn)
{
    // Age is the file's time, not the stamp in its name.
    const char* before = "a.b=9 backup/a#1.b=3 backup/a#2.b=2 backup/a#3.b=1";
    Expect("a.b", 2, before, "backup/a#1.b=3 backup/a#9.b=9");
    Expect("a.b", 9, before, "backup/a#1.b=3 backup/a#2.b=2 backup/a#3.b=1 backup/a#9.b=9");
    Expect("a.b", 0, before, "backup/a#1.b=3 backup/a#2.b=2 backup/a#3.b=1");
    Expect("a", 2, "a=9 backup/a#1=1 backup/a#2=1",
           "backup/a#1=1 backup/a#2=1 backup/a#9=9"); // two of one time count as one
    // A mask made of the unescaped name, or one that ignores case, would match all of these.
    Expect("a[1].b", 1,
           "a[1].b=9 backup/A[1]#1.b=1 backup/a#1.b=1 backup/a1#1.b=1 backup/a[1]#1.b=1 "
           "backup/a[1]#1.c=1 backup/a[1]x#1.b=1",
           "backup/A[1]#1.b=1 backup/a#1.b=1 backup/a1#1.b=1 backup/a[1]#1.c=1 backup/a[1]#9.b=9 "
           "backup/a[1]x#1.b=1");
}

TEST_F(Backups, FailuresKeepTheResource)
{
    const std::string signature = "@void BackupResource(const std::__cxx11::string &, size_t): ";
    Expect("none", 3, "a=5", "a=5", signature + "Invalid resource ID");
    EXPECT_EQ(TResourceManager::LastFailure().Error, ENOENT);
    Expect("a", 3, "a=5 backup=1", "a=5 backup=1",
           signature + "The folder for the backups cannot be created.");
    // A failed move is not reported, nor is a failed delete; keeping none makes no folder.
    Expect("a", 3, "a=5 backup/a#5/in_the_way=1", "a=5 backup/a#5/in_the_way=1");
    Expect("a", 0, "a=5 a.meta/in_the_way=1", "a.meta/in_the_way=1");
    EXPECT_EQ(Thrown([] { BackupResource("T/a", 3); }).text(), signature + "Invalid resource ID");
}
} // namespace
