// SPDX-License-Identifier: MIT
#ifndef LITERAL_H
#define LITERAL_H

#include "vornfilehandler.h"

/// The rules of listings, numbering and JSON as plain calls of Qt. The library uses faster methods, which
/// must give the same results and the same diagnostic lines, even if the disk fails or names are unusual.
/// What Qt itself prints about invalid patterns and paths is suppressed here; the library must not cause it.
namespace literal {

using namespace VORN_FILE_HANDLER;

constexpr QDir::SortFlags OLDEST_FIRST = QDir::Time | QDir::Reversed;

QFileInfoList numberedFolders(eStorageType storage);
QFileInfoList folders(eStorageType storage, eDIRECTORY_FILTER filter);
QFileInfoList files(QDir directory, const QStringList &nameFilters, QDir::SortFlags sort);
QFileInfoList files(eStorageType storage, const QStringList &nameFilters, eDIRECTORY_FILTER filter);
QFileInfoList images(eStorageType storage, bool thumbnails, eDIRECTORY_FILTER filter);
int mediaCount(eStorageType storage);
int lastFolder(eStorageType storage);
int lastFile(eStorageType storage, int folder);
QString nextName(eStorageType storage, const QString &extension);
QJsonArray json(eStorageType storage, const QFileInfoList &files);

/// The results of all operations that read a storage device, as text.
QByteArray report(eStorageType storage);
/// The same from the library.
QByteArray libraryReport(eStorageType storage);

} // namespace literal

#endif // LITERAL_H
