// Profile files: none crashes the reader; written with what it holds a file stays, and written with
// another mount it gives that mount and all the others.
#include "Fuzz.h"

#include "QvStd/Message.h"
#include "profiles/ProfileFile.h"

namespace
{
bool IsSame(const TQvProfileNodes& a, const TQvProfileNodes& b)
{
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const auto& x, const auto& y) {
               return x.first == y.first && QvIsSameMount(x.second, y.second);
           });
}
} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const TQvPath file("/profile.x-ini");
    try {
        TQvProfileText old(file, text);
        TQvResourceProfile profile = old.Content();
        const TQvProfileText same(file, old.With(profile));
        Require(IsSame(same.Content().Nodes, profile.Nodes), "what is written back is the same");
        Require(same.Content().Remote == profile.Remote, "remote is written back");

        TQvResourceProfile::TNode& added = profile.Nodes["/ADDED BY THE TEST"];
        added.Kind = kProfileNodePath;
        added.Name = "/added by the test";
        added.Path = TQvPath("/srv");
        const TQvProfileText changed(file, TQvProfileText(file, text).With(profile));
        Require(IsSame(changed.Content().Nodes, profile.Nodes), "a mount is added, and no other");
    } catch (const TQvMessage& message) {
        Require(std::string(message.what()).find("profile.x-ini") != std::string::npos,
                "an error names the file");
    }
    return 0;
}
