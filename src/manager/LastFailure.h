// The record of TResourceManager::LastFailure, one for each thread.
#pragma once

#include "resid/Failure.h"

/// Records the result of an operation; whether it is done.
bool QvReport(const TQvResult& result);
/// The same for a query, whose "nothing" is an answer and no failure.
bool QvReportAnswer(const TQvResult& result);
/// After a copy: logs and records that the sidecar failed, so that the target lacks its metadata.
/// Does nothing when the sidecar is done.
void QvReportSidecar(const TQvResult& sidecar, const std::string& src, const std::string& dst);
