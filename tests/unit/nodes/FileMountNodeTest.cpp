#include "nodes/FileMountNode.h"

#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDirIterator>
#include <QFileInfo>

#include "support/FolderTree.h"
#include "support/Listing.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

namespace
{
using TIds = std::vector<std::string>;

/// "/D" is the folder "data".
class FileMountNode : public testing::Test
{
protected:
    std::string Disk(const std::string& name) const { return Folder + "/" + name; }
    bool Opens(const std::string& id, qvOpenMode mode)
    {
        return static_cast<bool>(*Node.OpenResource(id, mode, kQvShareAll, 0));
    }

    TTempFolder Temp;
    const std::string Folder = Temp.MakeFolder("data");
    TFileMountNode Node{"/D", TQvPath(Folder)};
};

TEST_F(FileMountNode, NoIdLeadsOutOfTheFolder)
{
    EXPECT_EQ(Node.PathFromId("/D"), Folder);
    EXPECT_EQ(Node.PathFromId("/D/a/b.c"), Folder + "/a/b.c");
    EXPECT_EQ(Node.PathFromId("/D//etc/passwd"), Folder + "/etc/passwd");
    EXPECT_EQ(Node.PathFromId("/D/a/../../../x/./y"), Folder + "/x/y");
    EXPECT_EQ(Node.ResourceExists("/D/.."), kResFolder);

    // what lies beside the folder is no sidecar of it, and the folder itself is not deleted by way
    // of ".."
    MakeTree(Temp.Path(), "data/a.txt=a data/sub/ data.meta=mine x.txt=outside");
    for (const char* folder : {"/D", "/D/..", "/D/a/..", "/D/sub", "/D/sub/"})
        for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12, 0, 13})
            EXPECT_FALSE(Opens(folder, mode)) << folder << " in mode " << mode;
    EXPECT_FALSE(Node.ResourceMetaExists("/D/.."));
    EXPECT_FALSE(Node.DeleteResource("/D/../x.txt"));
    EXPECT_FALSE(Node.DeleteFolder("/D/.."));
    EXPECT_NO_THROW(Node.RenameFolderE("/D/sub", "../../renamed"));
    EXPECT_FALSE(Node.CopyResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_FALSE(Node.RenMovResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "data.meta=mine data/a.txt=a data/renamed/ x.txt=outside");
}

TEST_F(FileMountNode, OpenNamesTheStreamAndTakesTheSizeHint)
{
    const auto stream = Node.OpenResource("/D/new", kQvOpenCreate, kQvShareAll, 1000);
    EXPECT_EQ(stream->InfoName(), "qvres:/D/new");
    EXPECT_EQ(stream->getSize(), 1000u);
    EXPECT_EQ(stream->getPosition(), 0u);
}

TEST_F(FileMountNode, StaleSidecarGoesWithTheMissingResource)
{
    for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12}) {
        MakeTree(Folder, "a.meta=stale b= b.meta=live folder/.meta=a_file_of_the_folder");
        for (const char* id : {"/D/a", "/D/b", "/D/folder/"})
            Opens(id, mode);
        unlink(Disk("a").c_str());
        EXPECT_EQ(TreeOf(Folder), "b= b.meta=live folder/.meta=a_file_of_the_folder") << mode;
    }
}

TEST_F(FileMountNode, MetadataNeedsItsResource)
{
    MakeTree(Folder, "a=1");
    EXPECT_FALSE(Node.OpenResourceMeta("/D/none", kQvOpenReadWrite, kQvShareAll));
    EXPECT_FALSE(Node.OpenResourceMeta("/D/a", kQvOpenRead, kQvShareAll));
    const auto meta = Node.OpenResourceMeta("/D/a", kQvOpenReadWrite, kQvShareAll);
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->InfoName(), "qvres:/D/a:meta");
    EXPECT_TRUE(Node.ResourceMetaExists("/D/a"));
    EXPECT_EQ(TreeOf(Folder), "a=1 a.meta=");
}

