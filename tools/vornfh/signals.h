// SPDX-License-Identifier: MIT
#ifndef SIGNALS_H
#define SIGNALS_H

#include <csignal>

/// After this call, SIGINT, SIGTERM and SIGHUP no longer end the tool; isStopped() reports them. System calls
/// are restarted.
void catchStopSignals();

bool isStopped();

/// Blocks the stop signals while the object exists.
class StopSignalsBlocked
{
public:
    StopSignalsBlocked();
    ~StopSignalsBlocked();
    StopSignalsBlocked(const StopSignalsBlocked &) = delete;
    StopSignalsBlocked &operator=(const StopSignalsBlocked &) = delete;

private:
    sigset_t mBefore;
};

#endif // SIGNALS_H
