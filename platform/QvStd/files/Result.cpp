#include "QvStd/Result.h"

#include <cassert>
#include <cerrno>
#include <system_error>

TQvResult TQvResult::Nothing(std::string name)
{
    return {ENOENT, true, std::move(name)};
}

TQvResult TQvResult::Failed(int error, std::string name)
{
    assert(error != 0);
    return {error, false, std::move(name)};
}

TQvResult TQvResult::FromErrno(std::string name)
{
    return errno == ENOENT ? Nothing(std::move(name)) : Failed(errno, std::move(name));
}

TQvResult TQvResult::Named(std::string name) const
{
    return {m_error, m_isNothing, std::move(name)};
}

std::string QvErrorText(int error)
{
    return std::generic_category().message(error);
}
