#include "nodes/FileMountNode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <QDirIterator>
#include <QFileInfo>

#include "QvStd/Message.h"
#include "storage/ResFileStream.h"
#include "support/TempFolder.h"
#include "support/TestProgress.h"

namespace
{
class FileMountNode : public testing::Test
{
protected:
    FileMountNode() : Node("/D", TQvPath(Temp.MakeFolder("data"))) {}

    std::string Disk(const std::string& name) const { return Temp / ("data/" + name); }
    void Write(const std::string& name, const std::string& content) const
    {
        Temp.Write("data/" + name, content);
    }
    bool Opens(const std::string& id, qvOpenMode mode)
    {
        const auto stream = Node.OpenResource(id, mode, kQvShareAll, 0);
        return static_cast<bool>(*stream);
    }
    std::vector<TQvResFindItem> List(const std::string& mask, unsigned flags,
                                     const std::string& folder = "/D") const
    {
        const auto items = make_var<std::vector<TQvResFindItem>>();
        const bool found = Node.Find(items, folder, mask, flags, nullptr);
        EXPECT_EQ(found, !items->empty());
        return *items;
    }
    std::vector<std::string> Ids(const std::string& mask, unsigned flags) const
    {
        std::vector<std::string> ids;
        for (const TQvResFindItem& item : List(mask, flags))
            ids.push_back(item.Id + (item.Attrib.Kind == kResFolder ? "/" : ""));
        std::sort(ids.begin(), ids.end());
        return ids;
    }

    TTempFolder Temp;
    TFileMountNode Node;
};

using TIds = std::vector<std::string>;

TEST_F(FileMountNode, NoIdLeadsOutOfTheFolder)
{
    const std::string folder = Temp / "data";
    EXPECT_EQ(Node.PathFromId("/D"), folder);
    EXPECT_EQ(Node.PathFromId("/D/a/b.c"), folder + "/a/b.c");
    EXPECT_EQ(Node.PathFromId("/D//etc/passwd"), folder + "/etc/passwd");
    EXPECT_EQ(Node.PathFromId("/D/../../x"), folder + "/x");
    EXPECT_EQ(Node.PathFromId("/D/a/../../../x/./y"), folder + "/x/y");
    EXPECT_EQ(Node.ResourceExists("/D/.."), kResFolder);

    // what lies beside the folder is no sidecar of it, and the folder itself is not deleted by way
    // of ".."
    Temp.Write("data.meta", "mine");
    Temp.Write("x.txt", "outside");
    for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12})
        EXPECT_FALSE(Opens("/D/..", mode) || Opens("/D", mode) || Opens("/D/a/..", mode));
    EXPECT_FALSE(Node.ResourceMetaExists("/D/.."));
    EXPECT_FALSE(Node.DeleteResource("/D/../x.txt"));
    EXPECT_FALSE(Node.DeleteFolder("/D/.."));
    Node.CreateFolder("/D/sub");
    EXPECT_NO_THROW(Node.RenameFolderE("/D/sub", "../../renamed"));
    Write("a.txt", "a");
    EXPECT_FALSE(Node.CopyResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_FALSE(Node.RenMovResource("/D/a.txt", "/D/..", nullptr));
    EXPECT_EQ(NamesIn(Temp.Path()), (TIds{"data", "data.meta", "x.txt"}));
    EXPECT_EQ(NamesIn(folder), (TIds{"a.txt", "renamed"}));
}

TEST_F(FileMountNode, OpenKnowsItsResource)
{
    Write("a.txt", "content");
    const auto stream = Node.OpenResource("/D/a.txt", kQvOpenRead, kQvShareAll, 0);
    ASSERT_TRUE(*stream);
    EXPECT_EQ(stream->InfoName(), "qvres:/D/a.txt");
    const auto* resource = dynamic_cast<const TQvResStream*>(stream.get());
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(resource->ResId(), "/D/a.txt");
    EXPECT_EQ(resource->Type(), kStreamPlainFile);
    EXPECT_EQ(resource->URL().std_str(), "qvres:/D/a.txt");
    EXPECT_EQ(TResStorageStream("/x").Type(), kStreamStorage);

    const auto sized = Node.OpenResource("/D/new", kQvOpenCreate, kQvShareAll, 1000);
    EXPECT_EQ(sized->getSize(), 1000u);
    EXPECT_EQ(sized->getPosition(), 0u);
}

