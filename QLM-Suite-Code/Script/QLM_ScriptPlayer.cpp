#include "Script/QLM_ScriptPlayer.h"

#include "Core/Logging/QLM_Logger.h"
#include "Core/OS/QLM_Clock.h"
#include "Core/OS/QLM_Files.h"
#include "Core/OS/QLM_OS.h"
#include "Core/OS/String_Functions.h"
#include "Engine/QLM_Engine.h"
#include "Engine/QLM_Events.h"
#include "Script/QLM_ScriptState.h"

#include <algorithm>
#include <exception>
#include <filesystem>

namespace {

constexpr int MaximumPasses = 1000;
constexpr size_t MaximumLine = 100000;

const QLM_ScriptTable& Table() {
    static const QLM_ScriptTable table = [] {
        QLM_ScriptTable t;
        QLM_AddViewStatements(t);
        QLM_AddInputStatements(t);
        QLM_AddItemStatements(t);
        QLM_AddMeshStatements(t);
        QLM_AddSelectionStatements(t);
        QLM_AddGroupStatements(t);
        QLM_AddMorphStatements(t);
        QLM_AddLayerStatements(t);
        QLM_AddReportStatement(t);
        return t;
    }();
    return table;
}

std::string Names() {
    std::string names = "time, fails, expect, answer";
    for (const auto& [name, statement] : Table()) names += ", " + name;
    return names;
}

/// `expect message TEXT`: looks through what was said since the last `expect`.
bool ExpectMessage(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    if (words.size() != 3 || words[1] != "message") {
        error = "expect takes: expect message TEXT";
        return false;
    }
    const auto& recorded = QLM_OS::Get().recorded;
    bool found = false;
    for (size_t i = state.messagesSeen; i < recorded.size(); ++i)
        found = found || recorded[i].text.find(words[2]) != std::string::npos;
    state.messagesSeen = recorded.size();
    if (!found) error = "no message holds \"" + words[2] + "\"";
    return found;
}

bool QueueAnswer(const QLM_ScriptWords& words, std::string& error) {
    if (words.size() != 2) {
        error = "answer takes one value: yes, ok, no, cancel or a path";
        return false;
    }
    QLM_OS::Get().queuedAnswers.push_back(words[1]);
    return true;
}

/// A table statement with its word count checked; a question that nobody answered fails it.
bool RunTableStatement(QLM_ScriptState& state, const QLM_ScriptWords& words, std::string& error) {
    const auto found = Table().find(words[0]);
    if (found == Table().end()) {
        error = "unknown statement \"" + words[0] + "\"; there are: " + Names();
        return false;
    }
    const size_t count = words.size() - 1;
    if (count < found->second.minimumWords || count > found->second.maximumWords) {
        error = "\"" + words[0] + "\" takes " + std::to_string(found->second.minimumWords) +
                (found->second.maximumWords == found->second.minimumWords
                     ? ""
                     : " to " + std::to_string(found->second.maximumWords)) +
                " words, not " +
                std::to_string(count);
        return false;
    }
    QLM_OS& os = QLM_OS::Get();
    const int unansweredBefore = os.unansweredQuestions;
    const bool succeeded = found->second.run(state, words, error) && state.Settle(error);
    if (os.unansweredQuestions != unansweredBefore) {
        std::string question;
        for (const auto& message : os.recorded)
            if (message.kind == QLM_RecordedMessage::Kind::Question) question = message.text;
        error = "a question came without an answer: " + question;
        return false;
    }
    return succeeded;
}

} // namespace

std::string QLM_ScriptState::ReadPath(const std::string& word) const {
    return !word.empty() && word[0] == '/' ? word : scriptFolder + word;
}
std::string QLM_ScriptState::WritePath(const std::string& word) const {
    return !word.empty() && word[0] == '/' ? word : outFolder + word;
}

