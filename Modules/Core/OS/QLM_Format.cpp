#include "Core/OS/QLM_Format.h"

#include "Core/OS/QLM_String.h"

#include <algorithm>
#include <cctype>
#include <cstring>

namespace {

constexpr int LongestField = 999; // width or precision; more is a mistake in the format
constexpr uintptr_t LowestAddress = 4096;

/// A parsed directive: its flags, width and precision as text, and its conversion (0 when the format ends inside).
struct Directive {
    std::string head;
    char conversion = 0;
};

void TakeNumber(const char*& at, std::string& head) {
    if (!std::isdigit(static_cast<unsigned char>(*at))) return;
    int number = 0;
    for (; std::isdigit(static_cast<unsigned char>(*at)); ++at) number = std::min(number * 10 + (*at - '0'), LongestField);
    head += std::to_string(number);
}

/// Parses behind the percent sign and moves `at` behind the conversion.
Directive ParseDirective(const char*& at) {
    Directive directive{"%", 0};
    while (*at && std::strchr("-+ #0", *at)) directive.head += *at++;
    TakeNumber(at, directive.head);
    if (*at == '.') {
        directive.head += *at++;
        TakeNumber(at, directive.head);
    }
    // Length modifiers say nothing: the variant knows its own size.
    while (*at && std::strchr("hlLqjzt", *at)) ++at;
    if (*at == 'I') {
        ++at;
        if (std::strncmp(at, "64", 2) == 0 || std::strncmp(at, "32", 2) == 0) at += 2;
    }
    if (*at) directive.conversion = *at++;
    return directive;
}

template <class Value> void Append(std::string& out, const std::string& format, Value value) {
    char buffer[256];
    const int length = std::snprintf(buffer, sizeof buffer, format.c_str(), value);
    if (length < static_cast<int>(sizeof buffer)) {
        out.append(buffer, static_cast<size_t>(std::max(length, 0)));
        return;
    }
    const size_t start = out.size();
    out.resize(start + static_cast<size_t>(length) + 1);
    std::snprintf(out.data() + start, static_cast<size_t>(length) + 1, format.c_str(), value);
    out.pop_back();
}

const char* PrintableText(const char* text, bool limited) {
    if (!text) return "NULL_STRING";
    if (reinterpret_cast<uintptr_t>(text) < LowestAddress) return "ERROR_INVALID_POINTER";
    if (limited && strnlen(text, QLM_String::Capacity) >= QLM_String::Capacity) return "ERROR_STRING_TOO_LONG";
    return text;
}

/// Appends the variant; false when its tag doesn't fit the conversion.
bool AppendArgument(std::string& out, const Directive& directive, const QLM_Arg& argument, bool limited) {
    using Tag = QLM_Arg::Tag;
    const char conversion = directive.conversion;
    if (conversion == 0) return false;
    const std::string wide = directive.head + "ll" + conversion;
    const std::string plain = directive.head + conversion;
    if (std::strchr("di", conversion) && argument.tag == Tag::Int)
        Append(out, wide, static_cast<long long>(argument.i));
    else if (std::strchr("uxX", conversion) && argument.tag == Tag::Uint)
        Append(out, wide, static_cast<unsigned long long>(argument.u));
    else if (std::strchr("fFeEgG", conversion) && argument.tag == Tag::Float) Append(out, plain, argument.f);
    else if (conversion == 'c' && (argument.tag == Tag::Char || argument.tag == Tag::Int))
        Append(out, plain, static_cast<int>(argument.i));
    else if (conversion == 's' && argument.tag == Tag::CString) Append(out, plain, PrintableText(argument.s, limited));
    else return false;
    return true;
}

std::string Format(const char* format, const QLM_Arg* args, size_t count, const char* errorText, bool limited) {
    std::string out;
    size_t next = 0;
    for (const char* at = format ? format : ""; *at;) {
        const size_t literal = std::strcspn(at, "%");
        out.append(at, literal);
        at += literal;
        if (!*at) break;
        ++at;
        if (*at == '%') {
            out += *at++;
            continue;
        }
        const Directive directive = ParseDirective(at);
        const bool has = next < count;
        if (!has || !AppendArgument(out, directive, args[next], limited)) out += errorText;
        if (has) ++next;
    }
    return out;
}

} // namespace

QLM_Arg QLM_ArgString(const QLM_String& v) { return QLM_ArgCString(v.c_str()); }

std::string QLM_FormatV(const char* format, const QLM_Arg* args, size_t count, const char* errorText) {
    return Format(format, args, count, errorText, true);
}

void QLM_PrintToFileV(FILE* stream, const char* format, const QLM_Arg* args, size_t count) {
    const std::string text = Format(format, args, count, "FMT_ERROR", false);
    std::fwrite(text.data(), 1, text.size(), stream);
}