TEST_F(FileMountNode, OnlyFilesOpen)
{
    ASSERT_EQ(mkfifo(Disk("fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("/dev/null", Disk("device").c_str()), 0);
    const int descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    Disk("socket").copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    close(descriptor);
    Node.CreateFolder("/D/folder");
    for (const char* id : {"/D/fifo", "/D/device", "/D/socket", "/D/folder", "/D/folder/"})
        for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12, 0, 13})
            EXPECT_FALSE(Opens(id, mode)) << id << " in mode " << mode;
}

TEST_F(FileMountNode, StaleSidecarGoesWithTheMissingResource)
{
    for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12}) {
        Write("a.txt.meta", "stale");
        Opens("/D/a.txt", mode);
        EXPECT_FALSE(Exists(Disk("a.txt.meta"))) << mode;
        EXPECT_FALSE(Node.ResourceMetaExists("/D/a.txt")) << mode;
        unlink(Disk("a.txt").c_str());
    }
    Write("a.txt", "a");
    Write("a.txt.meta", "live");
    for (const qvOpenMode mode : {7, 8, 9, 10, 11, 12})
        Opens("/D/a.txt", mode);
    EXPECT_EQ(ReadFile(Disk("a.txt.meta")), "live");
    Write("folder/.meta", "a file of the folder");
    Opens("/D/folder/", kQvOpenRead);
    EXPECT_TRUE(Exists(Disk("folder/.meta"))) << "a folder's id has no sidecar";
}

TEST_F(FileMountNode, MetadataNeedsItsResource)
{
    EXPECT_FALSE(Node.OpenResourceMeta("/D/a", kQvOpenReadWrite, kQvShareAll));
    EXPECT_FALSE(Exists(Disk("a.meta")));
    Write("a", "1");
    EXPECT_FALSE(Node.OpenResourceMeta("/D/a", kQvOpenRead, kQvShareAll));
    const auto meta = Node.OpenResourceMeta("/D/a", kQvOpenReadWrite, kQvShareAll);
    ASSERT_TRUE(meta);
    EXPECT_EQ(meta->InfoName(), "qvres:/D/a:meta");
    EXPECT_TRUE(Node.ResourceMetaExists("/D/a"));
    EXPECT_FALSE(Node.CopyResourceMeta("/D/a", "/D/b")) << "the target is missing";
    Write("b", "2");
    EXPECT_TRUE(Node.CopyResourceMeta("/D/a", "/D/b"));
    EXPECT_FALSE(Node.CopyResourceMeta("/D/b", "/D/missing"));
}

TEST_F(FileMountNode, SidecarFollowsTheSourceOnly)
{
    Write("a", "1");
    Write("a.meta", "ma");
    Write("b.meta", "old");
    EXPECT_TRUE(Node.CopyResource("/D/a", "/D/b", nullptr));
    EXPECT_EQ(ReadFile(Disk("b.meta")), "ma");
    Write("plain", "2");
    EXPECT_TRUE(Node.CopyResource("/D/plain", "/D/b", nullptr));
    EXPECT_EQ(ReadFile(Disk("b")), "2");
    EXPECT_EQ(ReadFile(Disk("b.meta")), "ma")
        << "the target's sidecar stays when the source has none";
    EXPECT_TRUE(Node.CopyResource("/D/a", "/D/a", nullptr)) << "onto itself";
    EXPECT_EQ(ReadFile(Disk("a")), "1");

    EXPECT_TRUE(Node.RenMovResource("/D/a", "/D/c", nullptr));
    EXPECT_EQ(ReadFile(Disk("c.meta")), "ma");
    EXPECT_FALSE(Exists(Disk("a.meta")));
    EXPECT_FALSE(Node.RenMovResource("/D/a", "/D/c", nullptr));
    EXPECT_TRUE(Node.DeleteResource("/D/c"));
    EXPECT_FALSE(Exists(Disk("c.meta")));
    EXPECT_FALSE(Node.DeleteResource("/D/c"));
}

