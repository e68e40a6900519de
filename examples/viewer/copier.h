// SPDX-License-Identifier: MIT
#ifndef COPIER_H
#define COPIER_H

#include "mediaobject.h"

#include <QElapsedTimer>
#include <QObject>

#include <atomic>

/// Copies objects to another storage device. Runs in its own thread, so that lists can be read while a copy
/// is being written. A copy gets the next number of the storage device, and keeps the time and the protection
/// of the original. It is written under a hidden name, and gets its number when it is complete and on the
/// storage device: an interrupted copy is never listed.
class Copier : public QObject
{
    Q_OBJECT

public:
    /// Ends a running copy() soon. May be called from any thread.
    void cancel() { mIsCancelled = true; }

public slots:
    /// Copies the objects @p bases of the folder @p folder to the storage device @p target.
    void copy(const QString &folder, const QStringList &bases, int target);

signals:
    /// @p done is between 0 and 1.
    void progressed(double done);
    void finished(const QString &text);

private:
    void copyObject(const MediaObject &object, int target);
    void write(int from, int to);

    std::atomic<bool> mIsCancelled = false;
    QElapsedTimer mReported;
    qint64 mDone = 0;
    qint64 mTotal = 0;
};

#endif // COPIER_H
