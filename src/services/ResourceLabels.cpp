#include "services/ResourceLabels.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <thread>

#include "QvStd/FileChange.h"
#include "QvStd/FileLock.h"
#include "QvStd/Message.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniTree.h"
#include "QvStd/XIniWriter.h"
#include "manager/ResourceManager.h"

namespace
{
constexpr char kSection[] = "resource_label";
/// Writers keep the lock for milliseconds: after this time one is suspended.
constexpr unsigned long kLockTimeoutMs = 10000;

/// The message has the signature and line of the function that checks, so that each checks by
/// itself.
[[noreturn]] void ThrowLogicError(const char* function, int line, const char* expression)
{
    throw TQvMessage("@Internal logic error in %1% (%2%): (%3%)==false.")
        << function << line << expression;
}

/// False unless the id is that of a resource: a folder, or an id that is not valid, has no label.
bool CurrentState(const std::string& resId, TQvResAttrib* attrib)
{
    return ResourceManager.IsReachable(resId) && ResourceManager.GetResourceAttr(resId, attrib) &&
           attrib->Kind == kResResource;
}

bool Matches(const TQvResourceLabel& label, const TQvResAttrib& attrib)
{
    return label.Time == attrib.UpdateTime && label.Size == attrib.Size;
}

var_a<TQvStream*> OpenMetadata(const std::string& resId, qvOpenMode mode)
{
    if (!ResourceManager.IsReachable(resId))
        return {};
    return ResourceManager.OpenResourceMeta(resId, mode, kQvShareAll);
}

bool PutLabel(const var_a<TQvXIniTree*>& tree, const TQvResourceLabel& label)
{
    TQvXIniTreeWriter writer(tree);
    const int section = writer.FindCreateF(kSection, TQvXIniEntry::Kind::Section);
    return writer.OpenSection(section) && label.Save(&writer) && writer.ExitSection();
}

bool Fail(int error, const std::string& resId)
{
    TResourceManager::SetLastFailure(error, resId);
    return false;
}

/// How long ago the time was, in milliseconds; negative for one in the future.
std::int64_t AgeOf(const TQvDateTime& time)
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count() -
           time.Milliseconds();
}

/// A state of a resource that differs from the next one in its time: two changes within one tick of
/// the file system's clock have the same time, so the last change must be older than a tick. A time
/// in the future is not waited for. False when there is no such resource, or it is changed all the
/// time.
bool SettledState(const std::string& resId, TQvResAttrib* attrib)
{
    constexpr std::int64_t kTick = 20;
    constexpr int kMaxWaits = 50;
    for (int i = 0; i < kMaxWaits; ++i) {
        if (!CurrentState(resId, attrib))
            return false;
        const std::int64_t age = AgeOf(attrib->UpdateTime);
        if (age < 0 || age >= kTick)
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(kTick - age));
    }
    return Fail(EBUSY, resId);
}

enum class TComputed
{
    Done,
    Failed,
    Changed ///< while it was read
};

TComputed TryCompute(const std::string& resId, TQvResourceLabel* label, bool computeCRC)
{
    TQvResAttrib attrib;
    if (!SettledState(resId, &attrib))
        return TComputed::Failed;
    label->Time = attrib.UpdateTime;
    const var_a<TQvStream*> stream =
        ResourceManager.OpenResource(resId, kQvOpenRead, kQvShareAll, 0);
    if (!stream || !*stream)
        return TComputed::Failed;
    label->Size = stream->getSize();
    if (computeCRC && label->Size != TQvStream::invalid_value64)
        label->ComputeCRC(stream.get());
    if (stream->getError() != 0) { // the checksum of a part does not count
        Fail(-stream->getError(), resId);
        return TComputed::Failed;
    }
    const bool isSame = CurrentState(resId, &attrib) && Matches(*label, attrib);
    return isSame ? TComputed::Done : TComputed::Changed;
}
} // namespace

bool ComputeResResourceLabel(const std::string& resId, TQvResourceLabel* label, bool computeCRC)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabel(const std::__cxx11::string &, "
                        "TQvResourceLabel *, bool)",
                        __LINE__, "rlabel");
    label->Reset();
    constexpr int kMaxAttempts = 3;
    for (int i = 0; i < kMaxAttempts; ++i) {
        const TComputed outcome = TryCompute(resId, label, computeCRC);
        if (outcome != TComputed::Changed)
            return outcome == TComputed::Done;
    }
    return Fail(EBUSY, resId);
}

bool ComputeResResourceLabelSC1(TQvStream* stream, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabelSC1(TQvStream *, TQvResourceLabel *)",
                        __LINE__, "rlabel");
    label->Reset();
    label->Size = stream->getSize();
    const bool isAtStart = stream->setPosition(0);
    if (isAtStart)
        label->ComputeCRC(stream);
    // The checksum of a part does not count.
    const int error = -stream->getError();
    if (!isAtStart || error != 0 || label->Size == TQvStream::invalid_value64)
        return Fail(error != 0 ? error : EIO, stream->InfoName());
    TResourceManager::SetLastFailure(0, {});
    return true;
}

