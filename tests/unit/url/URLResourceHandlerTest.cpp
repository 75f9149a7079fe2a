#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "support/TempFolder.h"
#include "url/URLResourceHandler.h"

namespace
{
/// "/U" on the global manager.
class URLResourceHandler : public testing::Test
{
protected:
    URLResourceHandler() { ResourceManager.MountFileNodeE("/U", Temp.Path(), false); }
    ~URLResourceHandler() override { ResourceManager.UnmountNodeE("/U", false); }

    static TQvURL URL(const std::string& name) { return TQvURL("qvres:/U/" + name); }
    std::string Disk(const std::string& name) const { return Temp / name; }

    TTempFolder Temp;
    TQvURLResourceHandler Handler;
};

TEST_F(URLResourceHandler, PathOfAURL)
{
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"qvres:/My Computer/a", "/My Computer/a"},
        {"qvres:/a%20b/../c", "/a%20b/../c"}, // nothing is decoded or normalised
        {"qvres:x", "x"},
        {"qvres:", ""},
        {"qvres", ""},
        {"QVRES:/x", ""},
        {"file:/x", ""},
        {"", ""},
    };
    for (const auto& [url, path] : kRows)
        EXPECT_EQ(Handler.URL2Path(TQvURL(url)), path) << url;
    EXPECT_EQ(Handler.URL2Path(Handler.CreateURL("qvres:", "/My Computer/a")), "/My Computer/a");
}

TEST_F(URLResourceHandler, Opens)
{
    Temp.Write("x", "content");
    const auto stream = Handler.OpenURLE(URL("x"), kQvOpenRead, kQvShareAll, 0);
    EXPECT_EQ(stream->getSize(), 7u);
    EXPECT_TRUE(Handler.OpenURL(URL("x"), kQvOpenRead, kQvShareAll, 0));
    for (const char* url : {"qvres:/U/none", "qvres:/U", "qvres:x", "qvres:/U/a*", "QVRES:/U/x"})
        EXPECT_FALSE(Handler.OpenURL(TQvURL(url), kQvOpenRead, kQvShareAll, 0)) << url;
}

TEST_F(URLResourceHandler, OpenTellsWhatItCouldNotDo)
{
    constexpr std::pair<qvOpenMode, const char*> kRows[] = {
        {7, "Err_OpenWriteFile_name"}, {12, "Err_OpenWriteFile_name"}, {8, "Err_CreateFile_name"},
        {9, "Err_CreateFile_name"},    {10, "Err_OpenReadFile_name"},  {11, "Err_OpenFile_name"},
        {6, "Err_OpenFile_name"},      {13, "Err_OpenFile_name"},
    };
    for (const char* url : {"qvres:/U/no/such", "qvres:no id", "file:/x"}) {
        for (const auto& [mode, key] : kRows) {
            try {
                Handler.OpenURLE(TQvURL(url), mode, kQvShareAll, 0);
                ADD_FAILURE() << url << " in mode " << mode;
            } catch (const TQvMessage& message) {
                EXPECT_EQ(message.text(), key) << mode;
                EXPECT_EQ(message.arguments(), std::vector<std::string>{url});
            }
        }
    }
}

TEST_F(URLResourceHandler, OpenUsesADerivedHandlersOwn)
{
    struct TDerived : TQvURLResourceHandler
    {
        var_a<TQvStream*> OpenURL(const TQvURL&, qvOpenMode mode, qvShareMode share,
                                  unsigned long flags) override
        {
            return ResourceManager.OpenResource("/U/y", mode, share, flags);
        }
    };
    Temp.Write("y", "another");
    TDerived derived;
    EXPECT_EQ(derived.OpenURLE(URL("none"), kQvOpenRead, kQvShareAll, 0)->InfoName(), "qvres:/U/y");
}

TEST_F(URLResourceHandler, ForwardsToTheManager)
{
    Temp.Write("x", "content");
    Temp.Write("x.meta", "meta");
    EXPECT_TRUE(Handler.CreateFolder(URL("f/g")));
    EXPECT_TRUE(Handler.IsFolder(URL("f/g")));
    EXPECT_FALSE(Handler.IsResource(URL("f/g")));
    EXPECT_TRUE(Handler.ResourceExists(URL("f"))) << "a folder exists, too";
    EXPECT_FALSE(Handler.ResourceExists(URL("none")));
    EXPECT_TRUE(Handler.CopyResource(URL("x"), URL("f/y"), nullptr));
    EXPECT_TRUE(Handler.ResourceMetaExists(URL("f/y")));
    EXPECT_TRUE(Handler.RenMovResource(URL("f/y"), URL("f/z"), nullptr));
    EXPECT_TRUE(Handler.IsResource(URL("f/z")));
    Temp.Write("w", "");
    EXPECT_TRUE(Handler.CopyResourceMeta(URL("x"), URL("w")));
    EXPECT_EQ(Handler.OpenResourceMeta(URL("w"), kQvOpenRead, kQvShareAll)->getSize(), 4u);
    EXPECT_EQ(Handler.GetURLFile(URL("x"), false), Disk("x"));
    EXPECT_EQ(Handler.GetURLFile(URL("new"), false), "");
    EXPECT_EQ(Handler.GetURLFile(URL("new"), true), Disk("new"));
    EXPECT_EQ(Handler.GetURLFolder(URL("x")), Disk(""));
    EXPECT_TRUE(Handler.DeleteResource(URL("x")));
    EXPECT_FALSE(Exists(Disk("x.meta")));
    EXPECT_FALSE(Handler.DeleteFolder(URL("f"), false, nullptr));
    EXPECT_TRUE(Handler.DeleteFolder(URL("f"), true, nullptr));
}

TEST_F(URLResourceHandler, AttributesAndWeakLabel)
{
    Temp.Write("x", "content");
    TQvResAttrib expected;
    ASSERT_TRUE(ResourceManager.GetResourceAttr("/U/x", &expected));
    TQvURLAttrib attrib;
    EXPECT_TRUE(Handler.GetURLAttr(URL("x"), &attrib));
    EXPECT_EQ(attrib.Size, 7u);
    EXPECT_EQ(attrib.UpdateTime, expected.UpdateTime);
    EXPECT_EQ(attrib.CreationTime, expected.CreationTime);
    EXPECT_FALSE(Handler.GetURLAttr(URL("none"), &attrib));
    EXPECT_EQ(attrib.Size, 7u);
    EXPECT_FALSE(Handler.GetURLAttr(TQvURL("qvres:no id"), nullptr)) << "asks nobody";
    TQvResourceLabel label;
    EXPECT_TRUE(Handler.GetResourceLabelWeak(URL("x"), &label));
    EXPECT_EQ(label.Size, 7u);
    EXPECT_EQ(label.Time, expected.UpdateTime);
}
} // namespace
