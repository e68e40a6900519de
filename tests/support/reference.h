// SPDX-License-Identifier: MIT
#ifndef REFERENCE_H
#define REFERENCE_H

#include <QDir>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cstdio>

/// Listings and numbering once more, in the plainest words that Qt has for them: what the library reads
/// and orders by faster ways has to come out the same.
namespace Reference {

/// Holds back what Qt prints about impossible patterns and paths; the library prints none of it.
class QuietQt
{
public:
    QuietQt() : mSaved(qInstallMessageHandler([](QtMsgType, const QMessageLogContext &, const QString &) {}))
    {
    }
    ~QuietQt() { qInstallMessageHandler(mSaved); }
    QuietQt(const QuietQt &) = delete;
    QuietQt &operator=(const QuietQt &) = delete;

private:
    QtMessageHandler mSaved;
};

struct Storage {
    QDir location;
    QString suffix;

    QString folderPath(int number) const
    {
        return QString("%1/%2%3")
            .arg(location.absolutePath(), 0, ' ')
            .arg(number, 0, 10, QChar(' '))
            .arg(suffix, 0, ' ');
    }
};

inline void createMissing(const QDir &location)
{
    if (location.exists())
        return;
    std::fprintf(stderr, "%s root dir %s doesn't exist. Create it %s\n", "\x1b[36m",
                 location.absolutePath().toUtf8().constData(), "\x1b[0m");
    QDir().mkpath(location.absolutePath());
}

inline QFileInfoList dcimFolders(const Storage &storage)
{
    QDir location(storage.location.path());
    createMissing(location);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks);
    location.setSorting(QDir::Name);
    const QStringList filters = {"*" + storage.suffix};
    QFileInfoList folders = location.entryInfoList(filters, QDir::NoFilter, QDir::NoSort);
    if (folders.isEmpty()) {
        QDir().mkpath(storage.folderPath(100));
        folders = location.entryInfoList(filters, QDir::NoFilter, QDir::NoSort);
    }
    return folders;
}

inline int lastDirectoryNum(const Storage &storage)
{
    const QFileInfoList folders = dcimFolders(storage);
    for (int i = folders.size() - 1; i >= 0; --i) {
        bool ok = false;
        const int number =
            folders.at(i).fileName().replace(storage.suffix, "", Qt::CaseSensitive).toInt(&ok, 10);
        if (ok)
            return number;
        std::fprintf(stderr, "%s directory is not a number, continue to check remaining directories %s\n",
                     "\x1b[36m", "\x1b[0m");
    }
    return 100;
}

inline QFileInfoList contents(QDir directory, const QStringList &nameFilters, QDir::SortFlags sort)
{
    if (!directory.exists()) {
        std::fprintf(stderr, "%s directory %s doesn't exist %s\n", "\x1b[36m",
                     directory.absolutePath().toUtf8().constData(), "\x1b[0m");
        return {};
    }
    directory.setFilter(QDir::Files | QDir::NoSymLinks);
    directory.setSorting(sort);
    if (nameFilters.size() > 0)
        directory.setNameFilters(nameFilters);
    return directory.entryInfoList(QDir::NoFilter, QDir::NoSort);
}

inline int lastFileNum(const Storage &storage, int folder)
{
    const QStringList filters = {"DCF_*.jpg", "DCF_*.png", "DCF_*.avi", "DCF_*.mkv", "DCF_*.wav"};
    const QFileInfoList files = contents(QDir(storage.folderPath(folder)), filters, QDir::Name);
    for (int i = files.size() - 1; i >= 0; --i) {
        bool ok = false;
        const int number =
            files.at(i).fileName().left(8).replace("DCF_", "", Qt::CaseSensitive).toInt(&ok, 10);
        if (ok)
            return number;
        std::fprintf(stderr,
                     "%s problem finding the file number in this filename, continue to the next file %s\n",
                     "\x1b[36m", "\x1b[0m");
    }
    return 0;
}

inline int nextFileNum(const Storage &storage)
{
    const int folder = lastDirectoryNum(storage);
    const int number = lastFileNum(storage, folder);
    if (number != 9999)
        return number + 1;
    QDir().mkpath(storage.folderPath(folder + 1));
    return 1;
}

inline QString nextFileName(const Storage &storage, const QString &extension)
{
    const int number = nextFileNum(storage);
    const QString folder = storage.folderPath(lastDirectoryNum(storage));
    return QString("%1/%2%3.%4")
        .arg(folder, 0, ' ')
        .arg("DCF_", 0, ' ')
        .arg(number, 4, 10, QChar('0'))
        .arg(extension, 0, ' ');
}

inline QFileInfoList folders(const Storage &storage, int filter)
{
    if (filter == 1)
        return dcimFolders(storage);
    QDir location(storage.location.path());
    createMissing(location);
    location.setFilter(QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    location.setSorting(QDir::Name);
    QFileInfoList list = location.entryInfoList();
    for (int i = list.size() - 1; filter == 16 && i >= 0; --i) {
        const QRegularExpression pattern(QString("^[0-9]{3}%1$").arg(storage.suffix));
        if (pattern.match(list.at(i).fileName()).hasMatch())
            list.removeAt(i);
    }
    return list;
}

inline QFileInfoList storageContents(const Storage &storage, const QStringList &nameFilters, int filter)
{
    QFileInfoList list;
    for (const QFileInfo &folder : folders(storage, filter))
        list += contents(QDir(folder.absoluteFilePath()), nameFilters, QDir::Time | QDir::Reversed);
    return list;
}

/// One of @p list, by chance.
template <typename List>
auto oneOf(QRandomGenerator &random, const List &list)
{
    return list.at(random.bounded(list.size()));
}

} // namespace Reference

#endif // REFERENCE_H
