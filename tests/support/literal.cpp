// SPDX-License-Identifier: MIT
#include "literal.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cstdio>

using namespace VORN_FILE_HANDLER;

namespace {

const QStringList MEDIA = {"*.jpg", "*.png", "*.avi", "*.mkv", "*.wav"};
const QStringList UNUSUAL_FILTERS = {"*.j*", "*.w?v"};

/// Suppresses the messages of Qt.
class Silence
{
public:
    Silence() : mSaved(qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}))
    {
    }
    ~Silence() { qInstallMessageHandler(mSaved); }
    Q_DISABLE_COPY(Silence)

private:
    QtMessageHandler mSaved;
};

void print(const QString &text)
{
    std::fprintf(stderr, "\x1b[36m %s \x1b[0m\n", text.toUtf8().constData());
}

QDir location(eStorageType storage)
{
    static const QDir *const LOCATIONS[] = {&VornFileHandler::mMMCLocation, &VornFileHandler::mSDLocation,
                                            &VornFileHandler::mUSBLocation};
    return *LOCATIONS[storage];
}

QString folderPath(eStorageType storage, int number)
{
    return QString("%1/%2%3")
        .arg(location(storage).absolutePath())
        .arg(number)
        .arg(VornFileHandler::mFolderSuffix);
}

QDir existingLocation(eStorageType storage)
{
    if (!location(storage).exists()) {
        print("root dir " + location(storage).absolutePath() + " doesn't exist. Create it");
        QDir().mkpath(location(storage).absolutePath());
    }
    return location(storage);
}

int typeOf(const QFileInfo &file)
{
    static const QMap<QString, int> TYPES = {{"jpg", 16}, {"png", 16}, {"thumb", 20},
                                             {"avi", 32}, {"mkv", 34}, {"wav", 64}};
    return file.isDir() ? 128 : TYPES.value(file.suffix(), -1);
}

/// The results that a report describes, in the order in which they are obtained.
struct Results {
    QString nextName;
    int mediaCount;
    QFileInfoList images;
    QFileInfoList numberedFolders;
    QFileInfoList otherFolders;
    QFileInfoList allFolders;
    QFileInfoList newestFirst;
    QJsonArray json;
};

QByteArray toText(const QFileInfoList &files)
{
    QByteArray text = "files\n";
    for (const QFileInfo &file : files)
        text += "  " + file.filePath().toUtf8() + " " + QByteArray::number(file.size()) + " "
                + QByteArray::number(file.lastModified().toMSecsSinceEpoch()) + "\n";
    return text;
}

QByteArray toText(const Results &results)
{
    return results.nextName.toUtf8() + "\n" + QByteArray::number(results.mediaCount) + "\n"
           + toText(results.images) + toText(results.numberedFolders) + toText(results.otherFolders)
           + toText(results.allFolders) + toText(results.newestFirst)
           + QJsonDocument(results.json).toJson(QJsonDocument::Compact) + "\n";
}

} // namespace

QFileInfoList literal::numberedFolders(eStorageType storage)
{
    const Silence silence;
    QDir directory = existingLocation(storage);
    directory.setFilter(QDir::Dirs | QDir::NoSymLinks);
    directory.setSorting(QDir::Name);
    const QStringList filters = {"*" + VornFileHandler::mFolderSuffix};
    const QFileInfoList found = directory.entryInfoList(filters);
    if (!found.isEmpty())
        return found;
    QDir().mkpath(folderPath(storage, 100));
    return directory.entryInfoList(filters);
}

QFileInfoList literal::folders(eStorageType storage, eDIRECTORY_FILTER filter)
{
    if (filter == DIRECTORY_FILTER_DCIM)
        return numberedFolders(storage);
    const Silence silence;
    QFileInfoList found = existingLocation(storage).entryInfoList(
        QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Name);
    for (int i = found.size() - 1; i >= 0 && filter == DIRECTORY_FILTER_NON_DCIM; --i) {
        const QRegularExpression numbered(QString("^[0-9]{3}%1$").arg(VornFileHandler::mFolderSuffix));
        if (numbered.match(found.at(i).fileName()).hasMatch())
            found.removeAt(i);
    }
    return found;
}

QFileInfoList literal::files(QDir directory, const QStringList &nameFilters, QDir::SortFlags sort)
{
    const Silence silence;
    if (!directory.exists()) {
        print("directory " + directory.absolutePath() + " doesn't exist");
        return {};
    }
    directory.setFilter(QDir::Files | QDir::NoSymLinks);
    directory.setSorting(sort);
    if (!nameFilters.isEmpty())
        directory.setNameFilters(nameFilters);
    return directory.entryInfoList();
}

