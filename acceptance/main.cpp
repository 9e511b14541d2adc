// zorv-acceptance: tries on a real Windows what its tests elsewhere could not, and reports it. Started as administrator
// on a machine without the product, it installs it, runs its steps one after another, each in a process of its own, and
// removes it again. A failed step makes its exit code 1.
#include <windows.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <sstream>

#include "kit.h"
#include "package.h"
#include "part.h"
#include "platform/entry.h"
#include "platform/text.h"
#include "platform/windows/wide.h"
#include "process.h"
#include "report.h"
#include "work_folder.h"

namespace zorvalis::acceptance {
namespace {

std::filesystem::path PathOf(const std::string& text) {
    return platform::to_wide(text);
}

const Step* Find(const std::string& number) {
    for (const Step& step : AllSteps()) {
        if (step.number == number) {
            return &step;
        }
    }
    return nullptr;
}

// The second process: runs one step and leaves what it found in a file.
int RunOne(const std::string& number, const std::string& file) {
    const Step* step = Find(number);
    if (step == nullptr) {
        std::printf("There is no step %s; --list shows all.\n", number.c_str());
        return 2;
    }
    const Findings findings = FindingsOf(step->run, !file.empty());
    if (file.empty()) {
        Result result = {step->number, step->what, findings.verdict(), findings.lines(), 0};
        std::fputs(ReportText({result}, true).c_str(), stdout);
        return findings.verdict() == Verdict::failed ? 1 : 0;
    }
    return WriteText(file, ToJson(findings)) ? 0 : 2;
}

// In this process, so it must neither hang nor throw: what it does throw is told.
bool Restore(const Step& step, const char* words) {
    try {
        if (step.restore != nullptr) {
            step.restore();
        }
        return true;
    } catch (const std::exception& exception) {
        std::printf("%s: %s%s\n", step.number, words, exception.what());
        return false;
    }
}

Result RunInProcess(const Step& step, const std::string& folder) {
    Result result = {step.number, step.what, Verdict::failed, {}, 0};
    if (step.needsInstalled && !IsRegistered()) {
        result.verdict = Verdict::impossible;
        result.lines = {"not possible here: the product is not installed"};
        return result;
    }
    const auto start = std::chrono::steady_clock::now();
    const std::string file = folder + "\\step-" + step.number + ".json";
    std::error_code ignored;
    std::filesystem::remove(PathOf(file), ignored);  // of a kit that was ended
    const Ended ended = RunProgram(
        Quoted(KitFolder() + "\\zorv-acceptance.exe") + " --step " + step.number + " --result " + Quoted(file),
        step.limit);
    if (!ended.started || !ended.inTime || !FromJson(ReadText(file), result)) {
        result.verdict = Verdict::failed;
        result.lines = {!ended.started  ? "FAILED: its process cannot be started: " + ErrorText(ended.code)
                        : !ended.inTime ? "FAILED: it did not end within " + std::to_string(step.limit) + " s"
                                        : "FAILED: its process ended early, with " + std::to_string(ended.code)};
        std::istringstream saw(ended.output);
        for (std::string line; std::getline(saw, line);) {
            result.lines.push_back(line);
        }
        Restore(step, "undoing what it left: ");
    }
    std::filesystem::remove(PathOf(file), ignored);
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

// "5" chooses a group, "5.3" a step.
bool IsChosen(const Step& step, const std::vector<std::string>& chosen) {
    const std::string number = step.number;
    for (const std::string& each : chosen) {
        if (number == each || number.starts_with(each + ".")) {
            return true;
        }
    }
    return chosen.empty() && !step.byHand;
}

// A run that was broken off, or of some groups alone, leaves the product installed.
void TellOfProduct() {
    if (!Kept(kOwnInstallation).empty()) {
        std::puts(
            "The kit's Zorvalis is still on this machine; `zorv-acceptance --only 8` removes it with its records.");
    }
}

bool MayRun() {
    if (!IsAdministrator()) {
        std::puts("Start it as administrator: it installs a service and looks at what only administrators may see.");
        return false;
    }
    return true;
}

int RestoreAll() {
    bool undone = true;
    for (const Step& step : AllSteps()) {
        undone = Restore(step, "cannot be undone: ") && undone;
    }
    if (undone) {
        std::puts("What steps had changed is as it was.");
    }
    TellOfProduct();
    return undone ? 0 : 1;
}

bool WriteReport(const std::string& folder, const std::vector<Result>& results, bool ended) {
    return WriteText(folder + "\\report.txt", ReportText(results, ended)) &&
           WriteText(folder + "\\report.json", ReportJson(results, ended));
}

// On a thread of Windows' own; the kit ends behind it, and its step with it.
BOOL WINAPI Interrupted(DWORD) {
    std::puts(
        "\nBroken off. `zorv-acceptance --restore` puts back what the step has left, `--only 8` removes the product.");
    std::fflush(stdout);
    return FALSE;
}

// The report is written after each step: it outlives a machine that stops in the middle.
std::vector<Result> RunChosen(const std::vector<std::string>& chosen, const std::string& folder) {
    std::vector<Result> results;
    ::SetConsoleCtrlHandler(Interrupted, TRUE);
    ::SetThreadExecutionState(ES_CONTINUOUS | ES_SYSTEM_REQUIRED);
    for (const Step& step : AllSteps()) {
        if (!IsChosen(step, chosen)) {
            continue;
        }
        ::SetThreadExecutionState(ES_DISPLAY_REQUIRED);  // for this moment: a step switches the display off
        std::printf("%-5s %-90s ", step.number, step.what);
        std::fflush(stdout);
        results.push_back(RunInProcess(step, folder));
        WriteReport(folder, results, false);
        std::printf("%s\n", VerdictText(results.back().verdict).c_str());
        std::fflush(stdout);
    }
    return results;
}

int RunAll(const std::vector<std::string>& chosen, const std::string& folder) {
    if (chosen.empty() && IsRegistered()) {
        std::puts(Kept(kOwnInstallation).empty()
                      ? "Zorvalis is installed on this machine. Take one without it: the kit would remove its records."
                      : "A run of the kit was broken off. Start `zorv-acceptance --restore`, then `--only 8`.");
        return 2;
    }
    if (chosen.empty() && HasOthersRecords()) {
        std::puts(
            "An earlier Zorvalis has left records or settings here, which the kit would delete. Take another one.");
        return 2;
    }
    std::error_code error;
    std::filesystem::create_directories(PathOf(folder), error);
    if (!WriteReport(folder, {}, false)) {
        std::printf("%s cannot be written to; name another folder by --report.\n", folder.c_str());
        return 2;
    }
    const std::vector<Result> results = RunChosen(chosen, folder);
    TellOfProduct();
    const bool written = WriteReport(folder, results, true);
    std::printf("%s %s\\report.txt and report.json\n", written ? "Written:" : "CANNOT BE WRITTEN:", folder.c_str());
    const bool failed = std::any_of(results.begin(), results.end(),
                                    [](const Result& result) { return result.verdict == Verdict::failed; });
    return failed || !written ? 1 : results.empty() ? 2 : 0;
}

int Run(std::vector<std::string> arguments) {
    CLI::App app("Tries Zorvalis on this Windows, changes nothing for good, and writes a report.", "zorv-acceptance");
    std::vector<std::string> chosen;
    std::string step;
    std::string result;
    std::string folder = KitFolder() + "\\report";
    bool list = false;
    bool restore = false;
    app.add_option("--only", chosen, "These steps (5.3) or groups (5) alone; the product stays as it is between them");
    app.add_option("--report", folder, "The folder for report.txt and report.json")->capture_default_str();
    app.add_flag("--list", list, "Names all steps; those of group 9 run only when they are chosen");
    app.add_flag("--restore", restore,
                 "Undoes what a kit that was ended may have left, and says how to remove the product");
    app.add_option("--step", step, "Runs one step in this process");
    app.add_option("--result", result, "Where --step leaves what it found")->needs("--step");
    std::reverse(arguments.begin(), arguments.end());
    try {
        app.parse(arguments);
    } catch (const CLI::ParseError& exception) {
        return app.exit(exception) == 0 ? 0 : 2;
    }
    for (const std::string& each : chosen) {
        bool known = false;
        for (const Step& candidate : AllSteps()) {
            known = known || IsChosen(candidate, {each});
        }
        if (!known) {
            std::printf("There is no step or group %s; --list shows all.\n", each.c_str());
            return 2;
        }
    }
    if (list) {
        for (const Step& each : AllSteps()) {
            std::printf("%-5s %s\n", each.number, each.what);
        }
        return 0;
    }
    if (!MayRun()) {
        return 2;
    }
    if (restore) {
        return RestoreAll();
    }
    return step.empty() ? RunAll(chosen, folder) : RunOne(step, result);
}

}  // namespace
}  // namespace zorvalis::acceptance

int program_main(int argc, const wchar_t* const* argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        arguments.push_back(platform::to_utf8(argv[i]));
    }
    int code = 0;
    return zorvalis::acceptance::RunPart(arguments, code) ? code : zorvalis::acceptance::Run(std::move(arguments));
}
