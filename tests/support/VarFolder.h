// A throw-away VAR folder that the configuration of this process points to while it lives.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "support/EnvironmentVariable.h"
#include "support/TempFolder.h"

class TVarFolder
{
public:
    /// With one profile, "Test", whose mounts are pairs of mount point and folder.
    explicit TVarFolder(const std::vector<std::pair<std::string, std::string>>& mounts = {},
                        bool remote = false)
    {
        std::string profile = std::string("[profile]\n  remote=") + (remote ? "1\n" : "0\n");
        for (const auto& [point, folder] : mounts)
            profile += "  [mount]\n    node=" + point + "\n    path=" + folder + "\n  [/mount]\n";
        Write("Profiles/Test/profile.x-ini", profile + "[/profile]\n");
        Write("Profiles/profiles.x-ini", "[profiles]\n  profile=Test\n[/profiles]\n");
        Write("policy.x-ini", "profile=Test\n");
        m_temp.MakeFolder("var/Config");
    }

    const TTempFolder& Temp() const { return m_temp; }
    std::string Path() const { return m_temp / "var"; }
    std::string ProfileFile() const { return Path() + "/Profiles/Test/profile.x-ini"; }
    /// Writes a file of the VAR folder.
    void Write(const std::string& name, const std::string& content) const
    {
        m_temp.Write("var/" + name, content);
    }

private:
    TTempFolder m_temp;
    TEnvironmentVariable m_var{"QV_VAR_FOLDER", Path()};
    TEnvironmentVariable m_registry{"QV_REGISTRY_DIR", m_temp / "registry"};
};
