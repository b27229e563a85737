// Where a command writes: data on one stream, messages on another, colour only for a person.
#pragma once
#include <iosfwd>
#include <string>

// What the outside is like; main fills it from the process, a test by hand.
struct CConsoleSettings {
    bool outIsTerminal = false;
    bool errIsTerminal = false;
    bool colourAllowed = true;        // false under NO_COLOR and on a dumb terminal
    unsigned width = 80;              // columns of the terminal
    std::istream* answers = nullptr;  // where a person answers; null: nobody is there to ask
};

class CConsole {
public:
    enum class Style { Plain, Bold, Dim, Good, Warning, Error };

    CConsole(std::ostream& out, std::ostream& err, const CConsoleSettings& settings);

    std::ostream& Out() { return m_out; }
    std::ostream& Err() { return m_err; }
    const CConsoleSettings& Settings() const { return m_settings; }
    void ForbidColour() { m_settings.colourAllowed = false; }
    void SetQuiet(bool quiet) { m_quiet = quiet; }

    // The text dressed for standard output or standard error; as it stands where no colour is due.
    std::string OnOut(Style style, const std::string& text) const;
    std::string OnErr(Style style, const std::string& text) const;

    // One line each on standard error. Note: what happened, dropped when quiet.
    void Note(const std::string& text);
    void Warn(const std::string& text);
    void Error(const std::string& text, const std::string& hint = {});

    bool CanAsk() const { return m_settings.answers != nullptr; }
    // Asks on standard error, also when quiet; true for "y" or "yes". False where nobody is there.
    bool Ask(const std::string& question);

    // The line that is overwritten on a terminal while something is under way; nothing elsewhere.
    void ShowTransient(const std::string& text);
    void ClearTransient();

private:
    static std::string Dress(bool colour, Style style, const std::string& text);

    std::ostream& m_out;
    std::ostream& m_err;
    CConsoleSettings m_settings;
    bool m_quiet = false;
    bool m_transientShown = false;
};

// From the environment and the standard streams of this process.
CConsoleSettings ConsoleOfThisProcess();
