// Commands that read and change resources and folders.
#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/QvresProcess.h"

using TContentTest = TQvresTest;

TEST_F(TContentTest, PutAndCatCarryBytes)
{
    std::string content(3 * 256 * 1024 + 17, '\0');
    for (std::size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 7);
    Good({"put", "/A/new"}, content);
    EXPECT_TRUE(Good({"cat", "/A/new", "/A/new"}) == content + content);
    Good({"put", "/A/new", m_temp.Write("file", "short")});
    EXPECT_EQ(Good({"cat", "/A/new"}), "short");
    Good({"put", "/A/new", "-"});
    EXPECT_EQ(Good({"cat", "/A/new"}), "");
    const std::string longName(255, 'n');
    Good({"put", "/A/" + longName}, "x");
    EXPECT_EQ(NamesIn(m_temp / "a"), (std::vector<std::string>{"new", longName}));
}

TEST_F(TContentTest, PutKeepsPermissionsAndNoStaleMetadata)
{
    const std::string path = m_temp.Write("a/secret", "old");
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    m_temp.Write("a/secret.meta", "kept=1\n");
    m_temp.Write("a/gone.meta", "stale=1\n");
    Good({"put", "/A/secret"}, "new");
    Good({"put", "/A/gone"}, "new");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
    EXPECT_EQ(Good({"meta", "/A/secret"}), "kept=1\n");
    EXPECT_EQ(Bad({"meta", "/A/gone"}), "\"/A/gone\" has no metadata");
}

TEST_F(TContentTest, AFullDiskLeavesTheOldContentAndNothingElse)
{
    m_temp.Write("a/x", "old");
    const auto limit = [] {
        const rlimit size = {100000, 100000};
        setrlimit(RLIMIT_FSIZE, &size);
        std::signal(SIGXFSZ, SIG_IGN);
    };
    const TResult put = RunPlain(WithMounts({"put", "/A/x"}), std::string(500000, 'n'), {}, limit);
    EXPECT_EQ(put.Status, 1);
    EXPECT_EQ(put.Err, "qvres: \"/A/x\" cannot be written: File too large\n");
    m_temp.Write("a/big", std::string(500000, 'b'));
    const TResult copy = RunPlain(WithMounts({"cp", "/A/big", "/B/x"}), {}, {}, limit);
    EXPECT_EQ(copy.Status, 1);
    EXPECT_EQ(ReadFile(m_temp / "a/x"), "old");
    EXPECT_EQ(NamesIn(m_temp / "a"), (std::vector<std::string>{"big", "x"}));
    EXPECT_EQ(NamesIn(m_temp / "b"), std::vector<std::string>{});

    const std::string message =
        "qvres: standard output cannot be written: No space left on device\n";
    for (const TArgs& args : {TArgs{"cat", "/A/big"}, TArgs{"cat", "/A/x"}, TArgs{"ls", "/A"}}) {
        const TResult result = RunPlain(WithMounts(args), {}, "/dev/full");
        EXPECT_EQ(result.Status, 1);
        EXPECT_EQ(result.Err, message);
    }
    // A closed standard output is no output either, and nothing else takes its place.
    const TResult closed = RunPlain(WithMounts({"cat", "/A/x"}), {}, {}, [] { close(1); });
    EXPECT_EQ(closed.Status, 1);
}

TEST_F(TContentTest, AReaderThatLeavesEndsItQuietly)
{
    m_temp.Write("a/big", std::string(1 << 20, 'x'));
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    const TResult result = RunPlain(WithMounts({"cat", "/A/big"}), {}, {}, [&ends] {
        std::signal(SIGPIPE, SIG_IGN);
        dup2(ends[1], STDOUT_FILENO);
    });
    close(ends[1]);
    EXPECT_EQ(result.Status, -SIGPIPE);
    EXPECT_EQ(result.Err, "");
}

TEST_F(TContentTest, CopiesMovesAndRemovesWithMetadata)
{
    m_temp.Write("a/x", "content");
    m_temp.Write("a/x.meta", "m=1\n");
    Good({"cp", "/A/x", "/A/y"});
    Good({"cp", "/A/x", "/B/x"});
    EXPECT_EQ(Good({"cat", "/A/y", "/B/x"}), "contentcontent");
    EXPECT_EQ(Good({"meta", "/B/x"}), "m=1\n");
    Good({"mv", "/A/y", "/B/y"});
    Good({"mv", "/B/y", "/B/z"});
    Good({"rm", "/B/x"});
    EXPECT_EQ(NamesIn(m_temp / "b"), (std::vector<std::string>{"z", "z.meta"}));
    EXPECT_EQ(NamesIn(m_temp / "a"), (std::vector<std::string>{"x", "x.meta"}));
}

