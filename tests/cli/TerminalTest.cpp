// The progress bar, and breaking off.
#include <csignal>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/QvresTest.h"
#include "support/ChildProcess.h"

namespace
{
/// qvres on a terminal of its own.
class TOnTerminal
{
public:
    explicit TOnTerminal(const std::string& call)
    {
        const winsize size = {24, 60, 0, 0};
        m_process = forkpty(&m_terminal, nullptr, nullptr, &size);
        const std::string script = "exec $QVRES --mount /A=$T/a --mount /B=$T/b " + call;
        if (m_process == 0)
            execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
    }
    ~TOnTerminal() { close(m_terminal); }

    /// Reads until the text has shown up, or to the end.
    bool WaitFor(const std::string& text)
    {
        char block[4096];
        while (Shown.find(text) == std::string::npos) {
            const ssize_t count = read(m_terminal, block, sizeof block);
            if (count <= 0)
                return false;
            Shown.append(block, static_cast<std::size_t>(count));
        }
        return true;
    }
    void Type(const char* keys) const { dprintf(m_terminal, "%s", keys); }
    void Signal(int signalNumber) const { kill(m_process, signalNumber); }
    int Wait()
    {
        WaitFor("\x01 never shown");
        int status = 0;
        waitpid(m_process, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

    std::string Shown;

private:
    int m_terminal = -1;
    pid_t m_process = -1;
};
} // namespace

using TTerminalTest = TQvresTest;

TEST_F(TTerminalTest, ControlCBreaksLongWorkAndCleansTheLine)
{
    // Too large to be read before the bar shows; without holes, which would not be read at all.
    Expect({{"fallocate -l 2G a/big; echo old >b/big", ""}});
    const std::pair<const char*, const char*> calls[] = {{"cp /A/big /B/big", "% Copying /A/big"},
                                                         {"copy --overwrite /A/ /B", "% /A/big"},
                                                         {"label /A/big", "/s 0:"}};
    for (const auto& [call, bar] : calls) {
        SCOPED_TRACE(call);
        TOnTerminal terminal(call);
        ASSERT_TRUE(terminal.WaitFor(bar));
        EXPECT_NE(terminal.Shown.find("\r["), std::string::npos) << terminal.Shown;
        terminal.Type("\x03");
        EXPECT_EQ(terminal.Wait(), 130);
        const std::string end = "\r\x1b[Kqvres: The operation was cancelled.\r\n";
        EXPECT_EQ(terminal.Shown.rfind(end) + end.size(), terminal.Shown.size()) << terminal.Shown;
        Expect({{"grep -H '' b/*; ls -A a b", "b/big:old\na:\nbig\n\nb:\nbig\n"}});
    }
}

TEST_F(TTerminalTest, CopyAsksAndTheEndOfInputMeansNo)
{
    Expect({{"for name in 1 2 3; do echo new >a/$name; echo old >b/$name; done", ""}});
    TOnTerminal broken("copy --ask /A/ /B");
    ASSERT_TRUE(broken.WaitFor("none/quit] "));
    broken.Type("\x03");
    EXPECT_EQ(broken.Wait(), 130);
    Expect({{"grep '' b/*", "b/1:old\nb/2:old\nb/3:old\n"}});

    TOnTerminal terminal("copy --ask /A/ /B");
    for (const auto& [id, answer] : {std::pair("/B/1", "y\n"), {"/B/2", "n\n"}, {"/B/3", "\x04"}}) {
        ASSERT_TRUE(
            terminal.WaitFor(std::string("overwrite \"") + id + "\"? [yes/No/all/none/quit] "));
        terminal.Type(answer);
    }
    EXPECT_EQ(terminal.Wait(), 0);
    Expect({{"grep '' b/*", "b/1:new\nb/2:old\nb/3:old\n"}});
}

TEST_F(TTerminalTest, SigtermBreaksAPutThatWaitsForInput)
{
    m_temp.Write("a/x", "old");
    TOnTerminal terminal("put /A/x");
    terminal.Type("new line\n");
    ASSERT_TRUE(WaitUntil([this] { return NamesIn(m_temp / "a").size() == 2; }));
    terminal.Signal(SIGTERM);
    EXPECT_EQ(terminal.Wait(), 130);
    EXPECT_EQ(terminal.Shown, "new line\r\nqvres: The operation was cancelled.\r\n");
    Expect({{"grep -r '' a", "a/x:old\n"}});
}
