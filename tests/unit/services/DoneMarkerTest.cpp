#include "QvStd/Message.h"
#include "QvStd/URLManager.h"
#include "services/DoneMarkers.h"
#include "services/XIniAccess.h"
#include "support/MountedFolder.h"
#include "url/URLResourceHandler.h"

namespace
{
using DoneMarkers = TMountedFolder;
using XIniAccess = TMountedFolder;

TEST_F(DoneMarkers, AreReadFromTheirFirstBytes)
{
    QvURLManager.RegisterSchemeHandler("qvres", make_var<TQvURLResourceHandler>());
    const std::string id = GetDoneResId("/T/x");
    const TQvURL url = GetDoneURL(TQvURL("qvres:/T/x"));
    bool ok = false, urlOk = false;
    for (const std::string content : {"ok", "", "ok\n"}) {
        Temp.Write("x.done", content);
        EXPECT_TRUE(GetResDoneResult(id, &ok)) << content;
        EXPECT_TRUE(GetDoneResult(url, &urlOk)) << content;
        EXPECT_EQ(ok, content == "ok") << content;
        EXPECT_EQ(urlOk, content == "ok") << content;
    }
    EXPECT_TRUE(SetDoneResult(url, false));
    EXPECT_EQ(ReadFile(Temp / "x.done"), "fail");
    EXPECT_FALSE(SetResDoneResult("/T/no/x.done", true));
    for (const char* none : {"qvres:/T/no/x.done", "other:/T/x", "/T/x"}) {
        ok = true;
        EXPECT_FALSE(GetDoneResult(TQvURL(none), &ok)) << none;
        EXPECT_FALSE(ok) << none;
        EXPECT_FALSE(SetDoneResult(TQvURL(none), true)) << none;
        EXPECT_THROW(QvURLManager.OpenURLE(TQvURL(none), 10, kQvShareAll, 0), TQvMessage) << none;
    }
}

TEST_F(XIniAccess, ReadsAndWritesResources)
{
    GetResXIniWriter("/T/a")->WriteS("key", std::string("value"));
    GetResXIniWriterE("/T/b")->WriteS("key", std::string("value"));
    for (const auto& reader :
         {GetResXIniReader("/T/a", nullptr), GetResXIniReaderE("/T/b", nullptr)})
        EXPECT_EQ(reader->ReadE<std::string>(reader->FindFE("key")), "value");
    EXPECT_FALSE(GetResXIniReader("/T/none", nullptr));
    EXPECT_FALSE(GetResXIniWriter("/T/no/such"));
    EXPECT_THROW(GetResXIniReaderE("/T/none", nullptr), TQvMessage);
    EXPECT_THROW(GetResXIniWriterE("/T/no/such"), TQvMessage);
}
} // namespace
