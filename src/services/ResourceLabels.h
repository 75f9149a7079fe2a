/// @file
/// Resource labels: size, time and checksum of one state of a resource, kept in its metadata
/// sidecar.
///
/// All functions work on the global ResourceManager and answer failure with false, except that a
/// null label, and metadata that is no X-Ini document where it must be rewritten, throw a
/// TQvMessage
/// ("@Internal logic error in ...").
///
/// A label is computed only when the resource was last modified 20 ms ago or earlier, so that a
/// later change always has another time. Computing waits for that, at most 1 s for a resource that
/// changes continually, and not for a time in the future.
///
/// Thread-safety: as the manager's operations on the resource; writers of labels exclude each
/// other, in one process or in several.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/ResourceLabel.h"
#include "QvStd/Stream.h"

/// The label of the resource as it is now; the checksum only with `computeCRC`. A resource that is
/// changed while it is read is read again; after three times false.
QVSERVICES_API bool ComputeResResourceLabel(const std::string& resId, TQvResourceLabel* label,
                                            bool computeCRC);
/// Size and checksum from an open stream, which is at its end afterwards; the time is 0. False when
/// the stream cannot be set to its start or read to its end; LastFailure has the cause.
QVSERVICES_API bool ComputeResResourceLabelSC1(TQvStream* stream, TQvResourceLabel* label);
/// The time only; size and checksum are left as they are. Together with SC1 it gives a full label
/// for an open stream.
QVSERVICES_API bool ComputeResResourceLabelSC2(const std::string& resId, TQvResourceLabel* label);

/// Whether size and time still match.
QVSERVICES_API bool WeakCheckResResourceLabel(const TQvResourceLabel& label,
                                              const std::string& resId);
/// Whether size, time and checksum still match; the stream is at its start afterwards when the
/// checksum was compared. False with the cause in LastFailure, too, when it cannot be read.
QVSERVICES_API bool StrongCheckResResourceLabel(const TQvResourceLabel& label,
                                                const std::string& resId, TQvStream* stream);

/// The section of the sidecar that contains the label.
QVSERVICES_API const char* MetadataResourceLabelSectionName();

/// The current label: the given one (with `trustGiven`) or the stored one when size and time still
/// match, else a new one, which is stored; a label that cannot be stored is still returned, and
/// LastFailure has the cause. False when there is no such resource or it cannot be read.
QVSERVICES_API bool GetResResourceLabel(const std::string& resId, TQvResourceLabel* label,
                                        bool trustGiven);
/// The stored label; false, `label` unchanged, when there is none; LastFailure has the cause when
/// that could not be found out (EBADMSG for metadata that is no X-Ini document).
QVSERVICES_API bool ReadResResourceLabel(const std::string& resId, TQvResourceLabel* label);
/// Stores the label; other sections and comments of the sidecar stay as they are. The sidecar is
/// replaced as a whole, under its lock (QvStd/FileLock.h), for which this waits up to 10 s. On
/// failure LastFailure has the cause (EBADMSG for metadata that is no X-Ini document).
QVSERVICES_API bool WriteResResourceLabel(const std::string& resId, const TQvResourceLabel& label);
