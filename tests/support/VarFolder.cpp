#include "support/VarFolder.h"

TVarFolder::TVarFolder(const std::vector<std::pair<std::string, std::string>>& mounts, bool remote)
{
    std::string profile = std::string("[profile]\n  remote=") + (remote ? "1" : "0") + "\n";
    for (const auto& [mountPoint, folder] : mounts)
        profile += "  [mount]\n    node=" + mountPoint + "\n    path=" + folder + "\n  [/mount]\n";
    Write("Profiles/Test/profile.x-ini", profile + "[/profile]\n");
    Write("Profiles/profiles.x-ini", "[profiles]\n  profile=Test\n[/profiles]\n");
    Write("policy.x-ini", "profile=Test\n");
    m_temp.MakeFolder("var/Config");
}
