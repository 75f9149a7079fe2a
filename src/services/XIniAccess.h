/// @file
/// X-Ini readers and writers over resources. Each keeps its resource open as long as it lives.
///
/// Thread-safety: one reader or writer belongs to one thread at a time.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/Progress.h"
#include "QvStd/Var.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"

/// Empty when the resource does not open. A malformed document shows as the reader's ParseError.
QVSERVICES_API var_a<TQvXIniStreamReader*> GetResXIniReader(const std::string& resId,
                                                            TQvProgressHandler* progress);
/// Throws the manager's TQvMessage when the resource does not open.
QVSERVICES_API var_a<TQvXIniStreamReader*> GetResXIniReaderE(const std::string& resId,
                                                             TQvProgressHandler* progress);

/// Creates or truncates the resource at once; the document is written when the writer is committed
/// or destroyed. Empty when it does not open.
QVSERVICES_API var_a<TQvXIniStreamWriter*> GetResXIniWriter(const std::string& resId);
/// As GetResXIniWriter; throws the manager's TQvMessage when the resource does not open.
QVSERVICES_API var_a<TQvXIniStreamWriter*> GetResXIniWriterE(const std::string& resId);
