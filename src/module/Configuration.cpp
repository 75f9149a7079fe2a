#include "module/Configuration.h"

#include <stdexcept>

#include "QvConfig/Config.h"

TQvConfigData& QvConfiguration()
{
    if (pQvConfigData == nullptr)
        throw std::runtime_error("@QvConfigData is not initialized");
    return *pQvConfigData;
}
