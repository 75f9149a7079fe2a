// Access to the configuration object, which hosts may have stopped meanwhile.
//
// Thread-safety: as QvConfig.
#pragma once

class TQvConfigData;

/// The configuration object. Throws std::runtime_error "@QvConfigData is not initialized" when
/// there is none.
TQvConfigData& QvConfiguration();
