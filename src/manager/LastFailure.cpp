#include "manager/LastFailure.h"

#include "QvStd/Log.h"
#include "QvStd/Message.h"
#include "manager/ResourceManager.h"

namespace
{
/// One for each thread, so that operations on several threads keep their own causes.
TQvFailure& Record()
{
    thread_local TQvFailure failure;
    return failure;
}

/// Success is recorded, too: an earlier failure must not count as that of this operation.
void Set(int error, const std::string& id)
{
    TQvFailure& record = Record();
    record.Error = error;
    record.OfMetadata = false;
    // The id is kept out of a success, so that the frequent case copies no text.
    if (error == 0)
        record.Id.clear();
    else
        record.Id = id;
}
} // namespace

const TQvFailure& TResourceManager::LastFailure()
{
    return Record();
}

void TResourceManager::SetLastFailure(int error, const std::string& id)
{
    Set(error, id);
}

bool QvReport(const TQvResult& result)
{
    Set(result.Error(), result.Name());
    return result;
}

bool QvReportAnswer(const TQvResult& result)
{
    QvReport(result.IsNothing() ? TQvResult::Done() : result);
    return result;
}

/// Called after the content was reported as done, so that this failure replaces a success.
void QvReportSidecar(const TQvResult& sidecar, const std::string& src, const std::string& dst)
{
    if (sidecar)
        return;
    // The result of the copy may not show this failure, so the log does.
    constexpr int kLogLevel = 5;
    QvLogWriteWarning(TQvMessage("@The metadata of %1% could not be copied to %2%: %3%")
                          << src << dst << QvErrorText(sidecar.Error()),
                      kLogLevel, 0);
    QvReport(sidecar);
    Record().OfMetadata = true;
}
