// SPDX-License-Identifier: MIT
#ifndef STANDINS_H
#define STANDINS_H

#include "testsupport.h"

/// The arguments of each call of a program, in the order of the calls.
using Calls = QList<QByteArrayList>;

/// Stand-in programs at the front of PATH that log their calls and do what the test requires. The destructor
/// restores PATH.
class StandIns
{
public:
    enum Reach {
        BeforeTheRealOnes, ///< a program without a stand-in is the real one
        Alone,             ///< a program without a stand-in is missing
    };

    explicit StandIns(Reach reach = BeforeTheRealOnes);

    /// Installs @p script, for /bin/sh, as the program @p name. It replaces an earlier one.
    void add(const QByteArray &name, const QByteArray &script = QByteArray());

    /// A script line that writes exactly these bytes to standard output.
    QByteArray prints(const QByteArray &bytes);

    /// A script line that replaces the stand-in with the real program @p name, with the same arguments.
    QByteArray becomes(const QByteArray &name) const;

    /// The calls of @p name, byte for byte.
    Calls calls(const QByteArray &name) const;

    /// The names of all stand-ins called, in the order of their calls. Programs of one pipeline run
    /// concurrently.
    QByteArrayList callOrder() const;

    QString path() const { return mDirectory.path(); }

private:
    QByteArray real(const QByteArray &name) const;
    QByteArray file(const QByteArray &name) const;
    Calls allCalls() const; ///< each with the program's name in front

    QTemporaryDir mDirectory;
    QByteArray mRealPath;
    EnvironmentVariable mPath;
    int mOutputs = 0;
};

/// The results of VornFileHandler::execCmdLine().
struct Result {
    int code;
    QString output;
    QString errors;
};

/// Runs a program, or a command line if @p arguments is empty. Both strings contain earlier output, which the
/// call must replace.
Result run(const QString &command, const QStringList &arguments = {}, int timeout = -1);

#endif // STANDINS_H
