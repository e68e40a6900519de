// SPDX-License-Identifier: MIT
#include "signals.h"

#include <csignal>

namespace {

constexpr int STOP_SIGNALS[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t stopped = 0; // the number of the signal

void setAction(void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    for (const int number : STOP_SIGNALS)
        ::sigaction(number, &action, nullptr);
}

void stop(int number)
{
    stopped = number;
    setAction(SIG_DFL);
}

} // namespace

void catchStopSignals()
{
    struct sigaction hangup = {};
    ::sigaction(SIGHUP, nullptr, &hangup);
    setAction(stop);
    if (hangup.sa_handler == SIG_IGN) // nohup(1)
        ::signal(SIGHUP, SIG_IGN);
}

bool isStopped()
{
    return stopped != 0;
}

int stopSignal()
{
    return stopped;
}
