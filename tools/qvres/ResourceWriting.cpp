#include "ResourceWriting.h"

#include <cerrno>

#include "Checks.h"

namespace
{
void RequireDone(const TQvResult& result, const std::string& id)
{
    if (!result)
        ThrowFailed(Quoted(id) + " cannot be written", result.Error(), id);
}
} // namespace

TQvNewFile StartWriting(const TResourceManager& tree, const std::string& id, bool onlyNew)
{
    // Opening a missing resource removes metadata that an earlier one has left.
    if (!tree.IsResource(id))
        tree.OpenResource(id, kQvOpenRead, kQvShareAll, 0);
    TQvNewFile::TOptions options;
    // "Done" of a command must survive a power cut.
    options.Synced = true;
    options.FailIfExists = onlyNew;
    options.ExpectsNone = onlyNew; // Publish checks it
    TQvNewFile file;
    RequireDone(file.Open(tree.GetNode4Id(id, true, true, false)->GetResourceFile(id), options),
                id);
    return file;
}

void Write(TQvNewFile& file, std::string_view bytes, const std::string& id)
{
    RequireDone(file.Write(bytes.data(), bytes.size()), id);
}

bool FinishWriting(TQvNewFile& file, const std::string& id)
{
    const TQvResult published = file.Publish();
    // Only with `onlyNew`: another process was faster, which is no failure.
    if (published.Error() == EEXIST)
        return false;
    RequireDone(published, id);
    return true;
}
