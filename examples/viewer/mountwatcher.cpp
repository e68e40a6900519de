// SPDX-License-Identifier: MIT
#include "mountwatcher.h"

#include <fcntl.h>

MountWatcher::MountWatcher(QObject *parent)
    : QObject(parent), mMounts("/proc/self/mountinfo", O_RDONLY),
      mNotifier(mMounts.get(), QSocketNotifier::Exception)
{
    connect(&mNotifier, &QSocketNotifier::activated, this, &MountWatcher::changed);
}
