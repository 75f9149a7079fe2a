// put: new content for a resource, whole or not at all.
#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"
#include "ResourceWriting.h"

namespace
{
constexpr std::size_t kBlockSize = std::size_t{256} * 1024;

/// The file or standard input that the content comes from.
class TSource
{
public:
    explicit TSource(const std::string& file)
        : m_name(file == "-" ? "standard input" : Quoted(file))
    {
        m_descriptor = file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
        struct stat status = {};
        if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0)
            ThrowError();
        // Opening a folder succeeds, and its first read would fail with a less clear message.
        if (S_ISDIR(status.st_mode))
            throw TFailure(m_name + " is a folder");
        m_size = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    }
    ~TSource()
    {
        if (m_descriptor > STDIN_FILENO)
            close(m_descriptor);
    }
    TSource(const TSource&) = delete;
    TSource& operator=(const TSource&) = delete;

    bool IsTerminal() const { return isatty(m_descriptor) != 0; }
    /// Bytes; 0 when that is not known.
    const std::uint64_t& Size() const { return m_size; }

    /// 0 at the end.
    std::size_t Read(std::vector<char>& block)
    {
        for (;;) {
            BreakSignal::WaitForInput(m_descriptor);
            const ssize_t count = read(m_descriptor, block.data(), block.size());
            if (count >= 0)
                return static_cast<std::size_t>(count);
            if (errno != EINTR)
                ThrowError();
        }
    }

private:
    [[noreturn]] void ThrowError() const
    {
        const int error = errno;
        BreakSignal::ThrowIfWanted(); // opening a FIFO waits for its writer
        throw TFailure(m_name + " cannot be read: " + QvErrorText(error));
    }

    std::string m_name;
    int m_descriptor;
    std::uint64_t m_size = 0;
};

void Put(THost& host, const std::string& id, const std::string& file)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireTarget(tree, id);
    TSource source(file);
    // Before the input is read: a target that cannot be written is refused at once, not after
    // gigabytes.
    TQvNewFile content = StartWriting(tree, id);

    TQvProgress progress(&host.Progress);
    progress.SetMessage("Writing " + id);
    host.Progress.CountBytesOf(source.Size());
    // The bar would mix with the user's input.
    if (!source.IsTerminal())
        progress.Start();
    std::vector<char> block(kBlockSize);
    double done = 0;
    while (const std::size_t count = source.Read(block)) {
        Write(content, {block.data(), count}, id);
        done += static_cast<double>(count);
        if (source.Size() > 0)
            progress.Report(done / static_cast<double>(source.Size()));
        else
            // A pipe has no size: the bar only shows that the work continues.
            host.Progress.Update();
    }
    // Not reached after a break or a failed read: then the new content is discarded.
    FinishWriting(content, id);
}
} // namespace

void AddPutCommand(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto file = std::make_shared<std::string>("-");
    CLI::App* command = AddCommand(app, "put",
                                   "Write a resource from a file or standard input. The old "
                                   "content stays until all of the\n"
                                   "new content is on the disk",
                                   "  qvres put /Data/a ./a.txt\n"
                                   "  tar c . | qvres put /Backup/all.tar");
    AddIdOption(*command, "ID", *id, "The resource; its folder must exist")->required();
    command->add_option("FILE", *file, "The file; \"-\" (or none) is standard input");
    command->callback([&host, id, file] { Put(host, *id, *file); });
}
