// SPDX-License-Identifier: MIT
#ifndef LITERAL_H
#define LITERAL_H

#include "vornfilehandler.h"

/// The listings and the numbering once more, through nothing but QDir and QFileInfo: what the library has to
/// agree with where the disk fails and where names are strange. What Qt itself prints is swallowed.
namespace literal {

QFileInfoList numberedFolders(VORN_FILE_HANDLER::eStorageType storage);
QFileInfoList folders(VORN_FILE_HANDLER::eStorageType storage, VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);
QFileInfoList files(QDir directory, const QStringList &nameFilters, QDir::SortFlags sort);
QFileInfoList files(VORN_FILE_HANDLER::eStorageType storage, const QStringList &nameFilters,
                    VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);
QFileInfoList images(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails,
                     VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);
int mediaCount(VORN_FILE_HANDLER::eStorageType storage);
int lastFolder(VORN_FILE_HANDLER::eStorageType storage);
int lastFile(VORN_FILE_HANDLER::eStorageType storage, int folder);
QString nextName(VORN_FILE_HANDLER::eStorageType storage, VORN_FILE_HANDLER::eFileTypes type);
QJsonArray json(VORN_FILE_HANDLER::eStorageType storage, const QFileInfoList &files);

/// All that is read of one storage, as text: by the library, and literally.
QByteArray report(VORN_FILE_HANDLER::eStorageType storage);
QByteArray libraryReport(VORN_FILE_HANDLER::eStorageType storage);

} // namespace literal

#endif // LITERAL_H
