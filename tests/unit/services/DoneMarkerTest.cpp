#include <gtest/gtest.h>

#include "QvStd/Message.h"
#include "QvStd/URLManager.h"
#include "manager/ResourceManager.h"
#include "resid/ResId.h"
#include "services/DoneMarkers.h"
#include "services/XIniAccess.h"
#include "support/TempFolder.h"
#include "url/URLResourceHandler.h"

namespace
{
/// "/D" on the global manager, and the scheme that leads there.
class Services : public testing::Test
{
protected:
    Services()
    {
        ResourceManager.MountFileNodeE("/D", Temp.Path(), false);
        QvURLManager.RegisterSchemeHandler("qvres", make_var<TQvURLResourceHandler>());
    }
    ~Services() override { ResourceManager.UnmountNodeE("/D", false); }

    TTempFolder Temp;
};

using DoneMarkers = Services;
using XIniAccess = Services;

TEST_F(DoneMarkers, Reading)
{
    const struct
    {
        std::string Content;
        bool Ok;
    } kRows[] = {
        {"ok", true},
        {"fail", false},
        {"", false},
        {"ok\n", false},
        {"OK", false},
        {"okay", false},
        {" ok", false},
        {std::string("ok\0", 3), false},
        {"ok" + std::string(100000, ' '), false},
    };
    for (const auto& row : kRows) {
        Temp.Write("x.done", row.Content);
        bool ok = !row.Ok;
        EXPECT_TRUE(GetResDoneResult("/D/x.done", &ok)) << row.Content.substr(0, 9);
        EXPECT_EQ(ok, row.Ok) << row.Content.substr(0, 9);
        ok = !row.Ok;
        EXPECT_TRUE(GetDoneResult(TQvURL("qvres:/D/x.done"), &ok));
        EXPECT_EQ(ok, row.Ok) << row.Content.substr(0, 9);
    }
    Temp.MakeFolder("folder.done");
    for (const char* id : {"/D/none.done", "/D/folder.done", "/D/no/such"}) {
        bool ok = true;
        EXPECT_FALSE(GetResDoneResult(id, &ok)) << id;
        EXPECT_FALSE(ok);
        ok = true;
        EXPECT_FALSE(GetDoneResult(ResId2QvURL(id), &ok)) << id;
        EXPECT_FALSE(ok);
    }
    bool ok = true;
    EXPECT_FALSE(GetDoneResult(TQvURL("file:/x.done"), &ok)) << "nobody opens it";
    EXPECT_FALSE(ok);
}

TEST_F(DoneMarkers, Writing)
{
    EXPECT_EQ(GetDoneResId("/D/a.x-ini"), "/D/a.x-ini.done");
    EXPECT_EQ(GetDoneURL(TQvURL("qvres:/D/a?b")).std_str(), "qvres:/D/a?b.done");
    const std::string id = GetDoneResId("/D/x");
    const TQvURL url = GetDoneURL(TQvURL("qvres:/D/x"));
    Temp.Write("x.done", "something longer");
    EXPECT_TRUE(SetResDoneResult(id, false));
    EXPECT_EQ(ReadFile(Temp / "x.done"), "fail");
    EXPECT_TRUE(SetResDoneResult(id, true));
    EXPECT_EQ(ReadFile(Temp / "x.done"), "ok");
    EXPECT_TRUE(SetDoneResult(url, false));
    EXPECT_EQ(ReadFile(Temp / "x.done"), "fail");
    EXPECT_TRUE(SetDoneResult(url, true));
    EXPECT_EQ(ReadFile(Temp / "x.done"), "ok");
    EXPECT_FALSE(SetResDoneResult("/D/no/such.done", true));
    EXPECT_FALSE(SetDoneResult(TQvURL("qvres:/D/no/such.done"), true));
    EXPECT_FALSE(SetDoneResult(TQvURL("file:/x.done"), true));
}

TEST_F(XIniAccess, ReadersAndWriters)
{
    for (const bool throwing : {false, true}) {
        const auto writer =
            throwing ? GetResXIniWriterE("/D/a.x-ini") : GetResXIniWriter("/D/a.x-ini");
        ASSERT_TRUE(writer);
        EXPECT_TRUE(writer->WriteS("key", std::string(throwing ? "second" : "first")));
        writer->CommitE();
    }
    EXPECT_EQ(ReadFile(Temp / "a.x-ini"), "key=second\n");
    for (const auto& reader :
         {GetResXIniReader("/D/a.x-ini", nullptr), GetResXIniReaderE("/D/a.x-ini", nullptr)}) {
        ASSERT_TRUE(reader);
        EXPECT_FALSE(reader->ParseError());
        EXPECT_EQ(reader->Read<std::string>(reader->FindF("key"), ""), "second");
    }
    Temp.Write("bad", "no entry");
    EXPECT_TRUE(GetResXIniReaderE("/D/bad", nullptr)->ParseError());
}

TEST_F(XIniAccess, WhatDoesNotOpen)
{
    EXPECT_FALSE(GetResXIniReader("/D/none", nullptr));
    EXPECT_FALSE(GetResXIniWriter("/D/no/such"));
    EXPECT_THROW(GetResXIniReaderE("/D/none", nullptr), TQvMessage);
    EXPECT_THROW(GetResXIniWriterE("/D/no/such"), TQvMessage);
}
} // namespace