TEST_F(FileMountNode, CopiedMovedAndDeletedWithTheSidecar)
{
    const auto copy = [this](const char* from, const char* to) {
        return [=] { return Node.CopyResource(from, to, nullptr); };
    };
    const auto copyMeta = [this](const char* from, const char* to) {
        return [=] { return Node.CopyResourceMeta(from, to); };
    };
    const auto move = [this](const char* from, const char* to) {
        return [=] { return Node.RenMovResource(from, to, nullptr); };
    };
    const auto remove = [this](const char* id) { return [=] { return Node.DeleteResource(id); }; };
    ExpectTrees(
        Folder,
        {{"follows a copy", copy("/D/a", "/D/b"), true, "a=1 a.meta=m b.meta=2",
          "a=1 a.meta=m b=1 b.meta=m"},
         {"the target's stays when there is none", copy("/D/a", "/D/b"), true, "a=1 b=2 b.meta=m",
          "a=1 b=1 b.meta=m"},
         {"onto itself", copy("/D/a", "/D/a"), true, "a=1 a.meta=m"},
         {"copy onto its own sidecar", copy("/D/a", "/D/a.meta"), false, "a=1 a.meta=m"},
         {"copy of its own sidecar", copy("/D/a.meta", "/D/a"), false, "a=1 a.meta=m"},
         {"cannot follow a copy", copy("/D/a", "/D/b"), false, "a=1 a.meta=m b.meta/",
          "a=1 a.meta=m b=1 b.meta/"},

         {"alone", copyMeta("/D/a", "/D/b"), true, "a=1 a.meta=m b=2", "a=1 a.meta=m b=2 b.meta=m"},
         {"alone to none", copyMeta("/D/a", "/D/b"), false, "a=1 a.meta=m"},
         {"alone, none", copyMeta("/D/a", "/D/b"), false, "a=1 b=2 b.meta=m"},

         {"follows a move", move("/D/a", "/D/b"), true, "a=1 a.meta=m b=2", "b=1 b.meta=m"},
         {"move of nothing", move("/D/a", "/D/b"), false, "b=2"},
         {"move onto its own sidecar", move("/D/a", "/D/a.meta"), false, "a=1 a.meta=m"},
         {"move of its own sidecar", move("/D/a.meta", "/D/a"), false, "a=1 a.meta=m"},
         {"a link onto what it leads to", move("/D/a", "/D/b"), false, "a>b b=2"},
         {"cannot follow a move", move("/D/a", "/D/b"), false, "a=1 a.meta=m b.meta/",
          "a.meta=m b=1 b.meta/"},

         {"goes, too", remove("/D/a"), true, "a=1 a.meta=m", ""},
         {"delete of nothing", remove("/D/a"), false, "a.meta=m"},
         {"a folder is no sidecar", remove("/D/a"), true, "a=1 a.meta/", "a.meta/"}});

    const std::string longName(252, 'n');
    Temp.Write("data/" + longName, "");
    EXPECT_TRUE(Node.DeleteResource("/D/" + longName)) << "no name is left for a sidecar";
}

TEST_F(FileMountNode, RenameTellsTheError)
{
    MakeTree(Folder, "a/b/ c/");
    const TQvMessage error = Thrown([this] { Node.RenameFolderE("/D/a", "c"); });
    EXPECT_EQ(error.text(), "The folder cannot be renamed (error %1%: %2%).");
    EXPECT_EQ(error.arguments(), (TIds{std::to_string(EEXIST), "File exists"}));
    EXPECT_EQ(TreeOf(Folder), "a/b/ c/");
}