TEST_F(FileMountNode, NothingIsLostByItsOwnNames)
{
    Write("b", "content");
    Write("b.meta", "meta");
    ASSERT_EQ(symlink("b", Disk("link").c_str()), 0);
    EXPECT_FALSE(Node.RenMovResource("/D/link", "/D/b", nullptr)) << "a link onto what it leads to";
    EXPECT_FALSE(Node.RenMovResource("/D/b", "/D/b.meta", nullptr)) << "onto its own sidecar";
    EXPECT_FALSE(Node.CopyResource("/D/b", "/D/b.meta", nullptr));
    EXPECT_FALSE(Node.CopyResource("/D/b.meta", "/D/b", nullptr));
    EXPECT_EQ(ReadFile(Disk("b")), "content");
    EXPECT_EQ(ReadFile(Disk("b.meta")), "meta");

    // a sidecar that cannot follow makes the result false; what was done stays done
    Node.CreateFolder("/D/c.meta");
    EXPECT_FALSE(Node.CopyResource("/D/b", "/D/c", nullptr));
    EXPECT_FALSE(Node.RenMovResource("/D/b", "/D/c", nullptr));
    EXPECT_EQ(ReadFile(Disk("c")), "content");
    EXPECT_TRUE(Node.DeleteResource("/D/c")) << "a folder of that name is no sidecar";
    const std::string longName(252, 'n');
    Write(longName, "");
    EXPECT_TRUE(Node.DeleteResource("/D/" + longName)) << "no name is left for a sidecar";
}

TEST_F(FileMountNode, RenameTellsTheError)
{
    Node.CreateFolder("/D/a/b");
    Node.CreateFolder("/D/c");
    const auto errorOf = [this](const char* id, const char* newName) {
        try {
            Node.RenameFolderE(id, newName);
        } catch (const TQvMessage& message) {
            EXPECT_EQ(message.text(), "The folder cannot be renamed (error %1%: %2%).");
            return message.arguments();
        }
        return TIds();
    };
    EXPECT_EQ(errorOf("/D/a", "c"), (TIds{std::to_string(EEXIST), "File exists"}));
    EXPECT_EQ(errorOf("/D/none", "x"), (TIds{std::to_string(ENOENT), "No such file or directory"}));
    EXPECT_EQ(errorOf("/D/a", "d"), TIds());
    EXPECT_EQ(Node.ResourceExists("/D/d/b"), kResFolder);
}

TEST_F(FileMountNode, AttributesAreTheSystemsOwn)
{
    Write("a", std::string(1234, 'x'));
    TQvResAttrib attrib;
    ASSERT_TRUE(Node.GetResourceAttr("/D/a", &attrib));
    const QFileInfo info(QString::fromStdString(Disk("a")));
    EXPECT_EQ(attrib.Kind, kResResource);
    EXPECT_EQ(attrib.Origin, kOriginFileNode);
    EXPECT_EQ(attrib.Size, 1234u);
    EXPECT_EQ(attrib.UpdateTime, TQvDateTime::FromQDateTime(info.lastModified()));
    EXPECT_NE(attrib.CreationTime, TQvDateTime());
    EXPECT_FALSE(Node.GetResourceAttr("/D/a", nullptr));
    EXPECT_FALSE(Node.GetResourceAttr("/D/none", &attrib));

    const TQvResAttrib listed = List("a", kFindResources | kFindAttributes).at(0).Attrib;
    EXPECT_EQ(listed.Size, attrib.Size);
    EXPECT_EQ(listed.UpdateTime, attrib.UpdateTime);
    EXPECT_EQ(listed.CreationTime, attrib.CreationTime);
    EXPECT_EQ(List("a", kFindResources).at(0).Attrib.UpdateTime, TQvDateTime())
        << "only when asked for";
}

