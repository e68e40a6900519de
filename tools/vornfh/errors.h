// SPDX-License-Identifier: MIT
#ifndef ERRORS_H
#define ERRORS_H

#include <QString>

#include <stdexcept>

/// The exit codes of all commands.
enum ExitCode : int {
    DONE = 0,
    FAILED = 1,
    WRONG_COMMAND_LINE = 2,
    /// Everything permitted was done, but the requested condition does not hold, or "check" has findings.
    NOT_MET = 3,
};

/// A well-formed command failed: one line on standard error, exit code 1.
class Failure : public std::runtime_error
{
public:
    explicit Failure(const QString &message) : std::runtime_error(message.toStdString()) {}
};

/// The failure of one file among several; the command reports it and goes on with the next file.
class FileFailure : public Failure
{
public:
    FileFailure(const QString &path, const QString &reason)
        : Failure(path + ": " + reason), mPath(path), mReason(reason)
    {
    }

    const QString &path() const { return mPath; }
    const QString &reason() const { return mReason; }

private:
    QString mPath;
    QString mReason;
};

/// The command line is wrong: one line on standard error, exit code 2.
class UsageError : public std::runtime_error
{
public:
    explicit UsageError(const QString &message) : std::runtime_error(message.toStdString()) {}
};

/// "OPTION: 'TEXT' is not WANTED".
UsageError wrongValue(const QString &option, const QString &text, const QString &wanted);

/// The system's text for an error number: "Permission denied".
QString errorText(int error);

#endif // ERRORS_H
