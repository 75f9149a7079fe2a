#include "Repository.h"

#include <cerrno>
#include <string_view>

#include <QvStd/Files.h>
#include <QvStd/Message.h>
#include <QvStd/NewFile.h>
#include <QvStd/XIniReader.h>

#include "Checks.h"

namespace
{
constexpr char kPublishedProfiles[] = "Profiles/profiles.x-ini";
}

bool PublishesNothingYet(const TQvPath& repository)
{
    return repository.isFolder() &&
           QvFileDirExists(repository / kPublishedProfiles, nullptr).IsNothing();
}

void StartPublishing(const TQvPath& repository)
{
    TQvNewFile::TOptions options;
    options.FailIfExists = true; // another process may publish its first profile
    options.Synced = true;
    constexpr std::string_view kEmptyList = "[profiles]\n[/profiles]\n";
    TQvNewFile list;
    // The folder stays when a later step fails: it publishes nothing without the list.
    TQvResult done = QvForceDirectories(repository / "Profiles");
    if (done)
        done = list.Open((repository / kPublishedProfiles).toSysStr(), options);
    if (done)
        done = list.Write(kEmptyList.data(), kEmptyList.size());
    if (done)
        done = list.Publish();
    if (!done && done.Error() != EEXIST)
        throw TFailure("the repository " + Quoted(repository.excludeSlash().toSysStr()) +
                           " publishes no profiles, and a list of them cannot be created: " +
                           QvErrorText(done.Error()),
                       "", done.Error());
}

std::string RepositoryProblem(const TQvPath& repository)
{
    const std::string name = "the repository " + Quoted(repository.excludeSlash().toSysStr());
    bool isFolder = false;
    const TQvResult exists = QvFileDirExists(repository, &isFolder);
    if (exists.HasFailed())
        return name + " cannot be accessed: " + QvErrorText(exists.Error());
    if (!isFolder)
        return name + (exists ? " is not a folder" : " does not exist");
    try {
        // As the library will read it; the names themselves do not matter here.
        GetXIniReader(repository / kPublishedProfiles)->EnterSectionSE("profiles");
        return {};
    } catch (const TQvMessage& message) {
        std::string reason = message.what();
        if (reason.back() == '.')
            reason.pop_back();
        return name + " publishes no profiles: " + reason;
    }
}
