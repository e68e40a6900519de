// SPDX-License-Identifier: MIT
#ifndef STANDINS_H
#define STANDINS_H

#include <QByteArray>
#include <QList>
#include <QString>
#include <QTemporaryDir>

/// Programs that stand first on PATH, write down how they were called and do what the test tells them.
/// PATH is as before at the end.
class StandIns
{
public:
    enum Reach {
        BeforeTheRealOnes, ///< what has no stand-in is the real program
        Alone,             ///< what has no stand-in is missing
    };

    explicit StandIns(Reach reach = BeforeTheRealOnes);
    ~StandIns();
    StandIns(const StandIns &) = delete;
    StandIns &operator=(const StandIns &) = delete;

    /// Makes @p script, lines for /bin/sh, the program @p name. An earlier one of that name is replaced.
    void add(const QByteArray &name, const QByteArray &script = QByteArray());

    /// A script line that writes just these bytes to standard output.
    QByteArray prints(const QByteArray &bytes);

    /// A script line that becomes the real program @p name, with the arguments of the stand-in.
    QByteArray becomes(const QByteArray &name) const;

    /// The arguments of each call of @p name, in the order of the calls, byte for byte.
    QList<QList<QByteArray>> calls(const QByteArray &name) const;

    /// The names of all stand-ins called, in the order of their calls. Those of one pipeline run at once.
    QList<QByteArray> callOrder() const;

    /// Forgets the calls up to here.
    void forgetCalls();

    QString path() const { return mDirectory.path(); }

private:
    QByteArray real(const QByteArray &name) const;
    QByteArray file(const QByteArray &name) const;
    QList<QList<QByteArray>> allCalls() const;

    QTemporaryDir mDirectory;
    QByteArray mRealPath;
    int mOutputs = 0;
};

#endif // STANDINS_H
