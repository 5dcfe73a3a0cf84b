#pragma once
// Small string helpers of every reader and writer. Any thread.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

/// Reads bytes until CR, LF, end of file or size - 1 bytes; CRLF and LFCR count as one line end.
/// A line "DATA_BEGIN" ends with its LF alone: what follows is binary. Always terminates `buffer`. False at the end
/// of the file with nothing read.
bool QLM_ReadLine(char* buffer, size_t size, FILE* stream);
/// The same into a string, of at most `maximum` - 1 characters.
bool QLM_ReadLine(std::string& line, size_t maximum, FILE* stream);

/// Removes blanks, tabs, line feeds and carriage returns at both ends.
std::string QLM_Trim(std::string_view text);
/// First blank-delimited token and the rest, both trimmed.
void QLM_SplitKeyValue(std::string_view line, std::string& key, std::string& value);
/// Compares bytes without regard to ASCII case for the shorter length, then by length; 0 for equal.
int QLM_CompareNoCase(std::string_view a, std::string_view b);
/// What follows the last ">", or the text itself.
std::string QLM_KeyOfExpression(std::string_view text);
inline void QLM_KeyOfExpression(std::string_view text, std::string& key, std::string& value) { QLM_SplitKeyValue(text, key, value); }
std::string QLM_ToLower(std::string_view text); ///< ASCII only

/// `base`, or "base (n)" with n one above the greatest in use. A file `extension` (without dot) stays at the end.
std::string QLM_MakeUniqueName(const std::vector<std::string>& taken, const std::string& base, const std::string& extension = {});

/// Base64 in the published alphabet, with padding.
std::string QLM_Base64Encode(const void* data, size_t size);
/// Decodes; false at a character outside the alphabet.
bool QLM_Base64Decode(std::string_view text, std::vector<uint8_t>& out);
