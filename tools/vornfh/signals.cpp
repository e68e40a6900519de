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
    for (const int number : STOP_SIGNALS) {
        struct sigaction current = {};
        ::sigaction(number, nullptr, &current);
        if (number != SIGHUP || current.sa_handler != SIG_IGN) // nohup(1)
            ::sigaction(number, &action, nullptr);
    }
}

void stop(int number)
{
    stopped = number;
    setAction(SIG_DFL);
}

} // namespace

void catchStopSignals()
{
    setAction(stop);
}

bool isStopped()
{
    return stopped != 0;
}

int stopSignal()
{
    return stopped;
}
