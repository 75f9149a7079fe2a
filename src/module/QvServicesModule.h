// Start and stop of the module.
//
// A host calls Init_QvServices(), then ResourceManager.Init(), uses the library, and calls
// Deinit_QvServices() at the end. Several hosts in one process may do so in pairs: the first starts
// the configuration, the last stops it.
//
// Thread-safety: call these from one thread while no other uses the library.
#pragma once

#include "QvServicesExport.h"

QVSERVICES_API void Init_QvServices();
/// A call without a matching Init_QvServices does nothing.
QVSERVICES_API void Deinit_QvServices();
