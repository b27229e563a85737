// What every command works with, and how commands are entered into the command line.
#pragma once
#include <Programs/vellum/Console/Console.h>
#include <Programs/vellum/Console/ExitCode.h>
#include <Programs/vellum/Console/Listing.h>
#include <Programs/vellum/Session/ProfileSession.h>
#include <CLI/CLI.hpp>

#include <functional>
#include <memory>
#include <string>

struct CGlobalOptions {
    std::string dataDirectory;
    std::string profile;
    std::string language;
    std::string traceFile;
    bool json = false;
    bool noColour = false;
    bool quiet = false;
};

class CCommandContext {
public:
    CCommandContext(CConsole& console, const CGlobalOptions& options)
        : m_console(console), m_options(options) {}

    CConsole& Console() { return m_console; }
    bool Json() const { return m_options.json; }
    const CGlobalOptions& Options() const { return m_options; }
    // Logs on at the first call. Throws CCommandError.
    CProfileSession& Session();
    // Ends the session, for what works on the profile from outside.
    void CloseSession() { m_session.reset(); }

private:
    CConsole& m_console;
    const CGlobalOptions& m_options;
    std::unique_ptr<CProfileSession> m_session;
};

// Answers the exit code; ends early with CCommandError.
using CommandAction = std::function<int(CCommandContext&)>;

// Collects the commands, and the action of the one that the command line chose.
class CCommandTable {
public:
    explicit CCommandTable(CLI::App& app) : m_app(app) {}

    // A word that groups commands ("profile"). `example` is one command line, without "vellum".
    CLI::App& AddGroup(const std::string& name, const std::string& text, const std::string& example);
    CLI::App& AddCommand(CLI::App& group, const std::string& name, const std::string& text,
                         const std::string& example, CommandAction action);
    CLI::App& App() { return m_app; }
    const CommandAction& Chosen() const { return m_chosen; }

private:
    CLI::App& m_app;
    CommandAction m_chosen;
};

inline int Code(ExitCode code) {
    return static_cast<int>(code);
}

// One for each source file of the folder.
void AddProfileCommands(CCommandTable& table);
void AddStoreCommands(CCommandTable& table);
void AddStoreCareCommands(CCommandTable& table, CLI::App& group);
void AddFolderCommands(CCommandTable& table);
void AddImportCommand(CCommandTable& table);
void AddExportCommand(CCommandTable& table);
void AddItemCommands(CCommandTable& table);
void AddItemEditCommands(CCommandTable& table, CLI::App& group);
void AddPairCommands(CCommandTable& table);
void AddSyncCommand(CCommandTable& table);
void AddWatchCommands(CCommandTable& table);
void AddProtocolCommand(CCommandTable& table);
void AddMaintainCommands(CCommandTable& table);
void AddSettingsCommands(CCommandTable& table);