QFileInfoList literal::files(eStorageType storage, const QStringList &nameFilters, eDIRECTORY_FILTER filter)
{
    QFileInfoList found;
    for (const QFileInfo &folder : folders(storage, filter))
        found += files(QDir(folder.absoluteFilePath()), nameFilters, OLDEST_FIRST);
    return found;
}

QFileInfoList literal::images(eStorageType storage, bool thumbnails, eDIRECTORY_FILTER filter)
{
    const QFileInfoList photos =
        files(storage, thumbnails ? QStringList{"*.jpg", "*.thumb"} : QStringList{"*.jpg"}, filter);
    return photos + files(storage, {"*.png"}, filter);
}

int literal::mediaCount(eStorageType storage)
{
    int count = 0;
    for (const QFileInfo &folder : numberedFolders(storage)) {
        QDir directory(folder.absoluteFilePath());
        directory.setFilter(QDir::Files | QDir::NoSymLinks);
        directory.setNameFilters(MEDIA);
        if (!directory.exists())
            print(directory.absolutePath() + " doesn't exist");
        else
            count += static_cast<int>(directory.count());
    }
    return count;
}

int literal::lastFolder(eStorageType storage)
{
    const QFileInfoList found = numberedFolders(storage);
    for (int i = found.size() - 1; i >= 0; --i) {
        bool isNumber = false;
        const int number =
            found.at(i).fileName().replace(VornFileHandler::mFolderSuffix, "").toInt(&isNumber);
        if (isNumber)
            return number;
        print("directory is not a number, continue to check remaining directories");
    }
    return 100;
}

int literal::lastFile(eStorageType storage, int folder)
{
    QStringList filters = MEDIA;
    filters.replaceInStrings("*", "DCF_*");
    const QFileInfoList found = files(QDir(folderPath(storage, folder)), filters, QDir::Name);
    for (int i = found.size() - 1; i >= 0; --i) {
        bool isNumber = false;
        const int number = found.at(i).fileName().left(8).replace("DCF_", "").toInt(&isNumber);
        if (isNumber)
            return number;
        print("problem finding the file number in this filename, continue to the next file");
    }
    return 0;
}

QString literal::nextName(eStorageType storage, const QString &extension)
{
    const int current = lastFolder(storage);
    const int last = lastFile(storage, current);
    if (last == 9999)
        QDir().mkpath(folderPath(storage, current + 1));
    return QString("%1/%2%3.%4")
        .arg(folderPath(storage, lastFolder(storage)))
        .arg("DCF_")
        .arg(last == 9999 ? 1 : last + 1, 4, 10, QChar('0'))
        .arg(extension);
}

QJsonArray literal::json(eStorageType storage, const QFileInfoList &files)
{
    const QString prefix = location(storage).absolutePath() + "/";
    QJsonArray array;
    for (const QFileInfo &file : files) {
        const QDateTime birth = file.birthTime();
        const QDateTime created = birth.isValid() ? birth : file.metadataChangeTime();
        QJsonObject object;
        object["moddate"] = created.date().toString("yyyy-MM-dd");
        object["modtime"] = created.time().toString(Qt::TextDate);
        object["type"] = typeOf(file);
        object["filename"] = file.absoluteFilePath().remove(prefix);
        object["size"] = "0x" + QString::number(file.size(), 16);
        array.append(object);
    }
    return array;
}

QByteArray literal::report(eStorageType storage)
{
    return toText(
        Results{nextName(storage, "jpg"), mediaCount(storage), images(storage, true, DIRECTORY_FILTER_DCIM),
                files(storage, {}, DIRECTORY_FILTER_DCIM), files(storage, {}, DIRECTORY_FILTER_NON_DCIM),
                files(storage, {}, static_cast<eDIRECTORY_FILTER>(0)),
                files(QDir(folderPath(storage, 100)), UNUSUAL_FILTERS, QDir::Time),
                json(storage, files(storage, {}, DIRECTORY_FILTER_DCIM))});
}

QByteArray literal::libraryReport(eStorageType storage)
{
    using Library = VornFileHandler;
    return toText(
        Results{Library::getNextFileName(storage, FILE_TYPE_IMAGE), Library::getMediaFileCount(storage),
                Library::getImageList(storage, true, DIRECTORY_FILTER_DCIM),
                Library::getDirectoryContents(storage, DIRECTORY_FILTER_DCIM),
                Library::getDirectoryContents(storage, DIRECTORY_FILTER_NON_DCIM),
                Library::getDirectoryContents(storage, static_cast<eDIRECTORY_FILTER>(0)),
                Library::getDirectoryContents(Library::getDirPath(storage, 100), UNUSUAL_FILTERS, QDir::Time),
                Library::getJSONDirectoryContents(storage)});
}
