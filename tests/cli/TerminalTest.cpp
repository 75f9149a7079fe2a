// The progress bar, and breaking off.
#include <csignal>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/QvresProcess.h"
#include "support/ChildProcess.h"

namespace
{
/// qvres on a terminal of its own.
class TOnTerminal
{
public:
    explicit TOnTerminal(const TArgs& args)
    {
        const winsize size = {24, 60, 0, 0};
        m_process = forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_process == 0) {
            setenv("TERM", "xterm", 1);
            ExecQvres(args);
        }
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
    void Type(const std::string& keys) const
    {
        ASSERT_EQ(write(m_terminal, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
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

TEST_F(TTerminalTest, ControlCBreaksALargeCopyAndCleansTheLine)
{
    // Too large to be copied before the bar shows; takes no room itself.
    const std::string big = m_temp.Write("a/big", "");
    ASSERT_EQ(truncate(big.c_str(), 16LL << 30), 0);
    m_temp.Write("b/big", "old");
    const std::vector<std::pair<TArgs, std::string>> calls = {
        {{"cp", "/A/big", "/B/big"}, "% Copying /A/big"},
        {{"copy", "--overwrite", "/A", "/B"}, "% /A/big"}};
    for (const auto& [call, bar] : calls) {
        TOnTerminal terminal(WithMounts(call));
        ASSERT_TRUE(terminal.WaitFor(bar));
        EXPECT_NE(terminal.Shown.find("\r[--"), std::string::npos) << terminal.Shown;
        terminal.Type("\x03");
        EXPECT_EQ(terminal.Wait(), 1);
        const std::string end = "\r\x1b[Kqvres: The operation was broken off.\r\n";
        ASSERT_GE(terminal.Shown.size(), end.size());
        EXPECT_EQ(terminal.Shown.substr(terminal.Shown.size() - end.size()), end);
        EXPECT_EQ(ReadFile(m_temp / "b/big"), "old");
        EXPECT_EQ(NamesIn(m_temp / "b"), std::vector<std::string>{"big"});
    }
}

TEST_F(TTerminalTest, CopyAsksAndTheEndOfInputMeansNo)
{
    for (const char* name : {"1", "2", "3"}) {
        m_temp.Write(std::string("a/") + name, "new");
        m_temp.Write(std::string("b/") + name, "old");
    }
    TOnTerminal terminal(WithMounts({"copy", "--ask", "/A", "/B"}));
    for (const auto& [question, answer] : {std::pair("/B/1", "y\n"), {"/B/2", "n\n"}}) {
        ASSERT_TRUE(terminal.WaitFor(std::string("overwrite \"") + question + "\"? [y/N] "));
        terminal.Type(answer);
    }
    ASSERT_TRUE(terminal.WaitFor("/B/3"));
    terminal.Type("\x04");
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_EQ(ReadFile(m_temp / "b/1") + ReadFile(m_temp / "b/2") + ReadFile(m_temp / "b/3"),
              "newoldold");
}

TEST_F(TTerminalTest, ControlCBreaksAQuestionAndAChecksum)
{
    m_temp.Write("a/x", "new");
    m_temp.Write("b/x", "old");
    TOnTerminal copy(WithMounts({"copy", "--ask", "/A", "/B"}));
    ASSERT_TRUE(copy.WaitFor("[y/N] "));
    copy.Type("\x03");
    EXPECT_EQ(copy.Wait(), 1);
    EXPECT_EQ(ReadFile(m_temp / "b/x"), "old");

    ASSERT_EQ(truncate((m_temp / "a/x").c_str(), 16LL << 30), 0);
    TOnTerminal label(WithMounts({"label", "/A/x"}));
    ASSERT_TRUE(label.WaitFor("% Reading /A/x"));
    label.Type("\x03");
    EXPECT_EQ(label.Wait(), 1);
    EXPECT_EQ(NamesIn(m_temp / "a"), std::vector<std::string>{"x"}) << "no half label";
}

TEST_F(TTerminalTest, SigtermBreaksAPutThatWaitsForInput)
{
    m_temp.Write("a/x", "old");
    TOnTerminal terminal(WithMounts({"put", "/A/x"}));
    terminal.Type("new line\n");
    ASSERT_TRUE(WaitUntil([this] { return NamesIn(m_temp / "a").size() == 2; }));
    terminal.Signal(SIGTERM);
    EXPECT_EQ(terminal.Wait(), 1);
    EXPECT_EQ(terminal.Shown, "new line\r\nqvres: The operation was broken off.\r\n");
    EXPECT_EQ(NamesIn(m_temp / "a"), std::vector<std::string>{"x"});
    EXPECT_EQ(ReadFile(m_temp / "a/x"), "old");
}
