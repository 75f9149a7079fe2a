// The VAR folder, and the mount table for one call and for good.
#include <unistd.h>

#include "cli/QvresProcess.h"
#include "support/VarFolder.h"

using TMountTest = TQvresTest;

TEST_F(TMountTest, WithoutAVarFolderTheCommandToRunIsNamed)
{
    const std::string folder = m_temp / "home/.config/velmor/KORVADELAirlane7.VAR";
    const TResult result = RunPlain({"ls"});
    EXPECT_EQ(result.Status, 1);
    EXPECT_EQ(result.Err, "qvres: the VAR folder \"" + folder +
                              "\" is not set up; run \"qvres setup FOLDER\" first\n");
    EXPECT_EQ(Bad({"mount", "/C", "."}).substr(0, 14), "the VAR folder") << "--mount is not enough";
    EXPECT_EQ(RunPlain(WithMounts({"--var", m_temp / "no", "ls"})).Err,
              "qvres: the VAR folder \"" + m_temp.Path() +
                  "/no\" is not set up; run \"qvres --var " + m_temp.Path() +
                  "/no setup FOLDER\" first\n");
}

TEST_F(TMountTest, ProfileAndOptionMountTogether)
{
    const TVarFolder var({{"/Data", m_temp / "a"}});
    const std::string both = "/Data\t" + m_temp.Path() + "/a\n/B\t" + m_temp.Path() + "/b\n";
    const TArgs call{"--mount", "/B/=" + (m_temp / "b"), "mounts"};
    EXPECT_EQ(RunPlain(call).Out, both);
    unsetenv("QV_VAR_FOLDER");
    TArgs withVar{"--var", var.Path()};
    withVar.insert(withVar.end(), call.begin(), call.end());
    EXPECT_EQ(RunPlain(withVar).Out, both);
    EXPECT_EQ(RunPlain({"--var", var.Path(), "--mount", "/data=.", "ls"}).Err,
              "qvres: \"/data\" is already a mount point\n");
    EXPECT_EQ(RunPlain({"--mount", "/C=" + (m_temp / "no"), "ls"}).Err,
              "qvres: the folder \"" + m_temp.Path() + "/no\" does not exist\n");
}

TEST_F(TMountTest, MountsForGood)
{
    const TVarFolder var;
    m_temp.Write("a/x", "");
    const auto inTemp = [this] { ASSERT_EQ(chdir(m_temp.Path().c_str()), 0); };
    EXPECT_EQ(RunPlain({"mount", "/My Data/", "a"}, {}, {}, inTemp).Err, "");
    EXPECT_EQ(RunPlain({"--json", "mounts"}).Out, "[{\"id\":\"/My Data\",\"folder\":\"" +
                                                      m_temp.Path() +
                                                      "/a\",\"persistent\":true}]\n");
    EXPECT_EQ(RunPlain({"ls", "/my data"}).Out, "/my data/x\n") << "from any folder";
    const std::vector<std::pair<TArgs, std::string>> failures = {
        {{"mount", "/MY DATA", m_temp / "b"}, "\"/MY DATA\" is already a mount point"},
        {{"mount", "/C", m_temp / "no"}, "the folder \"" + m_temp.Path() + "/no\" does not exist"},
        {{"mount", "/", m_temp / "b"},
         "a mount point needs a name: the root of the tree is not one"},
        {{"unmount", "/C"}, "nothing is mounted at \"/C\""},
        {{"unmount", "/A"}, "\"/A\" is mounted for this call only"}};
    for (const auto& [args, message] : failures)
        EXPECT_EQ(Bad(args), message);
    EXPECT_EQ(RunPlain({"unmount", "/my data/"}).Err, "");
    EXPECT_EQ(RunPlain({"mounts"}).Out, "");
    EXPECT_EQ(RunPlain({"ls"}).Err, "") << "an empty tree is no failure";
}

TEST_F(TMountTest, WhatCannotBeChangedIsSaid)
{
    const TVarFolder var({{"/Data", m_temp / "a"}}, true);
    EXPECT_EQ(RunPlain({"unmount", "/Data"}).Err,
              "qvres: the profile \"Test\" comes from the repository and cannot be changed here\n");
    var.Write("policy.x-ini", "");
    EXPECT_EQ(RunPlain({"ls"}).Err,
              "qvres: no profile is selected; run \"qvres profile select NAME\"\n");
}
