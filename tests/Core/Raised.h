#pragma once
// What a call raises, as text.

#include "Core/Logging/QLM_RaiseError.h"

#include <string>

/// The text of the QLM_Exception that `call` throws; "nothing raised" when it returns.
template <class Call> std::string Raised(Call&& call) {
    try {
        call();
    } catch (const QLM_Exception& exception) {
        return exception.what();
    }
    return "nothing raised";
}
