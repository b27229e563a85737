// Ctrl-C: the first one asks the command to end as soon as it can do so cleanly, the second one ends
// the process at once.
#pragma once

// While one lives, the signals are caught. One at a time.
class CInterruptGuard {
public:
    CInterruptGuard();
    ~CInterruptGuard();
    CInterruptGuard(const CInterruptGuard&) = delete;
    CInterruptGuard& operator=(const CInterruptGuard&) = delete;
};

bool InterruptRequested();
// As the first Ctrl-C would, or takes it back. For tests.
void RequestInterrupt(bool requested);
