// Any bytes as lines of a script: each splits into words or says why not.

#include "Script/QLM_ScriptWords.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    QLM_ScriptWords words;
    std::string error;
    if (!QLM_SplitScriptLine(std::string(reinterpret_cast<const char*>(data), size), words, error) && error.empty())
        abort();
    for (const std::string& word : words) {
        double number;
        long long whole;
        QLM_ParseNumber(word, number);
        QLM_ParseInteger(word, -5, 5, whole);
    }
    return 0;
}
