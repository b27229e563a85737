// A process that dies in the middle of its work, with everything that it had not handed to the system.
#pragma once
#include <functional>

// Runs `body` in a copy of this process, which must hold nothing open; waits until all its other threads have
// ended. True if it left by LeaveProcess, false
// if the body came to its end. Throws std::logic_error on Windows, which has no such copies.
bool DiesInAnotherProcess(const std::function<void()>& body);
// Ends the copy at once, with nothing cleaned up.
[[noreturn]] void LeaveProcess();