bool ComputeResResourceLabelSC2(const std::string& resId, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ComputeResResourceLabelSC2(const std::__cxx11::string &, "
                        "TQvResourceLabel *)",
                        __LINE__, "rlabel");
    label->Time = TQvDateTime();
    TQvResAttrib attrib;
    if (!SettledState(resId, &attrib))
        return false;
    label->Time = attrib.UpdateTime;
    return true;
}

bool WeakCheckResResourceLabel(const TQvResourceLabel& label, const std::string& resId)
{
    TQvResAttrib attrib;
    return CurrentState(resId, &attrib) && Matches(label, attrib);
}

bool StrongCheckResResourceLabel(const TQvResourceLabel& label, const std::string& resId,
                                 TQvStream* stream)
{
    TQvResAttrib attrib;
    if (label.Size != stream->getSize() || !CurrentState(resId, &attrib) ||
        label.Time != attrib.UpdateTime || !stream->setPosition(0))
        return false;
    const std::uint64_t crc = ComputePartialCRC(stream);
    if (stream->getError() != 0)
        return Fail(-stream->getError(), resId);
    stream->setPosition(0);
    return label.CRC == crc;
}

const char* MetadataResourceLabelSectionName()
{
    return kSection;
}

bool GetResResourceLabel(const std::string& resId, TQvResourceLabel* label, bool trustGiven)
{
    if (label == nullptr)
        ThrowLogicError("bool GetResResourceLabel(const std::__cxx11::string &, TQvResourceLabel "
                        "*, bool)",
                        __LINE__, "rlabel");
    TQvResAttrib attrib;
    if (!CurrentState(resId, &attrib))
        return false;
    // Saves reading the sidecar for callers that keep their labels.
    if (trustGiven && Matches(*label, attrib))
        return true;
    TQvResourceLabel current;
    if (!ReadResResourceLabel(resId, &current) || !Matches(current, attrib)) {
        if (!ComputeResResourceLabel(resId, &current, true))
            return false;
        try {
            WriteResResourceLabel(resId, current);
        } catch (const std::exception&) {
            // A stored label only saves the next caller the checksum: the label is valid without
            // it.
        }
    }
    *label = current;
    return true;
}

bool ReadResResourceLabel(const std::string& resId, TQvResourceLabel* label)
{
    if (label == nullptr)
        ThrowLogicError("bool ReadResResourceLabel(const std::__cxx11::string &, "
                        "TQvResourceLabel *)",
                        __LINE__, "rlabel");
    const var_a<TQvStream*> stream = OpenMetadata(resId, kQvOpenRead);
    if (!stream)
        return false;
    TQvXIniStreamReader reader(stream);
    if (stream->getError() != 0)
        return Fail(-stream->getError(), resId);
    if (reader.ParseError())
        return Fail(EBADMSG, resId);
    const TQvXIniSection section = reader.EnterSectionS(kSection);
    TQvResourceLabel stored;
    if (section == nullptr || !stored.Load(&reader))
        return false;
    reader.ExitSection(section);
    *label = stored;
    return true;
}

bool WriteResResourceLabel(const std::string& resId, const TQvResourceLabel& label)
{
    // Opening creates a missing sidecar and checks that it may be written. It is closed again,
    // since the new document replaces the file.
    if (!OpenMetadata(resId, kQvOpenReadWrite))
        return false;
    const std::string file = ResourceManager.GetResourceFile(resId, false);
    if (file.empty())
        return TResourceManager::LastFailure().Error == 0
                   ? Fail(ResourceManager.IsResource(resId) ? ENOTSUP : ENOENT, resId)
                   : false;
    const std::string path = file + kSidecarSuffix;
    const TQvFileLock lock(path, kLockTimeoutMs);
    if (!lock)
        return Fail(-lock.getError(), resId);
    var_a<TQvXIniTree*> tree;
    bool isPut = false;
    const TQvFileChange stored = QvChangeFile(path, [&](const std::optional<std::string>& old) {
        tree = QvParseXIniTree(old.value_or(""), nullptr);
        isPut = tree && PutLabel(tree, label);
        if (!isPut)
            return old.value_or("");
        return QvFormatXIniTree(*tree);
    });
    if (!tree) {
        Fail(stored ? EBADMSG : stored.Reading.Error(), resId);
        ThrowLogicError("bool WriteResResourceLabel(const std::__cxx11::string &, const "
                        "TQvResourceLabel &)",
                        __LINE__, "tree");
    }
    if (!isPut)
        return Fail(EINVAL, resId);
    const TQvResult& failed = stored.Reading ? stored.Writing : stored.Reading;
    return stored || Fail(failed.Error(), resId);
}
