// serve: the tree as a file system. "qvres" and the server program, qvres-serve, take the same
// arguments.
#pragma once

#include <string>

struct THost;
namespace CLI
{
class App;
}

struct TServeOptions
{
    bool ReadOnly = false;
    bool Foreground = false;
    bool AllowOther = false;
    bool Stop = false;
    double AttrTimeout = 1; ///< seconds that the kernel may keep names and attributes
    std::string Id = "/";
    std::string Folder; ///< as seen from the root of the disk
};

void AddServeCommand(CLI::App& app, THost& host);

/// What the command does: in qvres it starts qvres-serve in its place.
void RunServe(THost& host, const TServeOptions& options);
