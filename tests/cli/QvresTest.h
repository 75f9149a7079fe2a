// Runs the built qvres from a shell, in a home folder and with mounts of its own.
#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <regex>

#include "support/TempFolder.h"

/// What a script has printed, with "$T" for the folder of the test.
struct TAnswer
{
    std::string Output;
    std::string Error; ///< without the "qvres: " of each line and the last line's end
    int Status;        ///< of its first call of qvres that did not end with 0
};

/// A script and its answer. What writes an error ends with 1 unless a row says otherwise.
struct TStep
{
    std::string Script;
    std::string Output = {};
    std::string Error = {};
    int Status = Error.empty() ? 0 : 1;
};

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
        setenv("ANSWER", m_answer.Path().c_str(), 1);
        setenv("TZ", "UTC-2", 1);
        setenv("TERM", "xterm", 1);
        setenv("LC_ALL", "C", 1);
    }

    /// Runs a script in the folder "$T" of the test. "q" is qvres with the folders a and b mounted
    /// at /A and /B, "nameless" qvres for a user without a home folder; "mask" replaces what
    /// differs from run to run.
    TAnswer Answer(const std::string& script) const
    {
        const std::string shell = R"sh({
            qvres() { "$QVRES" "$@" || echo $? >>"$ANSWER/status"; }
            j() { qvres journal "$@"; }
            J='s/$QvStorage.list'
            q() { qvres --mount /A=$T/a --mount /B=$T/b "$@"; }
            nameless() {
                env -u HOME -u QV_REGISTRY_DIR setpriv --reuid 54321 "$QVRES" "$@" ||
                    echo $? >>"$ANSWER/status"
            }
            mask() {
                sed -E 's/ +[1-9][0-9.]* .iB/ FREE/; s/("free":)[1-9][0-9]*/\1FREE/
                    s/(folder","size":)[0-9]+/\1SIZE/
                    s/("created":)"[-:T0-9]{19}\+02:00"/\1TIME/'
            }
            : >"$ANSWER/status"
            cd "$T"
        )sh";
        const std::string all = shell + script + "\n} </dev/null >$ANSWER/out 2>$ANSWER/err";
        EXPECT_NE(std::system(all.c_str()), -1);
        const auto printed = [this](const char* file) {
            return std::regex_replace(ReadFile(m_answer / file), std::regex(m_temp.Path()), "$$T");
        };
        const std::regex frame("(^|\n)qvres: |\n$");
        return {printed("out"), std::regex_replace(printed("err"), frame, "$1"),
                std::atoi(printed("status").c_str())};
    }

    void Expect(const std::vector<TStep>& steps) const
    {
        for (const TStep& step : steps) {
            SCOPED_TRACE(step.Script);
            const TAnswer answer = Answer(step.Script);
            EXPECT_EQ(answer.Output, step.Output);
            EXPECT_EQ(answer.Error, step.Error);
            EXPECT_EQ(answer.Status, step.Status);
        }
    }

    TTempFolder m_temp;

private:
    TTempFolder m_answer;
};
