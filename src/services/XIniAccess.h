/// @file
/// X-Ini readers and writers over resources. Each keeps its resource open until it is destroyed.
///
///     const auto reader = GetResXIniReaderE("/Data/settings.x-ini", nullptr);
///     const auto color = reader->Read(reader->FindF("color"), std::string("red"));
///
/// The functions without E throw only for an id that is not valid or belongs to no mount.
///
/// Thread-safety: one reader or writer belongs to one thread at a time.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/Progress.h"
#include "QvStd/Var.h"
#include "QvStd/XIniReader.h"
#include "QvStd/XIniWriter.h"

/// Reads the document of a resource. Empty when the resource does not open (LastFailure). With a
/// malformed document ParseError of the reader is true. `progress` may be null; a cancelling user
/// shows as a thrown TQvUserBreak.
QVSERVICES_API var_a<TQvXIniStreamReader*> GetResXIniReader(const std::string& resId,
                                                            TQvProgressHandler* progress);
/// As GetResXIniReader; throws the manager's TQvMessage when the resource does not open.
QVSERVICES_API var_a<TQvXIniStreamReader*> GetResXIniReaderE(const std::string& resId,
                                                             TQvProgressHandler* progress);

/// Creates or truncates the resource at once; the document is written when the writer is committed
/// or destroyed. Only CommitE reports failures of writing, so call it. Empty when the resource does
/// not open (LastFailure).
QVSERVICES_API var_a<TQvXIniStreamWriter*> GetResXIniWriter(const std::string& resId);
/// As GetResXIniWriter; throws the manager's TQvMessage when the resource does not open.
QVSERVICES_API var_a<TQvXIniStreamWriter*> GetResXIniWriterE(const std::string& resId);
