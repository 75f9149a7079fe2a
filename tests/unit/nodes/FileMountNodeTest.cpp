#include "nodes/FileMountNode.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDirIterator>
#include <QFileInfo>

#include "QvStd/Clock.h"
#include "storage/ResFileStream.h"
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
    bool Opens(const std::string& id, qvOpenMode mode)
    {
        return static_cast<bool>(*Node.OpenResource(id, mode, kQvShareAll, 0));
    }

    TTempFolder Temp;
    const std::string Folder = Temp.MakeFolder("data");
    TFileMountNode Node{"/D", TQvPath(Folder)};
};

TEST_F(FileMountNode, NoIdNamesAFileOutsideTheFolder)
{
    // what lies beside the folder is no sidecar of it, and the folder itself is not deleted by way
    // of ".."
    MakeTree(Temp.Path(), "data/a.txt=a data/sub/ data.meta=mine x.txt=outside");
    for (const char* folder : {"/D", "/D/..", "/D/a/..", "/D/sub", "/D/sub/"})
        for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12, 0, 13})
            EXPECT_FALSE(Opens(folder, mode)) << folder << " in mode " << mode;
    EXPECT_FALSE(Node.ResourceMetaExists("/D/.."));
    EXPECT_TRUE(Node.IsSameResource("/D/a/../none", Node, "/D/none"));
    EXPECT_EQ(TFileMountNode("/", TQvPath(Folder)).GetResourceFile("/../x"), Folder + "/x")
        << "as a profile may name it";
    EXPECT_FALSE(Node.DeleteResource("/D/../x.txt"));
    EXPECT_FALSE(Node.DeleteFolder("/D/.."));
    EXPECT_NO_THROW(Node.RenameFolderE("/D/sub", "../../renamed"));
    EXPECT_FALSE(Node.CopyResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_FALSE(Node.RenMovResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "data.meta=mine data/a.txt=a data/renamed/ x.txt=outside");

    const TQvMessage error = Thrown([this] { Node.RenameFolderE("/D/renamed", "a.txt"); });
    EXPECT_EQ(error.text(), "The folder cannot be renamed (error %1%: %2%).");
    EXPECT_EQ(error.arguments(), (TIds{std::to_string(EEXIST), "File exists"}));
    EXPECT_EQ(Thrown([this] { Node.RenameFolderE("/D/none", "x"); }).arguments().at(0),
              std::to_string(ENOENT));
}

TEST_F(FileMountNode, OpeningRemovesStaleMetadataOnly)
{
    MakeTree(Folder, "a=1");
    EXPECT_FALSE(Node.OpenResourceMeta("/D/none", kQvOpenReadWrite, kQvShareAll));
    EXPECT_FALSE(Node.OpenResourceMeta("/D/a", kQvOpenRead, kQvShareAll));
    const auto meta = Node.OpenResourceMeta("/D/a", kQvOpenReadWrite, kQvShareAll);
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->InfoName(), "qvres:/D/a:meta");
    EXPECT_TRUE(Node.ResourceMetaExists("/D/a"));
    EXPECT_EQ(TreeOf(Folder), "a=1 a.meta=");
    const auto stream = Node.OpenResource("/D/new", kQvOpenCreate, kQvShareAll, 1000);
    EXPECT_EQ(stream->InfoName(), "qvres:/D/new");
    EXPECT_EQ(dynamic_cast<const TQvResStream&>(*stream).Type(), kStreamPlainFile);
    EXPECT_EQ(stream->getSize(), 1000u);

    for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12}) {
        MakeTree(Folder, "a.meta=stale b= b.meta=live folder/.meta=a_file_of_the_folder");
        for (const char* id : {"/D/a", "/D/b", "/D/folder/"})
            Opens(id, mode);
        unlink((Folder + "/a").c_str());
        EXPECT_EQ(TreeOf(Folder), "b= b.meta=live folder/.meta=a_file_of_the_folder") << mode;
    }
}

TEST_F(FileMountNode, ANewTargetMayHaveASidecarAndALongNameNone)
{
    MakeTree(Folder, "a=1 a.meta=m b.meta=of_another_process");
    TResourceManager::TMountNode::TCopyHints hints;
    hints.IsTargetNew = true;
    EXPECT_TRUE(Node.CopyResourceTo("/D/a", Node, "/D/b", hints, nullptr).Sidecar);
    EXPECT_EQ(TreeOf(Folder), "a=1 a.meta=m b=1 b.meta=m");

    const std::string longName(252, 'n');
    Temp.Write("data/" + longName, "");
    EXPECT_TRUE(Node.DeleteResource("/D/" + longName)) << "no name is left for a sidecar";
}

TEST_F(FileMountNode, AttributesAreTheSystemsOwn)
{
    const std::string file = Temp.Write("data/a", std::string(1234, 'x'));
    QvSleep(20);
    chmod(file.c_str(), 0600); // so that the status changes after the birth
    const QFileInfo info(QString::fromStdString(file));
    const QDateTime born = info.birthTime();
    TQvResAttrib attrib;
    EXPECT_TRUE(Node.GetResourceAttr("/D/a", &attrib));
    EXPECT_EQ(attrib.Origin, kOriginFileNode);
    EXPECT_EQ(attrib.UpdateTime, TQvDateTime::FromQDateTime(info.lastModified()));
    EXPECT_EQ(attrib.CreationTime,
              TQvDateTime::FromQDateTime(born.isValid() ? born : info.metadataChangeTime()));
    EXPECT_FALSE(Node.GetResourceAttr("/D/a", nullptr));
    EXPECT_FALSE(Node.GetResourceAttr("/D/none", &attrib));

    const auto items = make_var<std::vector<TQvResFindItem>>();
    EXPECT_TRUE(Node.Find(items, "/D", "a", kFindResources, nullptr));
    EXPECT_EQ(items->at(0).Attrib.UpdateTime, TQvDateTime()) << "only when asked for";
    EXPECT_FALSE(Node.Find(items, "/D", "none", kFindResources, nullptr)) << "nothing new";
}

TEST_F(FileMountNode, FindEqualsQtExceptForSidecars)
{
    MakeTree(Folder, "a= B/ x= 1a= ab/ aB= Ba/ xb.a= a.x= a.B/ x.= [= ]= [a]= [b]b/ b*= *a/ -a= "
                     "*.*= B.TXT= a.meta= a.meta.txt= .hidden= .meta= $QvStorage.list= "
                     "loop>. device>/dev/null dangling>nowhere");
    mkfifo((Folder + "/fifo").c_str(), 0600);
    for (const char* mask : {"*", "*.*", "a*", "?b*", "*[ab]", "*.", "x", "[!a]*", "", "[[]?]"}) {
        for (const unsigned flags : {1u, 2u, 3u}) {
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
    EXPECT_FALSE(Node.Find({}, "/D/missing", "*", 3, nullptr));

    TTestProgress progress;
    EXPECT_TRUE(Node.Find({}, "/D", "*", 1, &progress));
    EXPECT_LE(progress.Polls, 10) << "a probe ends at the first match";
    EXPECT_FALSE(Node.Find({}, "/D", "none", 1, &progress));
    EXPECT_GE(progress.Polls, 28) << "once an entry, not a match";
    EXPECT_FALSE(Opens("/D/fifo", kQvOpenRead)) << "nor does it wait for a writer";
}
} // namespace
