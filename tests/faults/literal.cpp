// SPDX-License-Identifier: MIT
#include "literal.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <cstdio>

using namespace VORN_FILE_HANDLER;

namespace {

const QStringList MEDIA = {"*.jpg", "*.png", "*.avi", "*.mkv", "*.wav"};

/// Qt says on standard error what it thinks of bad patterns; the library must not.
class Silence
{
public:
    Silence()
        : mHandler(qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}))
    {
    }
    ~Silence() { qInstallMessageHandler(mHandler); }
    Silence(const Silence &) = delete;
    Silence &operator=(const Silence &) = delete;

private:
    QtMessageHandler mHandler;
};

void print(const QString &text)
{
    std::fprintf(stderr, "\x1b[36m %s \x1b[0m\n", text.toUtf8().constData());
}

QDir existingLocation(eStorageType storage)
{
    const QDir location = VornFileHandler::getStorageDir(storage);
    if (!location.exists()) {
        print("root dir " + location.absolutePath() + " doesn't exist. Create it");
        QDir().mkpath(location.absolutePath());
    }
    return location;
}

int typeOf(const QFileInfo &file)
{
    static const QMap<QString, int> TYPES = {{"jpg", 16}, {"png", 16}, {"thumb", 20},
                                             {"avi", 32}, {"mkv", 34}, {"wav", 64}};
    return file.isDir() ? 128 : TYPES.value(file.suffix(), -1);
}

QByteArray describe(const QFileInfoList &files)
{
    QByteArray text;
    for (const QFileInfo &file : files)
        text += "  " + file.filePath().toUtf8() + " " + QByteArray::number(file.size()) + " "
                + QByteArray::number(file.lastModified().toMSecsSinceEpoch()) + "\n";
    return text;
}

QByteArray describe(const QJsonArray &array)
{
    return QJsonDocument(array).toJson(QJsonDocument::Compact) + "\n";
}

} // namespace

QFileInfoList literal::numberedFolders(eStorageType storage)
{
    const Silence silence;
    QDir location = existingLocation(storage);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks);
    location.setSorting(QDir::Name);
    const QStringList filters = {"*" + VornFileHandler::mFolderSuffix};
    const QFileInfoList found = location.entryInfoList(filters, QDir::NoFilter, QDir::NoSort);
    if (!found.isEmpty())
        return found;
    QDir().mkpath(VornFileHandler::getDirPath(storage, 100));
    return location.entryInfoList(filters, QDir::NoFilter, QDir::NoSort);
}

QFileInfoList literal::folders(eStorageType storage, eDIRECTORY_FILTER filter)
{
    if (filter == DIRECTORY_FILTER_DCIM)
        return numberedFolders(storage);
    const Silence silence;
    QDir location = existingLocation(storage);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    location.setSorting(QDir::Name);
    QFileInfoList found = location.entryInfoList();
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
        found += files(QDir(folder.absoluteFilePath()), nameFilters, QDir::Time | QDir::Reversed);
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
        directory.setFilter(QDir::Files | QDir::NoSymLinks | QDir::NoDotAndDotDot);
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
    const QFileInfoList found = files(QDir(VornFileHandler::getDirPath(storage, folder)),
                                      filters.replaceInStrings("*", "DCF_*"), QDir::Name);
    for (int i = found.size() - 1; i >= 0; --i) {
        bool isNumber = false;
        const int number = found.at(i).fileName().left(8).replace("DCF_", "").toInt(&isNumber);
        if (isNumber)
            return number;
        print("problem finding the file number in this filename, continue to the next file");
    }
    return 0;
}

QString literal::nextName(eStorageType storage, eFileTypes type)
{
    const int current = lastFolder(storage);
    const int last = lastFile(storage, current);
    if (last == 9999)
        QDir().mkpath(VornFileHandler::getDirPath(storage, current + 1));
    return VornFileHandler::getFilePath(storage, lastFolder(storage), last == 9999 ? 1 : last + 1,
                                        VornFileHandler::getFileExtension(type));
}

QJsonArray literal::json(eStorageType storage, const QFileInfoList &files)
{
    const QString prefix = VornFileHandler::getStorageDir(storage).absolutePath() + "/";
    QJsonArray array;
    for (const QFileInfo &file : files) {
        const QDateTime birth = file.birthTime();
        const QDateTime created = birth.isValid() ? birth : file.metadataChangeTime();
        QJsonObject object;
        object.insert("moddate", created.date().toString("yyyy-MM-dd"));
        object.insert("modtime", created.time().toString(Qt::TextDate));
        object.insert("type", typeOf(file));
        object.insert("filename", file.absoluteFilePath().remove(prefix));
        object.insert("size", "0x" + QString::number(file.size(), 16));
        array.append(object);
    }
    return array;
}

QByteArray literal::report(eStorageType storage)
{
    QByteArray text = "next " + nextName(storage, FILE_TYPE_IMAGE).toUtf8() + "\n";
    text += "count " + QByteArray::number(mediaCount(storage)) + "\n";
    text += "images\n" + describe(images(storage, true, DIRECTORY_FILTER_DCIM));
    for (const int filter : {1, 16, 0})
        text += "files\n" + describe(files(storage, {}, static_cast<eDIRECTORY_FILTER>(filter)));
    text += "newest first\n"
            + describe(files(QDir(VornFileHandler::getDirPath(storage, 100)), {"*.j*", "*.w?v"}, QDir::Time));
    text += "json " + describe(json(storage, files(storage, {}, DIRECTORY_FILTER_DCIM)));
    return text;
}

QByteArray literal::libraryReport(eStorageType storage)
{
    QByteArray text = "next " + VornFileHandler::getNextFileName(storage, FILE_TYPE_IMAGE).toUtf8() + "\n";
    text += "count " + QByteArray::number(VornFileHandler::getMediaFileCount(storage)) + "\n";
    text += "images\n" + describe(VornFileHandler::getImageList(storage, true, DIRECTORY_FILTER_DCIM));
    for (const int filter : {1, 16, 0})
        text += "files\n"
                + describe(VornFileHandler::getDirectoryContents(storage, QStringList(),
                                                                 static_cast<eDIRECTORY_FILTER>(filter)));
    text += "newest first\n"
            + describe(VornFileHandler::getDirectoryContents(VornFileHandler::getDirPath(storage, 100),
                                                             {"*.j*", "*.w?v"}, QDir::Time));
    text += "json " + describe(VornFileHandler::getJSONDirectoryContents(storage));
    return text;
}
