#include "resid/Failure.h"

std::string TQvFailure::text() const
{
    return Error == 0 ? std::string() : Id + ": " + QvErrorText(Error);
}
