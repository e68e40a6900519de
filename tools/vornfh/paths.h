// SPDX-License-Identifier: MIT
#ifndef PATHS_H
#define PATHS_H

#include <QString>
#include <QStringList>

#include <string>

/// Decodes @p text from the command line. Throws UsageError if it is not valid UTF-8; @p what names the
/// argument in the message, for example "PATH".
QString fromCommandLine(const std::string &text, const QString &what);

/// Decodes the path @p text from the command line. Throws UsageError if it is not valid UTF-8, or is empty,
/// which would name the current folder; the message begins with @p start.
QString requiredPath(const std::string &text, const QString &start = QString());

/// The absolute path of the file that @p text names. This is for an argument among several: throws
/// FileFailure if @p text is empty or not valid UTF-8.
QString pathArgument(const std::string &text);

/// @p path made absolute, otherwise unchanged: "a/../b" is not "b" if a is a symbolic link.
QString fromRoot(const QString &path);

/// @p path made absolute, with "//", "/." and "/.." resolved as text, without regard to symbolic links. Never
/// a Qt resource path, which begins with a colon.
QString absolutePath(const QString &path);

/// @p path or the nearest path above it that exists.
QString nearestExisting(const QString &path);

/// Returns whether @p path is below @p folder; both are absolute.
bool isInside(const QString &path, const QString &folder);

/// Index of the first character that is neither an ASCII letter or digit nor one of @p others; -1 if there is
/// none.
int firstOther(const QString &text, const char *others);

/// Index of the first character of an absolute path that a shell might not treat as part of a name; -1 if
/// there is none.
int unsafeCharacter(const QString &path);

/// Returns whether @p text contains a place marker of QString::arg(), which the library would replace when it
/// builds a path.
bool hasPlaceMarker(const QString &text);

/// Throws UsageError unless @p name can be the name of a folder directly in a location.
void requireFolderName(const QString &name);

/// The first of @p programs that is not on PATH; empty if all are.
QString missingProgram(const QStringList &programs);

/// "ffprobe is not on PATH".
QString notOnPath(const QString &program);

#endif // PATHS_H
