#include <Programs/vellum/Commands/CommandLine.h>

#include <Platform/Directories.h>
#include <Platform/Machine.h>
#include <Programs/vellum/Commands/CommandContext.h>
#include <Programs/vellum/Commands/ManualPage.h>
#include <Programs/vellum/Commands/QueryCommand.h>
#include <Programs/vellum/Console/CommandLineUi.h>
#include <Programs/vellum/Console/Interrupt.h>
#include <Programs/vellum/Console/TraceFile.h>
#include <Programs/vellum/Session/Explain.h>

#include <algorithm>
#include <optional>
#include <ostream>

namespace {

constexpr const char* description =
    "vellum keeps pairs of mail folders in step, in both directions.\n\n"
    "A profile holds stores, a store holds folders, a folder holds items. A pair names two folders;\n"
    "'vellum sync' makes both hold the same items. A folder is written Store\\Folder\\Subfolder or\n"
    "Store/Folder/Subfolder.";

constexpr const char* footer =
    "Example:\n"
    "  vellum profile create me\n"
    "  vellum store create Home && vellum store create Office\n"
    "  vellum import mail.pst --into Home/Inbox\n"
    "  vellum pair add Home/Inbox Office/Inbox --both --delete --subfolders --create-subfolders\n"
    "  vellum sync\n\n"
    "Exit codes:\n"
    "  0 done   1 some items failed   2 usage or configuration   3 another run holds the pair\n"
    "  4 stopped by a guard   5 cancelled   6 a store, folder or file cannot be opened   7 internal error\n\n"
    "Environment:\n"
    "  VELLUM_DATA_DIR   where profiles, stores and settings lie (as --data-dir)\n"
    "  VELLUM_PROFILE    the profile to use (as --profile)\n"
    "  NO_COLOR          no colour";

void AddGlobalOptions(CLI::App& app, CGlobalOptions& options) {
    app.add_option("--data-dir", options.dataDirectory, "Directory of profiles, stores and settings")
        ->type_name("DIR");
    app.add_option("--profile", options.profile,
                   "Profile to use (default: VELLUM_PROFILE, or the default profile)")
        ->type_name("NAME");
    app.add_flag("--json", options.json, "Print data as JSON on standard output");
    app.add_flag("--no-color,--no-colour", options.noColour, "No colour");
    app.add_flag("-q,--quiet", options.quiet, "No notes and no progress, only data, warnings and errors");
    app.add_option("--language", options.language, "Language of the texts of a run")
        ->check(CLI::IsMember({"en", "de"}))
        ->type_name("en|de");
    app.add_option("--trace", options.traceFile, "Write the diagnostic trace of the run to a file")
        ->type_name("FILE");
}

void AddCommands(CCommandTable& table) {
    AddProfileCommands(table);
    AddStoreCommands(table);
    AddFolderCommands(table);
    AddImportCommand(table);
    AddExportCommand(table);
    AddItemCommands(table);
    AddPairCommands(table);
    AddSyncCommand(table);
    AddWatchCommands(table);
    AddProtocolCommand(table);
    AddMaintainCommands(table);
    AddSettingsCommands(table);
    AddQueryCommands(table);
}

// The deepest command that the line reached, with its words for what is said of it.
struct CReached {
    explicit CReached(const CLI::App& app) : command(&app) {
        for (auto found = command->get_subcommands(); !found.empty(); found = command->get_subcommands()) {
            command = found.back();
            words += " " + command->get_name();
        }
    }
    const CLI::App* command;
    std::string words = "vellum";
};

// A word that is no command counts for the parser as one that is missing.
std::string WhatIsWrong(const CLI::App& app, const CReached& reached, const CLI::ParseError& error) {
    const std::vector<std::string> rest = app.remaining(true);
    if (reached.command->get_require_subcommand_min() == 0 || rest.empty()) return error.what();
    if (rest.front().starts_with("-")) return "There is no option " + rest.front();
    return "There is no command \"" + reached.words + " " + rest.front() + "\"";
}

int ReportParse(const CLI::App& app, const CLI::ParseError& error, CConsole& console) {
    if (error.get_exit_code() == 0) {
        app.exit(error, console.Out(), console.Err());
        return Code(ExitCode::Done);
    }
    const CReached reached(app);
    console.Error(WhatIsWrong(app, reached, error), "See:  " + reached.words + " --help");
    return Code(ExitCode::Usage);
}

void ApplyGlobalOptions(CGlobalOptions& options, CConsole& console) {
    if (!options.dataDirectory.empty()) SetBaseDirectory(options.dataDirectory);
    if (!options.language.empty())
        SetUserLanguage(options.language == "de" ? Language::German : Language::English);
    if (options.profile.empty()) options.profile = EnvironmentVariable("VELLUM_PROFILE");
    if (options.noColour) console.ForbidColour();
    console.SetQuiet(options.quiet);
}

int RunChosen(const CCommandTable& table, const CGlobalOptions& options, CConsole& console) {
    std::optional<CTraceFile> trace;
    if (!options.traceFile.empty()) trace.emplace(options.traceFile);
    CCommandContext context(console, options);
    return table.Chosen()(context);
}

// Nothing but an exit code leaves a command.
template <class Body>
int Guarded(CConsole& console, Body body) {
    try {
        return body();
    } catch (const CCommandError& e) {
        console.Error(e.what(), e.Hint());
        return Code(e.Code());
    } catch (const CMAPIException& e) {
        console.Error("The mail system refused: " + Explain(e) +
                      (e.Context().empty() ? "" : " (" + e.Context() + ")"));
        return Code(ExitCode::Internal);
    } catch (const std::bad_alloc&) {
        console.Error("There is not enough memory");
        return Code(ExitCode::Internal);
    } catch (const std::exception& e) {
        console.Error(std::string("Internal error: ") + e.what());
        return Code(ExitCode::Internal);
    } catch (...) {
        console.Error("Internal error");
        return Code(ExitCode::Internal);
    }
}

}  // namespace

int RunCommandLine(const std::vector<std::string>& arguments, CConsole& console) {
    CGlobalOptions options;
    CLI::App app(description, "vellum");
    app.footer(footer);
    app.fallthrough();
    // "/Home/Inbox" is a path here and no option, whatever the system.
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", "vellum 10.0");
    app.require_subcommand(1);
    AddGlobalOptions(app, options);
    CCommandTable table(app);
    AddCommands(table);
    app.add_flag_callback(
        "--man", [] {}, "Print the manual page, for man -l");
    if (arguments == std::vector<std::string>{"--man"}) {
        console.Out() << ManualPage(app);
        return Code(ExitCode::Done);
    }

    return Guarded(console, [&] {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        try {
            app.parse(std::move(reversed));
        } catch (const CLI::ParseError& e) {
            return ReportParse(app, e, console);
        }
        ApplyGlobalOptions(options, console);
        const CInterruptGuard interrupt;
        CCommandLineUi ui(console);
        return RunChosen(table, options, console);
    });
}
