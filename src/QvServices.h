/// @file
/// Every public declaration of the library.
///
///     #include <QvServices/QvServices.h>
///
///     Init_QvServices();
///     ResourceManager.Init();
///     const auto stream = ResourceManager.OpenResourceE("/Data/a", kQvOpenRead, kQvShareAll, 0);
///     ...
///     Deinit_QvServices();
#pragma once

#include "manager/ResourceManager.h"
#include "module/QvServicesModule.h"
#include "profiles/ResourceProfile.h"
#include "profiles/VarFolderLock.h"
#include "resid/ResAttrib.h"
#include "resid/ResId.h"
#include "services/Backup.h"
#include "services/DoneMarkers.h"
#include "services/ResourceLabels.h"
#include "services/XIniAccess.h"
#include "setup/CPUtils.h"
#include "storage/ResStream.h"
