// Labels of resources, with a progress bar and user break.
#pragma once

#include <string>

#include <QvServices/QvServices.h>

#include "Commands.h"

/// The stored label when size and time still match, else a new one, which is stored: what
/// GetResResourceLabel answers, which shows no progress and cannot be cancelled. One that cannot be
/// stored is reported. Throws TFailure when the resource cannot be read.
TQvResourceLabel CurrentLabel(THost& host, const std::string& id);

/// Whether size, time and content are those of the label. Throws TFailure when the resource cannot
/// be read.
bool HasSameContent(THost& host, const std::string& id, const TQvResourceLabel& label);

/// The parse error of the metadata; "" when there is none, or it is well formed.
std::string MetadataDamage(const TResourceManager& tree, const std::string& id);
