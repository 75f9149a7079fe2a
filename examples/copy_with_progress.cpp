// Copies what a folder holds, with progress, until Ctrl-C: copy_with_progress FOLDER FOLDER
#include <QvServices/QvServices.h>

#include <csignal>
#include <iostream>

namespace
{
volatile std::sig_atomic_t g_cancelled = 0;

/// Prints each full percent. The library asks it between two blocks of a file and two entries.
class TPercent : public TQvProgressHandler
{
public:
    void Start() override { m_started = true; }
    void Stop() override { m_started = false; }
    bool Started() const override { return m_started; }
    bool Active() const override { return m_started; }
    void SetPosition(double position) override { m_percent = static_cast<int>(position * 100); }
    void SetMessage(const std::string&) override {} // the folder at work
    bool Poll() override { return m_percent != m_shown || UserBreak(); }
    bool UserBreak() const override { return g_cancelled != 0; }
    void Update() override
    {
        if (UserBreak())
            throw TQvUserBreak();
        m_shown = m_percent;
        std::cerr << '\r' << m_shown << " %";
    }

private:
    bool m_started = false;
    int m_percent = 0;
    int m_shown = -1;
};
} // namespace

int main(int argc, char** argv)
try {
    if (argc != 3)
        throw TQvMessage("@usage: copy_with_progress FOLDER FOLDER");
    std::signal(SIGINT, [](int) { g_cancelled = 1; });
    ResourceManager.MountFileNodeE("/From", argv[1], false);
    ResourceManager.MountFileNodeE("/To", argv[2], false);
    TPercent percent;
    std::map<std::string, TQvFailure> failures;
    TResourceManager::TCopyResourceExParams params;
    params.Sources = {"/From/"};
    params.DestFolder = "/To";
    params.Progress = &percent;
    params.Failures = &failures;
    const bool copied = ResourceManager.CopyResourceEx(params);
    for (const auto& [id, failure] : failures)
        std::cerr << '\n' << failure.text();
    std::cerr << (copied ? "\ncopied\n" : "\nnot everything was copied\n");
    return copied ? 0 : 1;
} catch (const TQvMessage& message) {
    std::cerr << message.what() << '\n';
    return 1;
}