TEST_F(FileMountNode, AttributesAreTheSystemsOwn)
{
    const QFileInfo info(QString::fromStdString(Temp.Write("data/a", std::string(1234, 'x'))));
    TQvResAttrib attrib;
    ASSERT_TRUE(Node.GetResourceAttr("/D/a", &attrib));
    EXPECT_EQ(attrib.Kind, kResResource);
    EXPECT_EQ(attrib.Origin, kOriginFileNode);
    EXPECT_EQ(attrib.Size, 1234u);
    EXPECT_EQ(attrib.UpdateTime, TQvDateTime::FromQDateTime(info.lastModified()));
    EXPECT_NE(attrib.CreationTime, TQvDateTime());
    EXPECT_FALSE(Node.GetResourceAttr("/D/a", nullptr));
    EXPECT_FALSE(Node.GetResourceAttr("/D/none", &attrib));

    const auto items = make_var<std::vector<TQvResFindItem>>();
    EXPECT_TRUE(Node.Find(items, "/D", "a", kFindResources | kFindAttributes, nullptr));
    EXPECT_EQ(items->at(0).Attrib.Size, attrib.Size);
    EXPECT_EQ(items->at(0).Attrib.UpdateTime, attrib.UpdateTime);
    EXPECT_EQ(items->at(0).Attrib.CreationTime, attrib.CreationTime);
    EXPECT_TRUE(Node.Find(items, "/D", "a", kFindResources, nullptr));
    EXPECT_EQ(items->at(1).Attrib.UpdateTime, TQvDateTime()) << "only when asked for";
}

class FileMountNodeFind : public FileMountNode
{
protected:
    FileMountNodeFind()
    {
        MakeTree(Folder,
                 "a= B/ x= 1a= ab/ aB= Ba/ xb.a= a.x= a.B/ x.= [= ]= [a]= [b]b/ b*= *a/ -a= "
                 "*.*= B.TXT= a.meta= a.meta.txt= .hidden= .meta= $QvStorage.list= "
                 "loop>. device>/dev/null dangling>nowhere");
        mkfifo(Disk("fifo").c_str(), 0600);
    }
};

TEST_F(FileMountNodeFind, GivesWhatQtGivesInItsOrderButNoSidecar)
{
    for (const char* mask : {"*", "*.*", "a*", "?b*", "*[ab]", "*.", "x", "[!a]*", "", "[[]?]"}) {
        for (const unsigned flags : {1, 2, 3}) {
            TIds expected;
            QDirIterator iterator(QString::fromStdString(Folder), {QString::fromUtf8(mask)},
                                  QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot);
            while (iterator.hasNext()) {
                const std::string name = QFileInfo(iterator.next()).fileName().toStdString();
                const bool isFolder = iterator.fileInfo().isDir();
                if (name != "a.meta" && (flags & (isFolder ? kFindFolders : kFindResources)) != 0)
                    expected.push_back("/D/" + name + (isFolder ? "/" : ""));
            }
            EXPECT_EQ(Listed(Node, "/D", mask, flags), expected) << mask << " with " << flags;
        }
    }
    EXPECT_EQ(Listed(Node, "/D", "?.t[x-z]t", 1), TIds{"/D/B.TXT"});
}

TEST_F(FileMountNodeFind, ProbesAndPolls)
{
    const auto items = make_var<std::vector<TQvResFindItem>>();
    EXPECT_FALSE(Node.Find(items, "/D", "none", 3, nullptr));
    EXPECT_FALSE(Node.Find(items, "/D/missing", "*", 3, nullptr));
    EXPECT_TRUE(items->empty());
    TTestProgress progress;
    EXPECT_TRUE(Node.Find({}, "/D", "*", 1, &progress));
    EXPECT_LE(progress.Polls, 10) << "a probe ends at the first match";
    EXPECT_FALSE(Node.Find({}, "/D", "none", 1, &progress));
    EXPECT_GE(progress.Polls, 28) << "once an entry, not a match";
    EXPECT_FALSE(Opens("/D/fifo", kQvOpenRead)) << "nor does it wait for a writer";
}
} // namespace
