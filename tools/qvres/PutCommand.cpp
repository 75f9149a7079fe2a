// put: new content for a resource, whole or not at all.
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include <CLI/CLI.hpp>

#include "Checks.h"
#include "Commands.h"
#include "Failure.h"

namespace
{
constexpr std::size_t kBlockSize = 256 * 1024;
constexpr std::size_t kLongestName = 255;

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
        if (S_ISDIR(status.st_mode))
            throw TFailure(m_name + " is a folder");
        m_size = S_ISREG(status.st_mode) ? static_cast<double>(status.st_size) : 0;
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
    double Size() const { return m_size; }

    /// 0 at the end.
    std::size_t Read(std::vector<char>& block)
    {
        for (;;) {
            BreakSignal::ThrowIfWanted();
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
        throw TFailure(m_name + " cannot be read: " + std::system_category().message(error));
    }

    std::string m_name;
    int m_descriptor;
    double m_size = 0;
};

/// ".NAME.qvput-PID.tmp" beside `id`, the name shortened where it would be too long for a disk.
std::string HiddenNeighbour(const std::string& id)
{
    std::string name = QvExtractResName(id);
    const std::string suffix = ".qvput-" + std::to_string(getpid()) + ".tmp";
    const std::size_t room = kLongestName - 1 - suffix.size();
    if (name.size() > room) {
        std::size_t end = room;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xc0) == 0x80)
            --end; // not into the middle of a character
        name.resize(end);
    }
    return QvExtractResPath(id) + "." + name + suffix;
}

/// The new content on its way: a hidden neighbour, moved over the resource when it is complete and
/// removed when it is not.
class TNewContent
{
public:
    TNewContent(const TResourceManager& tree, const std::string& id)
        : m_tree(tree), m_id(id), m_neighbour(HiddenNeighbour(id))
    {
        // Opening for writing tells whether the resource may be written; a resource that is not
        // there loses the metadata that an earlier one of its name has left.
        m_existing = tree.OpenResource(id, kQvOpenWrite, kQvShareAll, 0);
        if ((!m_existing || !*m_existing) && tree.IsResource(id))
            Fail(m_existing.get());
        m_stream = tree.OpenResource(m_neighbour, kQvOpenCreate, kQvShareAll, 0);
        if (!m_stream || !*m_stream)
            Fail(m_stream.get());
        KeepPermissions();
    }
    ~TNewContent()
    {
        if (!m_stream)
            return;
        m_stream.reset();
        try {
            m_tree.DeleteResource(m_neighbour);
        } catch (const std::exception&) {
            // The failure that led here is the one to tell.
        }
    }
    TNewContent(const TNewContent&) = delete;
    TNewContent& operator=(const TNewContent&) = delete;

    void Write(const char* bytes, std::size_t count)
    {
        if (m_stream->Write(bytes, count) != count)
            Fail(m_stream.get());
    }

    void Finish()
    {
        if (!m_stream->Flush() || !m_stream->Close())
            Fail(m_stream.get());
        errno = 0;
        if (!m_tree.RenMovResource(m_neighbour, m_id, nullptr))
            ThrowFailed(Quoted(m_id) + " cannot be replaced", errno);
        m_stream.reset();
    }

private:
    [[noreturn]] void Fail(const TQvStream* stream) const
    {
        ThrowFailed(Quoted(m_id) + " cannot be written",
                    stream != nullptr ? -stream->getError() : 0);
    }

    /// Before there is any content: what only its owner may read stays so all the time.
    void KeepPermissions() const
    {
        if (!m_existing || !*m_existing)
            return;
        namespace fs = std::filesystem;
        std::error_code ignored; // some file systems have no permissions
        const fs::file_status status = fs::status(m_tree.GetResourceFile(m_id, false), ignored);
        fs::permissions(m_tree.GetResourceFile(m_neighbour, false), status.permissions(), ignored);
    }

    const TResourceManager& m_tree;
    std::string m_id;
    std::string m_neighbour;
    var_a<TQvStream*> m_existing;
    var_a<TQvStream*> m_stream; ///< of the neighbour; null when there is none any more
};

void Put(THost& host, const std::string& id, const std::string& file)
{
    const TResourceManager& tree = host.Session.Tree();
    RequireTarget(tree, id);
    TSource source(file);
    TNewContent content(tree, id);

    TQvProgress progress(&host.Progress);
    progress.SetMessage("Writing " + id);
    // The bar would run into what is being typed.
    if (!source.IsTerminal())
        progress.Start();
    std::vector<char> block(kBlockSize);
    double done = 0;
    while (const std::size_t count = source.Read(block)) {
        content.Write(block.data(), count);
        done += static_cast<double>(count);
        if (source.Size() > 0)
            progress.Report(done / source.Size());
        else
            host.Progress.Update();
    }
    content.Finish();
}
} // namespace

void AddPutCommand(CLI::App& app, THost& host)
{
    const auto id = std::make_shared<std::string>();
    const auto file = std::make_shared<std::string>("-");
    CLI::App* command = AddCommand(app, "put",
                                   "Write a resource from a file or standard input. Until all of "
                                   "it is there and on the disk,\n"
                                   "the old content stays, whatever happens",
                                   "  qvres put /Data/a ./a.txt\n"
                                   "  tar c . | qvres put /Backup/all.tar");
    command->add_option("ID", *id, "The resource; its folder must be there")->required();
    command->add_option("FILE", *file, "The file; \"-\" (or none) is standard input");
    command->callback([&host, id, file] { Put(host, *id, *file); });
}
