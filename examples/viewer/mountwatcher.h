// SPDX-License-Identifier: MIT
#ifndef MOUNTWATCHER_H
#define MOUNTWATCHER_H

#include "files.h"

#include <QSocketNotifier>

/// Reports every mount and unmount: poll(2) on /proc/self/mountinfo then returns POLLPRI (proc(5)).
class MountWatcher : public QObject
{
    Q_OBJECT

public:
    explicit MountWatcher(QObject *parent);

signals:
    void changed();

private:
    const Descriptor mMounts;
    QSocketNotifier mNotifier;
};

#endif // MOUNTWATCHER_H
