// A program of somebody else: ids, a mount, an open and a listing.
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

int main(int, char** arguments)
{
    CHECK(QvNormalizeResId(L"/a") == "/A" && ResId2QvURL("/A").std_str() == "qvres:/A");
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
    std::string caught;
    try {
        ResourceManager.OpenResourceE("/Data/none", kQvOpenRead, kQvShareAll, 0);
    } catch (const TQvMessage& message) {
        caught = message.arguments().at(0);
    }
    CHECK(caught == "/Data/none");
    ResourceManager.UnmountNodeE("/Data", false);
    Deinit_QvServices();
    return 0;
}
