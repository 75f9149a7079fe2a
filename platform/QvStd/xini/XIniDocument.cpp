// Documents in streams and files.
#include <algorithm>
#include <cerrno>

#include "QvStd/FileStream.h"
#include "QvStd/Files.h"
#include "QvStd/XIniTree.h"
#include "QvStd/xini/XIniFormat.h"

namespace
{
/// Of a stream that grows meanwhile reads the first part, of one that is truncated what is left.
bool ReadAll(TQvStream& stream, TQvProgressHandler* progress, std::string* text)
{
    // Small enough that a user can cancel while a slow disk is read.
    constexpr std::uint64_t kBlockSize = std::uint64_t{1} << 20;
    const std::uint64_t size = stream.getSize();
    if (size == TQvStream::invalid_value64 || !stream.setPosition(0))
        return false;
    text->resize(static_cast<std::size_t>(size));
    std::size_t done = 0;
    while (done < size) {
        const auto wanted = static_cast<std::size_t>(std::min(kBlockSize, size - done));
        const std::size_t got = stream.Read(text->data() + done, wanted);
        if (got == TQvStream::invalid_value)
            return false;
        if (got == 0)
            break;
        done += got;
        QvPollProgress(progress);
    }
    text->resize(done);
    return true;
}
} // namespace

var_a<TQvXIniTree*> XIniReadDocument(TQvStream& stream, TQvProgressHandler* progress,
                                     TXIniFailure* failure)
{
    std::string text;
    if (ReadAll(stream, progress, &text)) {
        failure->Key = "Err_XIniParse_name";
        return QvParseXIniTree(text, &failure->Reason);
    }
    failure->Key = "Err_ReadFile_name";
    failure->Reason = QvErrorText(-stream.getError());
    return nullptr;
}

var_a<TQvXIniTree*> ReadQvXIniTree(TQvStream* stream)
{
    if (stream == nullptr || !*stream)
        return nullptr;
    // This form has no error text: its callers only need to know that there is no document.
    TXIniFailure ignored;
    return XIniReadDocument(*stream, nullptr, &ignored);
}

var_a<TQvXIniTree*> ReadQvXIniTree(const TQvPath& path)
{
    TQvFileStream stream(path, kQvOpenRead, kQvShareAll);
    return ReadQvXIniTree(&stream);
}

bool WriteQvXIniTree(TQvStream* stream, const TQvXIniTree& tree)
{
    if (stream == nullptr || !*stream)
        return false;
    const std::string text = QvFormatXIniTree(tree);
    return stream->Write(text.data(), text.size()) == text.size();
}

void WriteQvXIniTreeE(const TQvPath& path, const TQvXIniTree& tree)
{
    if (QvWriteFileAtomically(path.toSysStr(), QvFormatXIniTree(tree)))
        return;
    const std::string reason = QvErrorText(errno) + ".";
    throw QvMsg_helper("Err_XIniWrite_name") << path.toSysStr() << reason;
}
