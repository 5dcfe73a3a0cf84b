#pragma once
// The fatal road of a broken invariant.

#include "Core/OS/QLM_Format.h"

#include <stdexcept>

/// What QLM_RaiseError throws; what() is the formatted text.
class QLM_Exception : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Logs "FATAL" with the text and throws QLM_Exception. Any thread.
[[noreturn]] void QLM_RaiseErrorText(const std::string& text);

/// Formats, logs and throws; for programming faults and broken invariants only. Any thread.
template <class... A> [[noreturn]] void QLM_RaiseError(const char* format, const A&... args) {
    QLM_RaiseErrorText(QLM_FormatText(format, args...));
}
