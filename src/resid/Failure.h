/// @file
/// Why an operation on resources failed.
///
///     if (!ResourceManager.CopyResource("/Data/a", "/Backup/a", nullptr))
///         std::cerr << TResourceManager::LastFailure().text() << '\n';
///
/// Thread-safety: plain values.
#pragma once

#include <string>

#include "QvServicesExport.h"
#include "QvStd/Result.h"

/// The cause of a failure, and the id that it is about.
struct QVSERVICES_API TQvFailure
{
    int Error = 0;  ///< an errno; 0 for no failure
    std::string Id; ///< the resource or folder that it is about
    /// The content was copied; only the metadata of the resource failed.
    bool OfMetadata = false;

    /// `/A/secret: Permission denied`; "" for no failure.
    std::string text() const;
};

/// Whether a resource or folder exists, and when that could not be found out, why. Converts to the
/// existence code.
struct TQvExistence
{
    unsigned Kind = 0; ///< kResNothing, kResResource or kResFolder
    TQvResult Result;  ///< done, nothing or failed

    /// Converts to the existence code.
    operator unsigned() const { return Kind; } // NOLINT(google-explicit-constructor)
};

/// How a resource and its sidecar were copied or moved.
struct TQvTransfer
{
    TQvResult Content; ///< of the resource itself
    TQvResult Sidecar; ///< done, too, when the source has none
};
