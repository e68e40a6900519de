// SPDX-License-Identifier: MIT
#include "signals.h"

namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t stopped = 0;

} // namespace

void catchStopSignals()
{
    struct sigaction action = {};
    action.sa_handler = [](int) { stopped = 1; };
    action.sa_flags = SA_RESTART;
    for (const int number : STOP_SIGNALS)
        ::sigaction(number, &action, nullptr);
}

bool isStopped()
{
    return stopped != 0;
}

StopSignalsBlocked::StopSignalsBlocked()
{
    sigset_t all;
    ::sigemptyset(&all);
    for (const int number : STOP_SIGNALS)
        ::sigaddset(&all, number);
    ::sigprocmask(SIG_BLOCK, &all, &mBefore);
}

StopSignalsBlocked::~StopSignalsBlocked()
{
    ::sigprocmask(SIG_SETMASK, &mBefore, nullptr);
}
