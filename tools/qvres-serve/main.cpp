// qvres-serve: the program behind "qvres serve", which calls it with the same arguments.
#include <exception>

#include <CLI/CLI.hpp>
#include <QvStd/Message.h>

#include "../qvres/Commands.h"
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
    THost host;
    CLI::App app("Serves the tree as a file system", "qvres");
    app.add_option("--var", host.Session.VarFolder);
    app.add_option("--mount", host.Session.Mounts)->allow_extra_args(false);
    app.fallthrough();
    app.require_subcommand(1);
    AddServeCommand(app, host);
    try {
        app.parse(argc, argv);
        return 0;
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& failure) {
        PrintError(failure.what());
        return 1;
    }
}
