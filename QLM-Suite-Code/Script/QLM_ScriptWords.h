#pragma once
// Words and numbers of script lines.

#include <string>
#include <vector>

using QLM_ScriptWords = std::vector<std::string>;

/// Splits at blanks and tabs; "..." keeps blanks together with \" and \\ as escapes; '#' begins a comment.
/// False with a reason for an open quote or an unknown escape.
bool QLM_SplitScriptLine(const std::string& line, QLM_ScriptWords& words, std::string& error);
/// The whole word as a number that a float can hold; false otherwise.
bool QLM_ParseNumber(const std::string& word, double& out);
bool QLM_ParseInteger(const std::string& word, long long minimum, long long maximum, long long& out);
/// Splits "NAME#2" into the name and the occurrence (1 without one).
void QLM_SplitOccurrence(const std::string& word, std::string& name, int& occurrence);
