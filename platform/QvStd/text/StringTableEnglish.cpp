// The English texts of the base library.
#include "QvStd/StringTable.h"

namespace
{
constexpr TQvStringTableEntry kEnglish[] = {
    {"Err_Internal_msg", "Internal error: %1%"},
    {"Err_OpenFile_name", "\"%1%\" cannot be opened."},
    {"Err_OpenReadFile_name", "\"%1%\" cannot be opened for reading."},
    {"Err_OpenWriteFile_name", "\"%1%\" cannot be opened for writing."},
    {"Err_CreateFile_name", "\"%1%\" cannot be created."},
    {"Err_ReadFile_name", "\"%1%\" cannot be read: %2%."},
    {"Err_WriteFile_name", "\"%1%\" cannot be written: %2%."},
    {"Err_CreateFolder_name", "The folder \"%1%\" cannot be created: %2%."},
    {"Err_ReadFolder_name", "The folder \"%1%\" cannot be read: %2%."},
    {"Err_Lock_name", "\"%1%\" cannot be locked: %2%."},
    {"Err_Locked_name", "\"%1%\" is locked by another process%2%."},
    {"Err_NoHomeFolder", "There is no home folder, and so no registry of the user."},
    {"Err_NoURLHandler_url", "There is no handler for the scheme of \"%1%\"."},
    {"Err_XIniParse_name", "\"%1%\" is not well formed: %2%"},
    {"Err_XIniNoSection_name", "\"%1%\" has no section \"%2%\"."},
    {"Err_XIniNoKey_name", "\"%1%\" has no key \"%2%\"."},
    {"Err_XIniBadValue_name", "\"%1%\": the value of \"%2%\" cannot be used."},
    {"Err_XIniWrite_name", "\"%1%\" cannot be written: %2%"},
    {"Err_ConfigString_number", "The configuration has no string number %1%."},
    {"Err_UserBreak", "The operation was cancelled."},
};

const bool kRegistered = [] {
    QvRegisterStringTable("QvStd", kEnglish, sizeof kEnglish / sizeof kEnglish[0]);
    return true;
}();
} // namespace
