// URLs: for any URL, only OpenURLE throws, and nothing outside the mounted folder is reached.
#include "Fuzz.h"

#include "QvStd/Files.h"
#include "QvStd/Message.h"
#include "manager/ResourceManager.h"
#include "support/TempFolder.h"
#include "url/URLResourceHandler.h"

namespace
{
/// A mounted folder beside a file that no URL may reach.
struct TTree
{
    TTree()
    {
        Temp.Write("outside", "secret");
        Temp.Write("in/file", "content");
        ResourceManager.MountFileNodeE("/T", Temp.Path() + "/in", false);
    }
    ~TTree() { ResourceManager.UnmountNodeE("/T", false); }
    TTempFolder Temp;
};

void CheckReadOnly(TQvURLResourceHandler& handler, const TQvURL& url, const std::string& folder)
{
    const std::string file = handler.GetURLFile(url, false);
    Require(file.empty() || file.compare(0, folder.size(), folder) == 0, "files are in the folder");
    Require(handler.ResourceExists(url) || !handler.IsResource(url), "a resource exists");
    Require(!handler.IsResource(url) || !handler.IsFolder(url), "a resource is no folder");
    handler.ResourceMetaExists(url);
    try {
        handler.OpenURLE(url, kQvOpenRead, kQvShareAll, 0);
        Require(handler.IsResource(url), "what opens is a resource");
    } catch (const TQvMessage&) {
    }
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TTree tree;
    std::string input(reinterpret_cast<const char*>(data), size);
    const TQvURL url(TakeText(&input));
    const TQvURL other(TakeText(&input));
    Require(url.Scheme().empty() || url.Scheme() + ":" + url.Path() == url.std_str(),
            "scheme and path make the URL");
    TQvURLResourceHandler handler;
    CheckReadOnly(handler, url, tree.Temp.Path() + "/in");
    handler.OpenURL(url, kQvOpenCreate, kQvShareAll, 0);
    handler.CopyResource(url, other, nullptr);
    handler.RenMovResource(other, url, nullptr);
    handler.CreateFolder(other);
    handler.DeleteFolder(other, true, nullptr);
    handler.DeleteResource(url);
    Require(QvFileExists(tree.Temp.Path() + "/outside"), "what lies outside stays");
    Require(QvDirExists(tree.Temp.Path() + "/in"), "the mounted folder stays");
    return 0;
}
