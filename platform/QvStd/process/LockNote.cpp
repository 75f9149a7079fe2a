#include "QvStd/process/LockNote.h"

#include <QDateTime>
#include <algorithm>
#include <cassert>
#include <charconv>
#include <unistd.h>

#include "QvStd/Strings.h"

namespace
{
constexpr std::string_view kPrefix = "lock held by owner=";
constexpr std::string_view kProcess = " pid=";
constexpr std::string_view kTime = " time=";
constexpr std::string_view kFree = "lock free";
/// All notes are of one length, filled up with blanks: holders that share a lock may write at the
/// same time, and a short note must replace a long one completely.
constexpr std::size_t kLength = 256;
constexpr std::size_t kMaxOwner = 180;

std::string Padded(std::string note)
{
    assert(note.size() < kLength); // a cut note would not be recognised as one
    note.resize(kLength - 1, ' ');
    return note += '\n';
}
} // namespace

bool QvIsLockNote(std::string_view content)
{
    if (content.size() != kLength || content.find('\n') != content.size() - 1)
        return false;
    if (content.substr(0, kFree.size()) == kFree)
        return content.find_first_not_of(' ', kFree.size()) == content.size() - 1;
    return content.substr(0, kPrefix.size()) == kPrefix &&
           content.find(kProcess) != std::string_view::npos &&
           content.find(kTime) != std::string_view::npos;
}

std::string QvMakeLockNote(const std::string& owner)
{
    std::string name(QvCutUtf8(owner, kMaxOwner));
    std::replace_if(
        name.begin(), name.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    const QString now = QDateTime::currentDateTimeUtc().toString(Qt::ISODate);
    return Padded(std::string(kPrefix)
                      .append(name)
                      .append(kProcess)
                      .append(std::to_string(getpid()))
                      .append(kTime)
                      .append(now.toStdString()));
}

const std::string& QvFreeLockNote()
{
    static const std::string note = Padded(std::string(kFree));
    return note;
}

std::string QvReadLockNote(int descriptor)
{
    char content[kLength + 1];
    const ssize_t length = pread(descriptor, content, sizeof content, 0);
    return std::string(content, length > 0 ? static_cast<std::size_t>(length) : 0);
}

/// From the end: the owner's name may contain the words that follow it.
TQvLockHolder QvReadLockHolder(const std::string& note)
{
    const std::size_t process = note.rfind(kProcess);
    const std::size_t time = note.rfind(kTime);
    if (!QvIsLockNote(note) || process == std::string::npos || time < process)
        return {};
    const std::string number =
        note.substr(process + kProcess.size(), time - process - kProcess.size());
    const std::size_t start = time + kTime.size();
    TQvLockHolder holder;
    std::from_chars(number.data(), number.data() + number.size(), holder.Process);
    holder.Text = note.substr(kPrefix.size(), process - kPrefix.size()) + " (process " + number +
                  ", since " + note.substr(start, note.find_first_of(" \n", start) - start) + ")";
    return holder;
}
