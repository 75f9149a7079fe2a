// A machine with nothing configured: home folder and registry are in a fresh temporary folder.
#pragma once

#include <gtest/gtest.h>

#include "QvConfig/Config.h"
#include "QvStd/Registry.h"
#include "setup/CPUtils.h"
#include "support/EnvironmentVariable.h"
#include "support/FolderTree.h"
#include "support/LogCapture.h"
#include "support/TestProgress.h"
#include "support/Thrown.h"

inline constexpr char kPlainKey[] = "Software\\Velmor\\KORVADEL\\6 Airlane";
inline constexpr char kWowKey[] = "Software\\Wow6432Node\\Velmor\\KORVADEL\\6 Airlane";

class TMachine : public testing::Test
{
protected:
    TMachine() { Init_QvConfig(); }
    ~TMachine() override { Deinit_QvConfig(); }

    /// The VAR folder that Configure makes the setting of, or a path in it.
    std::string Var(const std::string& name = "") const { return Temp / "var" + name; }
    void Configure() const { setenv("QV_VAR_FOLDER", Var().c_str(), 1); }
    std::string Policy() const { return ReadFile(Var("/policy.x-ini")); }
    void WritePolicy(const std::string& text) const { Temp.Write("var/policy.x-ini", text); }

    static void SetRegistry(TQvRegKey root, const char* key, const std::string& folder)
    {
        TQvRegMan::writeString(root, key, "VarPath", folder, true);
    }

    const TTempFolder Temp;

private:
    const TEnvironmentVariable m_home{"HOME", Temp / "home"};
    const TEnvironmentVariable m_registry{"QV_REGISTRY_DIR", Temp / "registry"};
    const TEnvironmentVariable m_var{"QV_VAR_FOLDER", ""};
};
