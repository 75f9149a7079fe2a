// The commands around the tree: copy, label, check, backup, done, open, xini.
#include <ctime>
#include <fcntl.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "cli/QvresProcess.h"
#include "support/VarFolder.h"

using nlohmann::json;

class TServiceCommandTest : public TQvresTest
{
protected:
    void SetTime(const std::string& path, std::time_t time) const
    {
        const timespec times[] = {{time, 0}, {time, 0}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }
};

TEST_F(TServiceCommandTest, CopySkipsOverwritesAndKeepsTheLayout)
{
    m_temp.Write("a/d/1", "new");
    m_temp.Write("a/d/1.meta", "m=1\n");
    m_temp.Write("a/d/e/2", "new");
    m_temp.Write("a/x", "new");
    m_temp.Write("b/n/d/1", "old");
    Good({"copy", "/A/d", "/A/x", "/B/n/"});
    EXPECT_EQ(Good({"ls", "-R", "/B/n"}), "/B/n/d/\n/B/n/d/1\n/B/n/d/e/\n/B/n/d/e/2\n/B/n/x\n");
    EXPECT_EQ(Good({"cat", "/B/n/d/1", "/B/n/d/e/2"}), "oldnew");
    Good({"copy", "--overwrite", "/A/d", "/A/x", "/B/n"});
    EXPECT_EQ(Good({"cat", "/B/n/d/1"}) + Good({"meta", "/B/n/d/1"}), "newm=1\n");
    Good({"copy", "/A/d", "/B/alone"});
    EXPECT_EQ(Good({"ls", "/B/alone"}), "/B/alone/1\n/B/alone/e/\n") << "what the folder holds";
    Good({"copy", "--ask", "/A/x", "/B/n/d"}, "");
}

TEST_F(TServiceCommandTest, CopyNamesEachFailedSourceAndGoesOn)
{
    m_temp.Write("a/1/x", "");
    m_temp.Write("a/2", "");
    m_temp.Write("a/3", "3");
    m_temp.Write("b/1", "in the way");
    m_temp.MakeFolder("b/2");
    const TResult result = Run({"copy", "/A", "/B"});
    EXPECT_EQ(result.Status, 1);
    EXPECT_EQ(result.Err, "qvres: \"/A/1\" could not be copied\n"
                          "qvres: \"/A/1/x\" could not be copied\n"
                          "qvres: \"/A/2\" could not be copied\n");
    EXPECT_EQ(ReadFile(m_temp / "b/1") + ReadFile(m_temp / "b/3"), "in the way3");
}

TEST_F(TServiceCommandTest, LabelsAreStoredAndChecked)
{
    const std::string path = m_temp.Write("a/x", "123456789");
    setenv("TZ", "UTC", 1);
    SetTime(path, 1700000000);
    EXPECT_EQ(Good({"label", "--weak", "/A/x"}),
              "size:     9\ntime:     2023-11-14T22:13:20+00:00\n");
    EXPECT_EQ(Bad({"label", "--stored", "/A/x"}),
              "\"/A/x\" has no stored label; \"qvres label\" stores one");
    EXPECT_EQ(Bad({"check", "/A/x"}), "\"/A/x\" has no stored label; \"qvres label\" stores one");
    const std::string label = Good({"label", "/A/x"});
    EXPECT_EQ(label, "size:     9\ntime:     2023-11-14T22:13:20+00:00\nchecksum: cbf43926\n");
    EXPECT_EQ(Good({"check", "/A/x"}), "ok\n");

    m_temp.Write("a/x", "987654321");
    SetTime(path, 1700000000);
    EXPECT_EQ(Good({"label", "/A/x"}), label) << "size and time are the same";
    const TResult changed = Run({"check", "/A/x"});
    EXPECT_EQ(std::to_string(changed.Status) + changed.Out + changed.Err, "1changed\n");
    SetTime(path, 1700000001);
    EXPECT_EQ(Good({"label", "--stored", "/A/x"}), label);
    const json record = json::parse(Good({"--json", "label", "/A/x"}));
    EXPECT_EQ(record["size"], 9);
    EXPECT_NE(record["checksum"], "cbf43926");
    EXPECT_EQ(Good({"check", "/A/x"}), "ok\n");
    m_temp.Write("a/x.meta", "no X-Ini");
    EXPECT_EQ(json::parse(Good({"--json", "label", "/A/x"})), record) << "cannot be stored";
}

TEST_F(TServiceCommandTest, BackupsAreBoundedAndFailuresShow)
{
    setenv("TZ", "UTC", 1);
    for (int day = 1; day <= 5; ++day) {
        SetTime(m_temp.Write("a/x.txt", std::to_string(day)), 1700000000 + day * 86400);
        Good({"backup", "/A/x.txt"});
    }
    EXPECT_EQ(Good({"ls", "-R", "/A"}), "/A/backup/\n"
                                        "/A/backup/x.2023-11-17.22-13-20.txt\n"
                                        "/A/backup/x.2023-11-18.22-13-20.txt\n"
                                        "/A/backup/x.2023-11-19.22-13-20.txt\n");
    SetTime(m_temp.Write("a/y", ""), 1700000000);
    m_temp.MakeFolder("a/backup/y.2023-11-14.22-13-20");
    EXPECT_EQ(Bad({"backup", "/A/y"}), "\"/A/y\" is still there");
    EXPECT_EQ(Bad({"backup", "/A"}), "\"/A\" is a folder");
    Bad({"backup", "--keep", "-1", "/A/y"}, 2);
    m_temp.Write("b/backup", "in the way");
    m_temp.Write("b/y", "");
    EXPECT_EQ(Bad({"backup", "/B/y"}), "\"/B/backup\" is a resource");
}

TEST_F(TServiceCommandTest, DoneMarkersAreWrittenAndRead)
{
    EXPECT_EQ(Good({"done", "/A/step"}), "none\n");
    EXPECT_EQ(Good({"done", "/A/step", "ok"}), "");
    EXPECT_EQ(ReadFile(m_temp / "a/step.done"), "ok");
    EXPECT_EQ(Good({"done", "/A/step"}), "ok\n");
    Good({"done", "/A/step", "fail"});
    EXPECT_EQ(Good({"--json", "done", "/A/step"}), "\"fail\"\n");
    m_temp.MakeFolder("a/odd.done");
    EXPECT_EQ(Bad({"done", "/A/odd"}), "the marker \"/A/odd.done\" cannot be read");
    EXPECT_EQ(Bad({"done", "/C/x", "ok"}), "the folder \"/C\" does not exist");
    Bad({"done", "/A/step", "perhaps"}, 2);
}

TEST_F(TServiceCommandTest, OpenGoesThroughTheUrlManager)
{
    m_temp.Write("a/x y", "content");
    EXPECT_EQ(Bad({"open", "qvres:/A/x y"}).substr(0, 14), "the VAR folder");
    const TVarFolder var;
    EXPECT_EQ(Good({"open", "qvres:/A/x y"}), "content");
    EXPECT_EQ(Bad({"open", "qvres:/A/x%20y"}), "\"qvres:/A/x%20y\" cannot be opened for reading.");
    EXPECT_NE(Bad({"open", "other:/A/x"}).find("other:/A/x"), std::string::npos);
}

TEST_F(TServiceCommandTest, XIniChangesOneValueAndNothingElse)
{
    const std::string path = m_temp.Write(
        "a/x",
        "; kept\r\n[a]\r\n  k =  old\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n[a]\n  k=2\n[/]\nend=");
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    EXPECT_EQ(Good({"xini", "get", "/A/x", "a/k"}), "old\n");
    Good({"xini", "set", "/A/x", "a/k", " new "});
    Good({"xini", "set", "/A/x", "b/c/k", "1"});
    EXPECT_EQ(ReadFile(path), "; kept\r\n[a]\r\n  k =  \" new \"\r\n\r\n  [k]\r\n  [/k]\r\n[/a]\r\n"
                              "[a]\n  k=2\n[/]\nend=\n[b]\n  [c]\n    k=1\n  [/c]\n[/b]\n");
    EXPECT_EQ(Good({"--json", "xini", "get", "/A/x", "a/k"}), "\" new \"\n");
    struct stat status = {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0640u);
    m_temp.Write("a/bad", "a\n");
    const std::string malformed = "\"/A/bad\" is not well formed: line 1: ";
    EXPECT_EQ(Bad({"xini", "get", "/A/bad", "a"}).substr(0, malformed.size()), malformed);
    EXPECT_EQ(Bad({"xini", "set", "/A/bad", "a", "1"}).substr(0, malformed.size()), malformed);
    EXPECT_EQ(ReadFile(m_temp / "a/bad"), "a\n");
    EXPECT_EQ(Bad({"xini", "get", "/A/x", "a/no"}), "\"/A/x\" has no value at \"a/no\"");
    EXPECT_EQ(Bad({"xini", "get", "/A/x", "no/k"}), "\"/A/x\" has no section \"no\" of \"no/k\"");
    EXPECT_NE(Bad({"xini", "set", "/A/x", "a=", "1"}).find("\"/A/x\": "), std::string::npos);
    Bad({"xini", "set", "/A/x", "a//k", "1"}, 2);
    EXPECT_EQ(NamesIn(m_temp / "a"), (std::vector<std::string>{"bad", "x"}));
}
