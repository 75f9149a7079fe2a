// New content for a resource, whole or not at all. Everything that cannot be done throws a
// TFailure, or TQvUserBreak when the user cancelled it.
#pragma once

#include <string>
#include <string_view>

#include <QvServices/QvServices.h>
#include <QvStd/NewFile.h>

/// Nothing of the resource changes before FinishWriting.
/// With `onlyNew` a resource that is there, or appears meanwhile, is left alone.
TQvNewFile StartWriting(const TResourceManager& tree, const std::string& id, bool onlyNew = false);
void Write(TQvNewFile& file, std::string_view bytes, const std::string& id);
/// Syncs the content and gives it the name of the resource. False when `onlyNew` forbids that.
bool FinishWriting(TQvNewFile& file, const std::string& id);
