// The record of TResourceManager::LastFailure, one for each thread.
#pragma once

#include "resid/Failure.h"

/// Records how an operation ended and answers whether it is done.
bool QvReport(const TQvResult& result);
/// The same for a query, to which "nothing there" is an answer.
bool QvReportAnswer(const TQvResult& result);
/// A copy whose sidecar failed is a resource without its metadata: logs and records that. Nothing
/// happens when the sidecar is done.
void QvReportSidecar(const TQvResult& sidecar, const std::string& src, const std::string& dst);