TEST_F(FileMountNode, FindKindsNamesAndMasks)
{
    for (const char* name :
         {"a.meta", "a.meta.txt", ".hidden", ".meta", "B.TXT", "$QvStorage.list", "b[1]"})
        Write(name, "");
    Node.CreateFolder("/D/sub.txt");
    mkfifo(Disk("fifo.txt").c_str(), 0600);
    ASSERT_EQ(symlink("nowhere", Disk("dangling.txt").c_str()), 0);
    ASSERT_EQ(symlink("sub.txt", Disk("link.txt").c_str()), 0);

    EXPECT_EQ(Ids("*", 1), (TIds{"/D/$QvStorage.list", "/D/B.TXT", "/D/a.meta.txt", "/D/b[1]"}));
    EXPECT_EQ(Ids("*", 2), (TIds{"/D/link.txt/", "/D/sub.txt/"}));
    EXPECT_EQ(Ids("*.txt", 3), (TIds{"/D/B.TXT", "/D/a.meta.txt", "/D/link.txt/", "/D/sub.txt/"}));
    EXPECT_EQ(Ids("*.*", 1), (TIds{"/D/$QvStorage.list", "/D/B.TXT", "/D/a.meta.txt"}))
        << "\"*.*\" needs a dot";
    EXPECT_EQ(Ids("b[[]1]", 1), (TIds{"/D/b[1]"}));
    EXPECT_EQ(Ids("?.t[x-z]t", 1), (TIds{"/D/B.TXT"}));
    EXPECT_EQ(Ids("none", 3), TIds());
    EXPECT_FALSE(Node.Find(make_var<std::vector<TQvResFindItem>>(), "/D/missing", "*", 3, nullptr));
    TTestProgress progress;
    EXPECT_TRUE(Node.Find({}, "/D", "*", 1, &progress));
    EXPECT_FALSE(Node.Find({}, "/D", "none", 1, &progress));
    EXPECT_GE(progress.Polls, 10) << "once an entry, not a match";
}

// The road by readdir gives what Qt's iterator over the folder gives, in its order.
TEST_F(FileMountNode, FindAgreesWithQt)
{
    unsigned seed = 7;
    const std::string alphabet = "aB.-1[]*x";
    for (int i = 0; i < 300; ++i) {
        std::string name;
        for (int length = 1 + i % 6; length > 0; --length)
            name += alphabet[(seed = seed * 1103515245 + 12345) / 65536 % alphabet.size()];
        if (name.find_first_not_of('.') == std::string::npos)
            continue;
        if (i % 5 == 0)
            mkdir(Disk(name).c_str(), 0700);
        else if (i % 7 == 0)
            EXPECT_LE(symlink(i % 2 != 0 ? "." : "/dev/null", Disk(name).c_str()), 0);
        else if (!Exists(Disk(name)))
            Write(name, "");
    }
    for (const char* mask : {"*", "*.*", "a*", "?b*", "*[ab]", "*.", "x", "[!a]*", "", "*a?"}) {
        TIds expected;
        QDirIterator iterator(QString::fromStdString(Temp / "data/"), {QString::fromUtf8(mask)},
                              QDir::Dirs | QDir::Files | QDir::NoDotAndDotDot);
        while (iterator.hasNext()) {
            iterator.next();
            expected.push_back("/D/" + iterator.fileName().toStdString() +
                               (iterator.fileInfo().isDir() ? "/" : ""));
        }
        TIds found;
        for (const TQvResFindItem& item : List(mask, 3))
            found.push_back(item.Id + (item.Attrib.Kind == kResFolder ? "/" : ""));
        EXPECT_EQ(found, expected) << "mask " << mask;
    }
}
} // namespace
