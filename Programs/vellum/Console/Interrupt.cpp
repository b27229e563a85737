#include <Programs/vellum/Console/Interrupt.h>

#include <Programs/vellum/Console/ExitCode.h>

#include <csignal>
#include <cstdlib>

namespace {

volatile std::sig_atomic_t g_requested = 0;

extern "C" void OnSignal(int number) {
    if (g_requested) std::_Exit(static_cast<int>(ExitCode::Cancelled));
    g_requested = 1;
    // Some systems put the default back before they call the handler.
    std::signal(number, OnSignal);
}

}  // namespace

CInterruptGuard::CInterruptGuard() {
    g_requested = 0;
    std::signal(SIGINT, OnSignal);
    std::signal(SIGTERM, OnSignal);
}

CInterruptGuard::~CInterruptGuard() {
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
    g_requested = 0;
}

bool InterruptRequested() {
    return g_requested != 0;
}

void RequestInterrupt(bool requested) {
    g_requested = requested ? 1 : 0;
}
