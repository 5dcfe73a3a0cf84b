#include "Script/QLM_ScriptWords.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

bool QLM_SplitScriptLine(const std::string& line, QLM_ScriptWords& words, std::string& error) {
    words.clear();
    size_t i = 0;
    while (i < line.size()) {
        const char c = line[i];
        if (c == ' ' || c == '\t' || c == '\r') {
            ++i;
            continue;
        }
        if (c == '#') return true;
        std::string word;
        bool quoted = false;
        for (; i < line.size() && (quoted || (line[i] != ' ' && line[i] != '\t' && line[i] != '\r')); ++i) {
            if (line[i] == '"') {
                quoted = !quoted;
            } else if (quoted && line[i] == '\\') {
                if (i + 1 >= line.size() || (line[i + 1] != '"' && line[i + 1] != '\\')) {
                    error = "a backslash inside quotes must be followed by \" or \\";
                    return false;
                }
                word += line[++i];
            } else {
                word += line[i];
            }
        }
        if (quoted) {
            error = "a quote is not closed";
            return false;
        }
        words.push_back(word);
    }
    return true;
}

bool QLM_ParseNumber(const std::string& word, double& out) {
    if (word.empty() || word.front() == ' ') return false;
    char* end = nullptr;
    const double value = std::strtod(word.c_str(), &end);
    if (*end != 0 || !(std::fabs(value) <= std::numeric_limits<float>::max())) return false;
    out = value;
    return true;
}

bool QLM_ParseInteger(const std::string& word, long long minimum, long long maximum, long long& out) {
    if (word.empty() || word.front() == ' ') return false;
    char* end = nullptr;
    errno = 0;
    const long long value = std::strtoll(word.c_str(), &end, 10);
    if (*end != 0 || errno != 0 || value < minimum || value > maximum) return false;
    out = value;
    return true;
}

void QLM_SplitOccurrence(const std::string& word, std::string& name, int& occurrence) {
    name = word;
    occurrence = 1;
    const size_t hash = word.rfind('#');
    long long number;
    if (hash == std::string::npos || !QLM_ParseInteger(word.substr(hash + 1), 1, 1000000, number)) return;
    name = word.substr(0, hash);
    occurrence = static_cast<int>(number);
}
