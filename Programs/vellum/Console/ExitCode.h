// How a command ends, and the failure that ends it early.
#pragma once
#include <stdexcept>
#include <string>

// Scripts rely on the numbers; they never change.
enum class ExitCode : int {
    Done = 0,         // also when there was nothing to do
    ItemsFailed = 1,  // the rest was done
    Usage = 2,        // usage or configuration
    Busy = 3,         // another run holds the pair
    Guarded = 4,      // stopped by a guard; nothing was changed
    Cancelled = 5,
    NotOpen = 6,  // a store, folder or file cannot be opened
    Internal = 7,
};
// Added to the code of a run that is asked to tell which side it changed.
inline constexpr int kSourceChangedBit = 32;
inline constexpr int kTargetChangedBit = 64;

// Ends a command. `what` says what is wrong in the words of a person, `Hint` what to do next (may be
// empty); neither ends in a line break.
class CCommandError : public std::runtime_error {
public:
    CCommandError(ExitCode code, const std::string& what, const std::string& hint = {})
        : std::runtime_error(what), m_code(code), m_hint(hint) {}
    ExitCode Code() const { return m_code; }
    const std::string& Hint() const { return m_hint; }

private:
    ExitCode m_code;
    std::string m_hint;
};
