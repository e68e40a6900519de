// SPDX-License-Identifier: MIT
#ifndef SIGNALS_H
#define SIGNALS_H

/// After this call, the first SIGINT, SIGTERM or SIGHUP no longer ends the tool; isStopped() reports it. A
/// second one ends the tool at once. A SIGHUP that is ignored stays ignored. System calls are restarted.
void catchStopSignals();

bool isStopped();

/// The number of the signal that isStopped() reports; 0 if there is none.
int stopSignal();

#endif // SIGNALS_H
