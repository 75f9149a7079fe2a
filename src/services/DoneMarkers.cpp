#include "services/DoneMarkers.h"