TEST_F(TContentTest, FoldersAreMadeRenamedClearedAndRemoved)
{
    Good({"mkdir", "/A/d/e/f"});
    Good({"mkdir", "/A/d/"});
    m_temp.Write("a/d/e/f/x", "");
    m_temp.Write("a/d/y", "");
    Good({"rename", "/A/d/e", "g"});
    EXPECT_EQ(Good({"ls", "-R", "/A"}), "/A/d/\n/A/d/g/\n/A/d/g/f/\n/A/d/g/f/x\n/A/d/y\n");
    EXPECT_EQ(Bad({"rmdir", "/A/d"}), "the folder \"/A/d\" is not empty");
    Good({"clear", "/A/d/g"});
    EXPECT_EQ(Good({"ls", "-R", "/A"}), "/A/d/\n/A/d/g/\n/A/d/y\n");
    m_temp.Write("a/d/g/.hidden", "");
    EXPECT_EQ(Bad({"rmdir", "/A/d/g"}),
              "the folder \"/A/d/g\" is not empty: it holds hidden files");
    EXPECT_EQ(Bad({"rmdir", "--clear", "/A/d"}), "\"/A/d/g\" could not be removed");
    unlink((m_temp / "a/d/g/.hidden").c_str());
    Good({"rmdir", "--clear", "/A/d"});
    EXPECT_EQ(NamesIn(m_temp / "a"), std::vector<std::string>{});
}

TEST_F(TContentTest, RefusalsNameTheIdAndChangeNothing)
{
    m_temp.Write("a/x", "content");
    m_temp.Write("a/d/y", "");
    const std::vector<std::pair<TArgs, std::string>> failures = {
        {{"cat", "/A/no"}, "\"/A/no\" does not exist"},
        {{"cat", "/A/x/"}, "\"/A/x/\" is not a folder"},
        {{"cat", "/A/d"}, "\"/A/d\" is a folder"},
        {{"meta", "/A/x"}, "\"/A/x\" has no metadata"},
        {{"put", "/A/d"}, "\"/A/d\" is a folder; give the id of the resource to be written"},
        {{"put", "/A/no/x"}, "the folder \"/A/no\" does not exist"},
        {{"put", "/A/x/y"}, "the folder \"/A/x\" does not exist"},
        {{"put", "/x"}, "\"/x\" lies outside of the mounted folders"},
        {{"put", "/A/*"}, "\"/A/*\" is not a valid resource id"},
        {{"put", "/A/x", m_temp / "no"},
         "\"" + m_temp.Path() + "/no\" cannot be read: No such file or directory"},
        {{"put", "/A/x", m_temp / "a"}, "\"" + m_temp.Path() + "/a\" is a folder"},
        {{"cp", "/A/d", "/B/d"}, "\"/A/d\" is a folder; \"qvres copy\" copies folders"},
        {{"cp", "/A/x", "/B"}, "\"/B\" is a folder; give the id of the resource to be written"},
        {{"cp", "/A/x", "/B/no/x"}, "the folder \"/B/no\" does not exist"},
        {{"mv", "/A/d", "/B/d"}, "\"/A/d\" is a folder; \"qvres rename\" renames folders"},
        {{"mv", "/A/no", "/B/no"}, "\"/A/no\" does not exist"},
        {{"rm", "/A/d"}, "\"/A/d\" is a folder; \"qvres rmdir\" removes folders"},
        {{"rm", "/A/no"}, "\"/A/no\" does not exist"},
        {{"mkdir", "/A/x/y/z"}, "\"/A/x\" is a resource"},
        {{"mkdir", "/C/y"}, "\"/C/y\" lies outside of the mounted folders"},
        {{"rmdir", "--clear", "/A"},
         "\"/A\" is a mount point; \"qvres clear\" empties it, \"qvres "
         "unmount\" takes it out of the tree"},
        {{"rmdir", "/A/x"}, "\"/A/x\" is not a folder"},
        {{"clear", "/"}, "\"/\" only leads to mount points"},
        {{"clear", "/A/no"}, "\"/A/no\" does not exist"},
        {{"rename", "/A/x", "y"}, "\"/A/x\" is a resource; \"qvres mv\" renames resources"},
        {{"rename", "/A/d", "x"}, "\"/A/x\" exists already"},
        {{"rename", "/A/d", "e/f"}, "\"e/f\" is not a valid name"},
        {{"rename", "/A/d", ".."}, "\"..\" is not a valid name"}};
    for (const auto& [args, message] : failures)
        EXPECT_EQ(Bad(args), message);
    EXPECT_NE(Bad({"rename", "/A", "C"}).find("mount point"), std::string::npos);
    EXPECT_EQ(Good({"ls", "-R"}), "/A/\n/A/d/\n/A/d/y\n/A/x\n/B/\n");
    EXPECT_EQ(ReadFile(m_temp / "a/x"), "content");
}
