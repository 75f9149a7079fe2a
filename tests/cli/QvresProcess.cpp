#include "cli/QvresProcess.h"

#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

#include "support/ChildProcess.h"

void ExecQvres(const TArgs& args)
{
    std::vector<char*> pointers{const_cast<char*>(QVRES_PATH)};
    for (const std::string& arg : args)
        pointers.push_back(const_cast<char*>(arg.c_str()));
    pointers.push_back(nullptr);
    execv(QVRES_PATH, pointers.data());
    _exit(127);
}

namespace
{
void Redirect(int descriptor, const std::string& file, int flags)
{
    if (dup2(open(file.c_str(), flags, 0600), descriptor) < 0)
        _exit(126);
}
} // namespace

TQvresTest::TQvresTest()
{
    unsetenv("QV_VAR_FOLDER");
    setenv("QV_REGISTRY_DIR", m_temp.MakeFolder("registry").c_str(), 1);
    setenv("HOME", m_temp.MakeFolder("home").c_str(), 1);
    m_temp.MakeFolder("a");
    m_temp.MakeFolder("b");
}

TResult TQvresTest::RunPlain(const TArgs& args, const std::string& input,
                             const std::string& outFile, const std::function<void()>& prepare) const
{
    const std::string in = m_temp.Write("stdin", input);
    const std::string out = outFile.empty() ? m_temp.Write("stdout", "") : outFile;
    const std::string err = m_temp.Write("stderr", "");
    TChildProcess process([&]() -> int {
        Redirect(STDIN_FILENO, in, O_RDONLY);
        Redirect(STDOUT_FILENO, out, O_WRONLY);
        Redirect(STDERR_FILENO, err, O_WRONLY);
        if (prepare)
            prepare();
        ExecQvres(args);
    });
    const int status = process.Wait();
    return {status, outFile.empty() ? ReadFile(out) : std::string(), ReadFile(err)};
}

TArgs TQvresTest::WithMounts(const TArgs& args) const
{
    TArgs all{"--mount", "/A=" + (m_temp / "a"), "--mount", "/B=" + (m_temp / "b")};
    all.insert(all.end(), args.begin(), args.end());
    return all;
}

TResult TQvresTest::Run(const TArgs& args, const std::string& input) const
{
    return RunPlain(WithMounts(args), input);
}

std::string TQvresTest::Good(const TArgs& args, const std::string& input) const
{
    const TResult result = Run(args, input);
    EXPECT_EQ(result.Status, 0) << args.front();
    EXPECT_EQ(result.Err, "") << args.front();
    return result.Out;
}

std::string TQvresTest::Bad(const TArgs& args, int status) const
{
    const TResult result = Run(args);
    EXPECT_EQ(result.Status, status) << args.front();
    EXPECT_EQ(result.Err.substr(0, 7), "qvres: ");
    EXPECT_EQ(result.Err.find('\n'), result.Err.size() - 1) << "one line";
    return result.Err.size() < 8 ? result.Err : result.Err.substr(7, result.Err.size() - 8);
}
