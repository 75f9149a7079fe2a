// qvres-serve: the program behind "qvres serve", which calls it with the same arguments.
#include <algorithm>
#include <exception>
#include <string_view>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>

#include "../qvres/Commands.h"
#include "../qvres/Failure.h"
#include "../qvres/ServeCommand.h"
#include "Server.h"
#include "StopServer.h"

void RunServe(THost& host, const TServeOptions& options)
{
    if (options.Stop) {
        StopServer(options.Folder);
        return;
    }
    host.Session.Tree();
    Serve(options);
}

int main(int argc, char** argv)
{
    if (std::find(argv, argv + argc, std::string_view("--json")) != argv + argc)
        ErrorsAsJson();
    THost host;
    CLI::App app("Serves the tree as a file system", "qvres");
    app.add_option("--var", host.Session.VarFolder);
    app.add_option("--mount", host.Session.Mounts)->allow_extra_args(false);
    app.add_flag("--json", host.Json);
    app.fallthrough();
    app.require_subcommand(1);
    AddServeCommand(app, host);
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const TFailure& failure) {
        PrintError(failure);
        return 1;
    } catch (const std::exception& failure) {
        PrintError(failure.what());
        return 1;
    }
}
