// The English texts of this module.
//
// Thread-safety: call it once.
#pragma once

#include <string>

void RegisterEnglishTexts(const std::string& module);
