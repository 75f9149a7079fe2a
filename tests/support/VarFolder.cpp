#include "support/VarFolder.h"

#include <cstdlib>

TVarFolder::TVarFolder(const std::vector<std::pair<std::string, std::string>>& mounts, bool remote)
{
    setenv("QV_VAR_FOLDER", Path().c_str(), 1);
    setenv("QV_REGISTRY_DIR", (m_temp / "registry").c_str(), 1);
    std::string profile = std::string("[profile]\n  remote=") + (remote ? "1" : "0") + "\n";
    for (const auto& [mountPoint, folder] : mounts)
        profile += "  [mount]\n    node=" + mountPoint + "\n    path=" + folder + "\n  [/mount]\n";
    Write("Profiles/Test/profile.x-ini", profile + "[/profile]\n");
    Write("Profiles/profiles.x-ini", "[profiles]\n  profile=Test\n[/profiles]\n");
    Write("policy.x-ini", "profile=Test\n");
    m_temp.MakeFolder("var/Config");
}

TVarFolder::~TVarFolder()
{
    unsetenv("QV_VAR_FOLDER");
    unsetenv("QV_REGISTRY_DIR");
}
