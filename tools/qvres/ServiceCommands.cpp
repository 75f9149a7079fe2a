// Services around resources: done, open.
#include <cerrno>
#include <memory>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>
#include <QvStd/URLManager.h>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
void PrintDone(THost& host, const std::string& marker)
{
    CheckId(marker);
    bool ok = false;
    if (GetResDoneResult(marker, &ok))
        PrintValue(host, ok ? "ok" : "fail");
    // Only a missing marker is "none": one that cannot be read may say anything.
    else if (TResourceManager::LastFailure().Error == ENOENT)
        PrintValue(host, "none");
    else
        ThrowFailed("the marker " + Quoted(marker) + " cannot be read");
}

void Done(THost& host, const std::string& id, const std::string& result)
{
    const TResourceManager& tree = host.Session.Tree();
    CheckId(id);
    const std::string marker = GetDoneResId(QvExcludeTrailingSlash(id));
    if (result.empty()) {
        PrintDone(host, marker);
        return;
    }
    // Before the marker is written: a missing folder or a folder of that name is reported as such.
    RequireTarget(tree, marker);
    if (!SetResDoneResult(marker, result == "ok"))
        ThrowFailed("the marker " + Quoted(marker) + " cannot be written");
}

void OpenURL(THost& host, const std::string& url)
{
    // Starts the session, which registers the scheme.
    host.Session.Tree();
    var_a<TQvStream*> stream;
    try {
        stream = QvURLManager.OpenURLE(TQvURL(url), kQvOpenRead, kQvShareAll, 0);
    } catch (const TQvMessage& message) {
        throw WithMissingCause(message);
    }
    WriteContent(host, *stream, url);
}
} // namespace

void AddServiceCommands(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();

    const auto result = std::make_shared<std::string>();
    CLI::App* done = AddCommand(app, "done",
                                "Print what the marker ID.done says (ok or fail; none when there "
                                "is no marker), or write it",
                                "  qvres done /Data/import ok\n"
                                "  [ \"$(qvres done /Data/import)\" = ok ] || echo again");
    AddIdOption(*done, "ID", *id, "What the marker belongs to; it need not exist")->required();
    done->add_option("RESULT", *result, "What to write: ok or fail")
        ->check(CLI::IsMember({"ok", "fail"}));
    done->callback([&host, id, result] { Done(host, *id, *result); });

    const auto url = std::make_shared<std::string>();
    CLI::App* open =
        AddCommand(app, "open", "Write the resource of a \"qvres:\" URL to standard output",
                   "  qvres open qvres:/Data/a.txt");
    open->add_option("URL", *url, "\"qvres:\" and the id of a resource")->required();
    open->callback([&host, url] { OpenURL(host, *url); });
}
