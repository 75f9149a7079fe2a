// What a call throws, as a value to compare.
#pragma once

#include "QvStd/Message.h"

/// The message that `call` throws; one without a text when it throws none.
template <class TCall>
TQvMessage Thrown(TCall&& call)
{
    try {
        call();
    } catch (const TQvMessage& message) {
        return message;
    }
    return TQvMessage("");
}
