#include "ServeCommand.h"

#include <memory>
#include <vector>

#include <CLI/CLI.hpp>

#include "Commands.h"

namespace
{
/// What is wrong with the time; "" when nothing is.
std::string CheckSeconds(const std::string& text)
{
    constexpr double kLongest = 86400;
    double seconds = -1;
    return CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= kLongest
               ? std::string()
               : "\"" + text + "\" is not a number of seconds from 0 to 86400";
}
} // namespace

void AddServeCommand(CLI::App& app, THost& host)
{
    CLI::App* const serve =
        AddCommand(app, "serve", "Show the tree, or the part below ID, as a file system at FOLDER",
                   "  qvres --mount /Src=. serve /tmp/tree\n"
                   "  qvres serve --read-only /Data $HOME/data-view\n"
                   "  qvres serve --stop /tmp/tree\n\n"
                   "The call returns when the tree can be used. \"--stop\", \"fusermount3 -u "
                   "FOLDER\" and SIGTERM end it;\nopen files are flushed and closed then.");
    const auto options = std::make_shared<TServeOptions>();
    const auto places = std::make_shared<std::vector<std::string>>();
    serve->add_flag("--read-only", options->ReadOnly, "Nothing can be changed");
    serve->add_flag("--foreground", options->Foreground,
                    "Do not return; Ctrl-C or SIGTERM ends it, with exit status 0");
    serve->add_flag("--allow-other", options->AllowOther,
                    "Show the tree to other users, too: root may, others where /etc/fuse.conf has "
                    "user_allow_other");
    serve
        ->add_option("--attr-timeout", options->AttrTimeout,
                     "Changes from outside are seen after this time at the latest (1)")
        ->type_name("SECONDS")
        ->check(&CheckSeconds, "", "");
    serve->add_flag("--stop", options->Stop, "End the server of FOLDER");
    serve
        ->add_option("[ID] FOLDER", *places, "What to show, and a folder of the disk to show it at")
        ->required()
        ->expected(1, 2);
    serve->callback([&host, options, places] {
        // The server is found by its folder: an ID would be ignored silently.
        if (options->Stop && places->size() > 1)
            throw CLI::ValidationError("--stop", "takes FOLDER only, no ID");
        options->Folder = TSession::Absolute(places->back());
        if (places->size() > 1)
            options->Id = places->front();
        // Does not return when the server starts.
        RunServe(host, *options);
    });
}
