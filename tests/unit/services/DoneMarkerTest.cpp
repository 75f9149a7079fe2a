#include "QvStd/Message.h"
#include "QvStd/URLManager.h"
#include "resid/ResId.h"
#include "services/DoneMarkers.h"
#include "services/XIniAccess.h"
#include "support/MountedFolder.h"
#include "url/URLResourceHandler.h"

namespace
{
class DoneMarkers : public TMountedFolder
{
protected:
    DoneMarkers()
    {
        QvURLManager.RegisterSchemeHandler("qvres", make_var<TQvURLResourceHandler>());
    }
};
using XIniAccess = TMountedFolder;

TEST_F(DoneMarkers, Reading)
{
    const std::pair<std::string, bool> kRows[] = {
        {"ok", true},    {"fail", false}, {"", false},
        {"ok\n", false}, {"OK", false},   {"ok" + std::string(100000, ' '), false},
    };
    for (const auto& [content, expected] : kRows) {
        Temp.Write("x.done", content);
        bool ok = !expected;
        EXPECT_TRUE(GetResDoneResult("/T/x.done", &ok));
        EXPECT_EQ(ok, expected) << content.substr(0, 9);
        ok = !expected;
        EXPECT_TRUE(GetDoneResult(TQvURL("qvres:/T/x.done"), &ok));
        EXPECT_EQ(ok, expected) << content.substr(0, 9);
    }
    for (const char* url : {"qvres:/T/none.done", "qvres:/T", "qvres:no id", "file:/x.done"}) {
        bool ok = true;
        EXPECT_FALSE(GetDoneResult(TQvURL(url), &ok)) << url;
        EXPECT_FALSE(ok);
    }
    bool ok = true;
    EXPECT_FALSE(GetResDoneResult("/T/none.done", &ok));
    EXPECT_FALSE(ok);
}

TEST_F(DoneMarkers, Writing)
{
    const std::string id = GetDoneResId("/T/a.x-ini");
    const TQvURL url = GetDoneURL(TQvURL("qvres:/T/a.x-ini"));
    EXPECT_EQ(url, ResId2QvURL(id));
    Temp.Write("a.x-ini.done", "something longer");
    for (const bool ok : {false, true}) {
        EXPECT_TRUE(SetResDoneResult(id, ok));
        EXPECT_EQ(ReadFile(Temp / "a.x-ini.done"), ok ? "ok" : "fail");
        EXPECT_TRUE(SetDoneResult(url, !ok));
        EXPECT_EQ(ReadFile(Temp / "a.x-ini.done"), ok ? "fail" : "ok");
    }
    EXPECT_FALSE(SetResDoneResult("/T/no/such.done", true));
    EXPECT_FALSE(SetDoneResult(TQvURL("qvres:/T/no/such.done"), true));
}

TEST_F(XIniAccess, ReadsAndWritesResources)
{
    for (const auto& writer : {GetResXIniWriter("/T/a"), GetResXIniWriterE("/T/b")}) {
        EXPECT_TRUE(writer->WriteS("key", std::string("value")));
        writer->CommitE();
    }
    for (const auto& reader :
         {GetResXIniReader("/T/a", nullptr), GetResXIniReaderE("/T/b", nullptr)})
        EXPECT_EQ(reader->ReadE<std::string>(reader->FindFE("key")), "value");
    Temp.Write("bad", "no entry");
    EXPECT_TRUE(GetResXIniReaderE("/T/bad", nullptr)->ParseError());

    EXPECT_FALSE(GetResXIniReader("/T/none", nullptr));
    EXPECT_FALSE(GetResXIniWriter("/T/no/such"));
    EXPECT_THROW(GetResXIniReaderE("/T/none", nullptr), TQvMessage);
    EXPECT_THROW(GetResXIniWriterE("/T/no/such"), TQvMessage);
}
} // namespace