bool QLM_ScriptState::Run(const QLM_ScriptWords& words, std::string& error) {
    if (words[0] == "answer") return QueueAnswer(words, error);
    if (words[0] == "expect") return ExpectMessage(*this, words, error);
    if (words[0] == "fails" || words[0] == "time") {
        const size_t skip = words[0] == "time" ? 2 : 1;
        if (words.size() <= skip) {
            error = words[0] == "time" ? "time takes a label and a statement" : "fails takes a statement";
            return false;
        }
        const QLM_ScriptWords inner(words.begin() + static_cast<long>(skip), words.end());
        if (words[0] == "fails") {
            std::string reason;
            if (Run(inner, reason)) {
                error = "\"" + inner[0] + "\" did not fail";
                return false;
            }
            std::fprintf(stderr, "message: %s\n", reason.c_str());
            return true;
        }
        const uint64_t start = QLM_Clock::RealNanoseconds();
        if (!Run(inner, error)) return false;
        const double seconds = static_cast<double>(QLM_Clock::RealNanoseconds() - start) * 1e-9;
        std::fprintf(reports, "{\"time\": \"%s\", \"seconds\": %.6f}\n", words[1].c_str(), seconds);
        return true;
    }
    const bool succeeded = RunTableStatement(*this, words, error);
    QLM_OS::Get().queuedAnswers.clear();
    return succeeded;
}

bool QLM_ScriptState::Settle(std::string& error) {
    QLM_Engine* engine = QLM_GetEngine();
    if (QLM_OS::Get().mouseButtonsDown > 0) {
        engine->WaitForBackgroundWork();
        return true;
    }
    std::string what;
    for (int pass = 0;; ++pass) {
        if (pass == MaximumPasses) {
            error =
                "the program does not come to rest after " + std::to_string(MaximumPasses) + " idle passes: " + what;
            return false;
        }
        engine->WaitForBackgroundWork();
        QLM_Clock::Step(1.0 / 60.0);
        shell.idlePass();
        if (!engine->IsWorkPending(what)) break;
    }
    shell.drawFrame();
    return true;
}

QLM_ScriptPlayer::QLM_ScriptPlayer(QLM_ScriptShell shell, std::string outFolder, FILE* reportStream)
    : state(new QLM_ScriptState) {
    state->shell = std::move(shell);
    state->outFolder = QLM_NormalizeFolder(outFolder);
    state->reports = reportStream;
}

QLM_ScriptPlayer::~QLM_ScriptPlayer() { delete state; }

int QLM_ScriptPlayer::Play(const std::string& path) {
    QLM_TRACE(1);
    if (!QLM_FileExists(path)) {
        std::fprintf(stderr, "%s: there is no such script file\n", path.c_str());
        return 1;
    }
    FILE* file = QLM_fopen(path, "rb");
    if (!file) {
        std::fprintf(stderr, "%s: the script can't be opened\n", path.c_str());
        return 1;
    }
    std::error_code failure;
    state->scriptFolder = QLM_FolderOf(std::filesystem::absolute(path, failure).string());
    QLM_Clock::UseSteppedTime();
    int status = 0, number = 0;
    std::string line, error;
    // The shell's own start counts as the first thing to settle.
    if (!state->Settle(error)) {
        std::fprintf(stderr, "%s: %s\n", path.c_str(), error.c_str());
        status = 1;
    }
    while (status == 0 && QLM_ReadLine(line, MaximumLine, file)) {
        ++number;
        QLM_ScriptWords words;
        bool succeeded = QLM_SplitScriptLine(line, words, error);
        if (succeeded && words.empty()) continue;
        try {
            succeeded = succeeded && state->Run(words, error);
        } catch (const std::exception& exception) {
            succeeded = false;
            error = exception.what();
        }
        std::fflush(state->reports);
        if (succeeded) continue;
        std::replace(error.begin(), error.end(), '\n', ' '); // one line a failure
        std::fprintf(stderr, "%s:%d: %s\n", path.c_str(), number, error.c_str());
        status = 1;
    }
    QLM_fclose(file);
    return status;
}
