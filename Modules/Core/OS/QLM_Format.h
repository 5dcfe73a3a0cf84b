#pragma once
// The checked formatter behind every message, log line and text record.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <type_traits>

class QLM_String;

/// One tagged argument of the formatter. Holds text by pointer: the text must outlive the call.
struct QLM_Arg {
    enum class Tag : uint8_t { None, Int, Uint, Float, Char, CString };
    Tag tag = Tag::None;
    union {
        int64_t i;
        uint64_t u;
        double f;
        const char* s;
    };
    QLM_Arg() : i(0) {}
};

inline QLM_Arg QLM_ArgNone() { return {}; }
inline QLM_Arg QLM_ArgInt(int64_t v) { QLM_Arg a; a.tag = QLM_Arg::Tag::Int; a.i = v; return a; }
inline QLM_Arg QLM_ArgUint(uint64_t v) { QLM_Arg a; a.tag = QLM_Arg::Tag::Uint; a.u = v; return a; }
inline QLM_Arg QLM_ArgFloat(double v) { QLM_Arg a; a.tag = QLM_Arg::Tag::Float; a.f = v; return a; }
inline QLM_Arg QLM_ArgChar(char v) { QLM_Arg a; a.tag = QLM_Arg::Tag::Char; a.i = v; return a; }
inline QLM_Arg QLM_ArgCString(const char* v) { QLM_Arg a; a.tag = QLM_Arg::Tag::CString; a.s = v; return a; }
QLM_Arg QLM_ArgString(const QLM_String& v);

/// Makes the variant that fits the C++ type: bool and signed integers, unsigned integers, floats, char, texts.
template <class T> QLM_Arg QLM_MakeArg(const T& v) {
    if constexpr (std::is_same_v<T, char>) return QLM_ArgChar(v);
    else if constexpr (std::is_same_v<T, std::string>) return QLM_ArgCString(v.c_str());
    else if constexpr (std::is_same_v<T, QLM_String>) return QLM_ArgString(v);
    else if constexpr (std::is_convertible_v<T, const char*>) return QLM_ArgCString(v);
    else if constexpr (std::is_enum_v<T>) return QLM_ArgInt(static_cast<int64_t>(v));
    else if constexpr (std::is_floating_point_v<T>) return QLM_ArgFloat(v);
    else if constexpr (std::is_same_v<T, bool> || std::is_signed_v<T>) return QLM_ArgInt(v);
    else return QLM_ArgUint(v);
}

/// Formats `count` variants after a printf format. A directive with a wrong or missing variant writes
/// `errorText` in its place; a null text reads "NULL_STRING", one of 1000 characters or more
/// "ERROR_STRING_TOO_LONG". Length modifiers are skipped. Any thread.
std::string QLM_FormatV(const char* format, const QLM_Arg* args, size_t count, const char* errorText = "[FMT_ERROR]");

/// Formats to a standard string.
template <class... A> std::string QLM_FormatText(const char* format, const A&... args) {
    const QLM_Arg list[sizeof...(A) + 1] = {QLM_MakeArg(args)..., QLM_ArgNone()};
    return QLM_FormatV(format, list, sizeof...(A));
}

/// Formats into `out` (a std::string or a QLM_String, whose limit of 999 characters cuts).
template <class Out, class... A> void QLM_Format(Out& out, const char* format, const A&... args) {
    out = QLM_FormatText(format, args...);
}

/// Writes formatted text to a file with the plain "FMT_ERROR" mark, without the limit of a %s. Any thread.
void QLM_PrintToFileV(FILE* stream, const char* format, const QLM_Arg* args, size_t count);
template <class... A> void QLM_PrintToFile(FILE* stream, const char* format, const A&... args) {
    const QLM_Arg list[sizeof...(A) + 1] = {QLM_MakeArg(args)..., QLM_ArgNone()};
    QLM_PrintToFileV(stream, format, list, sizeof...(A));
}
