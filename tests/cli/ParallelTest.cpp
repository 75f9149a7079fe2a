// Several calls at once: what each of them has acknowledged is kept.
#include <unistd.h>

#include "cli/QvresTest.h"

namespace
{
/// `many N COMMAND...` runs a shell command N times at once, with n = 1 to N.
const std::string kMany = R"(
    many() { count=$1; shift; for n in $(seq $count); do eval "$@" & done; wait; }
)";

using TParallelTest = TQvresTest;

TEST_F(TParallelTest, NothingAcknowledgedIsLost)
{
    m_temp.Write("a/x", "; kept\n");
    m_temp.Write("letters", "ab");
    const TStep steps[] = {
        {"qvres setup a; mkdir d; (cd d; mkdir $(seq 12))", "/a\n"},
        {"many 12 'qvres mount /M$n d/$n'; qvres mounts | grep -c /M", "12\n"},
        {"many 11 'qvres unmount /M$n'; qvres mounts | grep /M", "/M12\t$T/d/12\n"},
        {"many 8 'qvres profile add LocalProfile d/$n >dead'; qvres mounts | grep -c /d/", "9\n"},
        {"many 10 'qvres profile create P$n'; qvres profile list | grep -c ' P'", "10\n"},
        {"many 10 'qvres profile add P$n d/$n >dead; qvres profile select P$n'"},
        {"qvres profile select P1; many 9 'qvres profile remove P$n'", "",
         R"(the profile "P1" is the current one; select another one first)"},
        {"qvres profile list | grep -c ' P'", "2\n"},
        {"many 20 'qvres --mount /A=a xini set /A/x s/k$n $n'; grep -c k a/x; ls -A a", "21\nx\n"},
        {"for round in 1 2 3 4 5; do many 3 'qvres --var v$round setup a'; "
         "qvres --var v$round ls; done | sort | uniq -c | tr -s ' '",
         " 15 /a\n 5 /a/\n"},
        {"many 2 'qvres --var w setup $(cut -c$n letters) >dead'; qvres --var w ls | wc -l", "1\n",
         R"(there are profiles already; "qvres profile add NAME FOLDER" adds a folder to one of )"
         "them"}};
    for (const TStep& step : steps)
        Expect({{kMany + step.Script, step.Output, step.Error}});
}

/// Each waits between the opening of the file and its lock, so that others replace the file there.
TEST_F(TParallelTest, TheLockOfAReplacedFileIsTakenAnew)
{
    m_temp.Write("a/x", "");
    Expect({{kMany + "slow() { ASAN_OPTIONS=detect_leaks=0 strace -o /dev/null -e trace=fcntl -e "
                     "inject=fcntl:delay_enter=20000 $*; }\n"
                     "many 6 'slow $QVRES --mount /A=a xini set /A/x k$n $n'; grep -c k a/x",
             "6\n"}});
}

TEST_F(TParallelTest, WithoutAHomeFolderNothingIsReadFromTheCurrentFolder)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can become a user without a name";
    m_temp.Write(".config/velmor/registry.x-ini",
                 "[Software\\Velmor\\KORVADEL\\6 Airlane]\nVarPath=$T/planted\n[/]\n");
    const std::string noHome =
        R"(there is no home folder, and so no default VAR folder; "--var DIR" names one)";
    Expect(
        {{"qvres --var .config/velmor/KORVADELAirlane7.VAR setup a; chmod -R 777 .", "/a\n"},
         {"nameless mounts; nameless setup b; nameless --mount /B=b mounts; ls -A .config/velmor",
          "/B\t$T/b\nKORVADELAirlane7.VAR\nregistry.x-ini\n", noHome + "\n" + noHome}});
}
} // namespace
