#include "url/URLResourceHandler.h"
#include "QvStd/Message.h"
#include "support/MountedFolder.h"

namespace
{
class URLResourceHandler : public TMountedFolder
{
protected:
    TQvURLResourceHandler Handler;
};

TEST_F(URLResourceHandler, PathOfAURL)
{
    constexpr std::pair<const char*, const char*> kRows[] = {
        {"qvres:/My Computer/a", "/My Computer/a"},
        {"qvres:/a%20b/../c", "/a%20b/../c"}, // nothing is decoded or normalised
        {"qvres:", ""},
        {"qvres", ""},
        {"QVRES:/x", ""},
        {"file:/x", ""},
    };
    for (const auto& [url, path] : kRows)
        EXPECT_EQ(Handler.URL2Path(TQvURL(url)), path) << url;
    EXPECT_EQ(Handler.URL2Path(Handler.CreateURL("qvres:", "/My Computer/a")), "/My Computer/a");
}

TEST_F(URLResourceHandler, OpenTellsWhatItCouldNotDo)
{
    constexpr std::pair<qvOpenMode, const char*> kRows[] = {
        {7, "Err_OpenWriteFile_name"}, {12, "Err_OpenWriteFile_name"}, {8, "Err_CreateFile_name"},
        {9, "Err_CreateFile_name"},    {10, "Err_OpenReadFile_name"},  {11, "Err_OpenFile_name"},
        {6, "Err_OpenFile_name"},      {13, "Err_OpenFile_name"},
    };
    for (const char* text : {"qvres:/T/no/such", "qvres:/T", "qvres:no id", "file:/x"}) {
        for (const auto& [mode, key] : kRows) {
            EXPECT_FALSE(Handler.OpenURL(TQvURL(text), mode, kQvShareAll, 0)) << text;
            try {
                Handler.OpenURLE(TQvURL(text), mode, kQvShareAll, 0);
                ADD_FAILURE() << text << " in mode " << mode;
            } catch (const TQvMessage& message) {
                EXPECT_EQ(message.text(), key) << mode;
                EXPECT_EQ(message.arguments(), std::vector<std::string>{text});
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
            return ResourceManager.OpenResource("/T/y", mode, share, flags);
        }
    };
    Temp.Write("y", "");
    TDerived derived;
    EXPECT_EQ(derived.OpenURLE(TQvURL("none:"), kQvOpenRead, kQvShareAll, 0)->InfoName(),
              "qvres:/T/y");
}

TEST_F(URLResourceHandler, ForwardsInTheRightOrder)
{
    const TQvURL x("qvres:/T/x"), y("qvres:/T/y"), z("qvres:/T/z");
    Temp.Write("x", "content");
    Temp.Write("x.meta", "meta");
    EXPECT_TRUE(Handler.CopyResource(x, y, nullptr));
    EXPECT_TRUE(Handler.RenMovResource(y, z, nullptr));
    Temp.Write("y", "");
    EXPECT_TRUE(Handler.CopyResourceMeta(z, y));
    EXPECT_EQ(NamesIn(Temp.Path()),
              (std::vector<std::string>{"x", "x.meta", "y", "y.meta", "z", "z.meta"}));
    TQvURLAttrib attrib;
    TQvResAttrib expected;
    ResourceManager.GetResourceAttr("/T/x", &expected);
    EXPECT_TRUE(Handler.GetURLAttr(x, &attrib));
    EXPECT_EQ(attrib.Size, 7u);
    EXPECT_EQ(attrib.UpdateTime, expected.UpdateTime);
    EXPECT_EQ(attrib.CreationTime, expected.CreationTime);
    EXPECT_FALSE(Handler.GetURLAttr(TQvURL("qvres:/T/none"), &attrib));
    EXPECT_FALSE(Handler.GetURLAttr(TQvURL("qvres:no id"), nullptr)) << "the manager would throw";
}
} // namespace
