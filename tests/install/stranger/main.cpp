// A program of somebody else: every id function, a mount, an open and a listing.
#include <QvServices/QvServices.h>

#include <cstdio>
#include <cstdlib>

static void Check(bool condition, const char* what)
{
    if (!condition) {
        std::fprintf(stderr, "failed: %s\n", what);
        std::exit(1);
    }
}
#define CHECK(condition) Check(condition, #condition)

static void UseIds()
{
    CHECK(QvIncludeTrailingSlash("/A") == "/A/");
    CHECK(QvExcludeTrailingSlash("/A/") == "/A");
    CHECK(QvNormalizeResId("/a") == "/A" && QvNormalizeResId(L"/a") == "/A");
    CHECK(QvExtractResPath("/A/b.c") == "/A/");
    CHECK(QvExtractResName("/A/b.c") == "b.c" && QvExtractResNameExt("/A/b.c") == "b.c");
    CHECK(QvExtractResNameOnly("/A/b.c") == "b" && QvExtractResExt("/A/b.c") == ".c");
    CHECK(QvExtractResPathNameOnly("/A/b.c") == "/A/b");
    CHECK(QvIsAbsoluteResId("/A") && QvIsRelativeResId("A") && QvIsDeeperRelativeResId("A"));
    CHECK(QvCompactResId("/A/../B/") == "/B/" && QvMergeResId("/A", "../B") == "/B");
    CHECK(GetRelativeResId("/A/B/c", "/A/") == "B/c");
    CHECK(BreakIdIntoParts("/A/B").size() == 2);
    CHECK(QvResSearchMaskToRegExpPattern("a*") == "/^A.*$/");
    CHECK(ResId2QvURL("/A").std_str() == "qvres:/A");
    CHECK(TResourceManager::IsValidResId("/A", true) &&
          TResourceManager::IsValidResNamePart("A", true));
}

int main(int, char** arguments)
{
    UseIds();
    Init_QvServices();
    ResourceManager.MountFileNodeE("/Data", arguments[1], false);
    {
        const var_a<TQvStream*> stream =
            ResourceManager.OpenResourceE("/Data/hello.txt", kQvOpenCreate, kQvShareAll, 0);
        CHECK(stream->Write("hello", 5) == 5 && stream->Flush());
        CHECK(dynamic_cast<const TQvResStream*>(stream.get())->ResId() == "/Data/hello.txt");
    }
    const auto items = make_var<std::vector<TQvResFindItem>>();
    ResourceManager.Find(items, "/Data", "*", kFindResources, nullptr);
    CHECK(items->size() == 1 && items->front().Id == "/Data/hello.txt");
    bool caught = false;
    try {
        ResourceManager.OpenResourceE("/Data/none", kQvOpenRead, kQvShareAll, 0);
    } catch (const TQvMessage& message) {
        caught = message.arguments().at(0) == "/Data/none";
    }
    CHECK(caught);
    ResourceManager.UnmountNodeE("/Data", false);
    Deinit_QvServices();
    return 0;
}
