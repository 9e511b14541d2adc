// `zorvctl manual` and `zorvctl completion`: a page for man and what shells complete, both made by walking the commands
// and their own descriptions, so that neither can tell of a command that is not there.

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "common/version.h"
#include "output.h"

namespace zorvalis {

namespace {

std::vector<const CLI::App*> Below(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App* command) { return !command->get_name().empty(); });
}

// Calls `visit(command, path)` for the command and all below it; `path` is "zorvctl registry list".
void Walk(const CLI::App& app, const std::string& path, const auto& visit) {
    visit(app, path);
    for (const CLI::App* command : Below(app)) {
        Walk(*command, path + " " + command->get_name(), visit);
    }
}

// What may follow a command: the commands below it and its options.
std::string WordsAfter(const CLI::App& app) {
    std::string words;
    const auto add = [&](const std::string& word) { words += (words.empty() ? "" : " ") + word; };
    for (const CLI::App* command : Below(app)) {
        add(command->get_name());
    }
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            add("--" + name);
        }
    }
    return words;
}

std::string BashCompletion(const CLI::App& root) {
    std::string known, words;
    Walk(root, root.get_name(), [&](const CLI::App& app, const std::string& path) {
        known += (known.empty() ? "\"" : " | \"") + path + "\"";
        words += "    \"" + path + "\") words=\"" + WordsAfter(app) + "\" ;;\n";
    });
    return "# bash completion of zorvctl; made by `zorvctl completion bash`.\n"
           "_zorvctl() {\n"
           "    local path=zorvctl words= i\n"
           "    for ((i = 1; i < COMP_CWORD; i++)); do\n"
           "        case \"$path ${COMP_WORDS[i]}\" in " +
           known +
           ") path+=\" ${COMP_WORDS[i]}\" ;; esac\n"
           "    done\n"
           "    case $path in\n" +
           words +
           "    esac\n"
           "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\")\n"
           "}\n"
           "complete -o default -F _zorvctl zorvctl\n";
}

std::string PowerShellCompletion(const CLI::App& root) {
    std::string table;
    Walk(root, root.get_name(), [&](const CLI::App& app, const std::string& path) {
        table += "        '" + path + "' = '" + WordsAfter(app) + "'\n";
    });
    return "# PowerShell completion of zorvctl; made by `zorvctl completion powershell`.\n"
           "Register-ArgumentCompleter -Native -CommandName zorvctl, zorvctl.exe -ScriptBlock {\n"
           "    param($word, $line, $cursor)\n"
           "    $table = @{\n" +
           table +
           "    }\n"
           "    $path = 'zorvctl'\n"
           "    foreach ($element in $line.CommandElements | Select-Object -Skip 1) {\n"
           "        if ($table.ContainsKey(\"$path $element\")) { $path = \"$path $element\" }\n"
           "    }\n"
           "    $table[$path] -split ' ' | Where-Object { $_ -like \"$word*\" } |\n"
           "        ForEach-Object { [System.Management.Automation.CompletionResult]::new($_) }\n"
           "}\n";
}

// A text in roff's source: a backslash and a dash are escaped, and no line begins with a request.
std::string Roff(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        const bool atStart = escaped.empty() || escaped.back() == '\n';
        escaped += (c == '.' || c == '\'') && atStart ? "\\&" : "";
        escaped += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    }
    return escaped;
}

// `footer` is the one that was printed last: commands of a group inherit theirs.
std::string ManualOf(const CLI::App& app, const std::string& path, std::string& footer) {
    std::string usage = path, options;
    for (const CLI::Option* option : app.get_options()) {
        const std::string type = option->get_type_size() == 0 ? "" : option->get_type_name();
        if (option->get_positional()) {
            const std::string name = option->get_name(true, false);
            usage += option->get_required() ? " " + name : " [" + name + "]";
        }
        if (option->get_lnames() != std::vector<std::string>{"help"}) {
            options += ".TP\n.B " + Roff(option->get_name(true, true)) +
                       (type.empty() ? "" : " \\fI" + Roff(type) + "\\fR") + "\n" + Roff(option->get_description()) +
                       "\n";
        }
    }
    const bool same = footer == app.get_footer();
    footer = app.get_footer();
    return ".SS " + Roff(usage) + "\n" + Roff(app.get_description()) + ".\n" + options +
           (same || footer.empty() ? "" : ".PP\n" + Roff(footer) + "\n");
}

std::string Manual(const CLI::App& root) {
    std::string page = ".TH ZORVCTL 1 \"\" \"zorvctl " + std::string(kServiceVersion) +
                       "\"\n.SH NAME\nzorvctl \\- the tool beside the Zorvalis service\n"
                       ".SH SYNOPSIS\n.B zorvctl\n.I COMMAND\n[\\fIOPTION\\fR...]\n.SH DESCRIPTION\n" +
                       Roff(root.get_description()) + "\n.SH COMMANDS\n";
    std::string footer;
    Walk(root, root.get_name(), [&](const CLI::App& app, const std::string& path) {
        page += Below(app).empty() || app.get_require_subcommand_min() == 0 ? ManualOf(app, path, footer) : "";
    });
    return page +
           ".SH EXIT STATUS\n.TP\n.B 0\nIt is done, or all is well.\n.TP\n.B 1\nIt could not be done, or something is "
           "wrong.\n.TP\n.B 2\nThe command line is wrong, or nothing can be told.\n"
           ".SH ENVIRONMENT\n.TP\n.B ZORV_MACHINE\nThe folder of the stand\\-in machine; not on Windows.\n"
           ".TP\n.B NO_COLOR, TERM=dumb\nNothing is printed dim.\n";
}

}  // namespace

void AddManualCommands(CLI::App& app) {
    app.add_subcommand("manual", "Prints this tool's page for man: `zorvctl manual | man -l -`")->callback([&app] {
        Print(Manual(app));
    });
    const auto shell = std::make_shared<std::string>();
    CLI::App* completion = app.add_subcommand("completion", "Prints what makes a shell complete commands and options");
    completion->add_option("SHELL", *shell, "bash or powershell")
        ->required()
        ->check(CLI::IsMember({"bash", "powershell"}));
    completion->footer(
        "For bash: `source <(zorvctl completion bash)`, in ~/.bashrc for good.\n"
        "For PowerShell: `zorvctl completion powershell | Out-String | Invoke-Expression`.");
    completion->callback([&app, shell] { Print(*shell == "bash" ? BashCompletion(app) : PowerShellCompletion(app)); });
}

}  // namespace zorvalis
