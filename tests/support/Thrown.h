// What a call throws, as a value to compare.
#pragma once

#include <stdexcept>
#include <string>

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

/// The text, as thrown, of the message or std::runtime_error that `call` throws; "" for none.
template <class TCall>
std::string ThrownText(TCall&& call)
{
    try {
        return Thrown(call).text();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}
