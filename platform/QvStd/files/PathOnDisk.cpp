// The operations of a path that query or change the disk.
#include <cerrno>

#include "QvStd/Files.h"
#include "QvStd/Path.h"

namespace
{
TQvFileInfo LookAt(const std::string& path)
{
    TQvFileInfo info;
    // Without a result: these queries have no failure, and zeros are their answer.
    QvGetFileInfo(path, &info);
    return info;
}
} // namespace

bool TQvPath::exists() const
{
    return QvFileDirExists(m_text, nullptr);
}

bool TQvPath::isFolder() const
{
    return QvDirExists(m_text);
}

bool TQvPath::isFile() const
{
    return QvFileExists(m_text);
}

std::uint64_t TQvPath::fileSize() const
{
    return QvGetFileSize(m_text);
}

TQvDateTime TQvPath::updateTime() const
{
    return LookAt(m_text).UpdateTime;
}

TQvDateTime TQvPath::creationTime() const
{
    return LookAt(m_text).CreationTime;
}

bool TQvPath::makePath(bool withParents) const
{
    if (withParents)
        return QvForceDirectories(m_text);
    return QvCreateDirectory(m_text) || (errno == EEXIST && QvDirExists(m_text));
}

bool TQvPath::rmFile() const
{
    return QvDeleteFile(m_text) || errno == ENOENT;
}
