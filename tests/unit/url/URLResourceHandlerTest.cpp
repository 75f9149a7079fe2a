#include "url/URLResourceHandler.h"
#include "module/QvServicesModule.h"
#include "support/FolderTree.h"
#include "support/MountedFolder.h"
#include "support/Thrown.h"
#include "support/VarFolder.h"

namespace
{
using URLResourceHandler = TMountedFolder;
TQvURLResourceHandler Handler;

TEST_F(URLResourceHandler, ThePathIsTheTextAfterTheScheme)
{
    EXPECT_EQ(Handler.URL2Path(TQvURL("qvres:/a%20b/../c")), "/a%20b/../c") << "as it stands";
    EXPECT_EQ(Handler.URL2Path(TQvURL("QVRES:/x")), "");
    EXPECT_EQ(Handler.URL2Path(Handler.CreateURL("qvres:", "/My Computer/a")), "/My Computer/a");
}

void ExpectNotOpened(const char* url, qvOpenMode mode, const char* key)
{
    EXPECT_FALSE(Handler.OpenURL(TQvURL(url), mode, kQvShareAll, 0)) << url;
    const TQvMessage error = Thrown([&] { Handler.OpenURLE(TQvURL(url), mode, kQvShareAll, 0); });
    EXPECT_EQ(error.text(), key) << url << " in mode " << mode;
    EXPECT_EQ(error.arguments(), std::vector<std::string>{url});
}

TEST_F(URLResourceHandler, OpenReportsWhatFailed)
{
    constexpr std::pair<qvOpenMode, const char*> kRows[] = {
        {7, "Err_OpenWriteFile_name"}, {12, "Err_OpenWriteFile_name"}, {8, "Err_CreateFile_name"},
        {9, "Err_CreateFile_name"},    {10, "Err_OpenReadFile_name"},  {11, "Err_OpenFile_name"},
    };
    for (const auto& [mode, key] : kRows)
        ExpectNotOpened("qvres:/T/no/such", mode, key);
    for (const char* url : {"qvres:/T", "qvres:no id", "file:/x"})
        ExpectNotOpened(url, 10, "Err_OpenReadFile_name");
    struct TDerived : TQvURLResourceHandler
    {
        var_a<TQvStream*> OpenURL(const TQvURL&, qvOpenMode, qvShareMode, unsigned long) override
        {
            throw TQvMessage("own");
        }
    } derived;
    EXPECT_EQ(Thrown([&] { derived.OpenURLE(TQvURL("x:"), 10, kQvShareAll, 0); }).text(), "own");
}

TEST(URLWithoutMounts, OpenReportsTheSame)
{
    const TVarFolder var;
    var.Write("Profiles/Test/profile.x-ini", "broken");
    Init_QvServices();
    Thrown([] { ResourceManager.Init(); });
    Deinit_QvServices();
    ASSERT_TRUE(ResourceManager.MountNodes().empty());
    ExpectNotOpened("qvres:/x", 10, "Err_OpenReadFile_name");
}

TEST_F(URLResourceHandler, ForwardsTheRightArguments)
{
    const TQvURL x("qvres:/T/x"), y("qvres:/T/y"), z("qvres:/T/z");
    MakeTree(Temp.Path(), "x=content x.meta=m f/y=");
    EXPECT_TRUE(Handler.CopyResource(x, y, nullptr));
    EXPECT_TRUE(Handler.RenMovResource(y, z, nullptr));
    EXPECT_EQ(Handler.GetURLFile(y, false), "");
    EXPECT_EQ(Handler.GetURLFile(y, true), Temp / "y");
    EXPECT_TRUE(Handler.CopyResourceMeta(z, y));
    EXPECT_FALSE(Handler.DeleteFolder(TQvURL("qvres:/T/f"), false, nullptr));
    EXPECT_TRUE(Handler.DeleteFolder(TQvURL("qvres:/T/f"), true, nullptr));
    EXPECT_EQ(TreeOf(Temp.Path()), "x=content x.meta=m y= y.meta=m z=content z.meta=m");
    EXPECT_TRUE(Handler.IsFolder(TQvURL("qvres:/")));
    Put("x", 5000, "content");
    TQvURLAttrib attrib;
    EXPECT_TRUE(Handler.GetURLAttr(x, &attrib));
    EXPECT_EQ(attrib.UpdateTime, TQvDateTime(5000));
    EXPECT_NE(attrib.CreationTime, attrib.UpdateTime);
    EXPECT_FALSE(Handler.GetURLAttr(TQvURL("qvres:no id"), nullptr)) << "the manager would throw";
    TQvResourceLabel label;
    label.CRC = 7;
    EXPECT_TRUE(Handler.GetResourceLabelWeak(x, &label));
    EXPECT_EQ(label.CRC, 7u) << "no checksum is computed";
    EXPECT_FALSE(Handler.GetResourceLabelWeak(TQvURL("qvres:/T"), &label));
}
} // namespace
