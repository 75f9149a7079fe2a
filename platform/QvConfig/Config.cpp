#include "QvConfig/Config.h"
