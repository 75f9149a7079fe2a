// Runs the built qvres from a shell, in a home folder and with mounts of its own.
#pragma once

#include <cstdlib>
#include <gtest/gtest.h>

#include "support/TempFolder.h"

class TQvresTest : public ::testing::Test
{
protected:
    TQvresTest()
    {
        for (const char* folder : {"a", "b", "home", "registry"})
            m_temp.MakeFolder(folder);
        unsetenv("QV_VAR_FOLDER");
        setenv("QV_REGISTRY_DIR", (m_temp / "registry").c_str(), 1);
        setenv("HOME", (m_temp / "home").c_str(), 1);
        setenv("QVRES", QVRES_PATH, 1);
        setenv("T", m_temp.Path().c_str(), 1);
        setenv("TZ", "UTC-2", 1);
        setenv("TERM", "xterm", 1);
        setenv("LC_ALL", "C", 1);
    }

    /// All that a script prints that runs in the folder "$T" of the test. A call of qvres that
    /// fails or writes to standard error leaves its status there and the message, without "qvres"
    /// and the line's end. "q" is qvres with the folders a and b mounted at /A and /B; "mask"
    /// replaces what differs from run to run.
    std::string Answer(const std::string& script) const
    {
        const std::string shell = R"sh(
            exec 3>&1
            qvres() {
                "$QVRES" "$@" 2>"$T/err"
                status=$?
                test $status = 0 && test ! -s "$T/err" ||
                    printf %s%s $status "$(sed 's/^qvres: /: /' "$T/err")" >&3
            }
            j() { qvres journal "$@"; }
            J='s/$QvStorage.list'
            q() { qvres --mount /A=$T/a --mount /B=$T/b "$@"; }
            mask() {
                sed -E 's/ +[1-9][0-9.]* .iB/ FREE/; s/("free":)[1-9][0-9]*/\1FREE/
                    s/(folder","size":)[0-9]+/\1SIZE/
                    s/("created":)"[-:T0-9]{19}\+02:00"/\1TIME/'
            }
            cd "$T")sh";
        const std::string all = "{ " + shell + "\n" + script + "\n} </dev/null >$T/out";
        EXPECT_NE(std::system(all.c_str()), -1);
        return ReadFile(m_temp / "out");
    }

    /// Pairs of scripts and their answers; these have the test's folder where they say "$T".
    void Expect(const std::vector<std::pair<std::string, std::string>>& steps) const
    {
        for (auto [script, answer] : steps) {
            for (std::size_t at; (at = answer.find("$T")) != std::string::npos;)
                answer.replace(at, 2, m_temp.Path());
            EXPECT_EQ(Answer(script), answer) << script;
        }
    }

    TTempFolder m_temp;
};
