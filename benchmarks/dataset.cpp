// SPDX-License-Identifier: MIT
#include "dataset.h"

#include "vornfilehandler.h"

#include <QFile>
#include <QTemporaryDir>

#include <algorithm>
#include <memory>
#include <random>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

static std::unique_ptr<QTemporaryDir> &temporaryDirectory()
{
    static auto directory = std::make_unique<QTemporaryDir>();
    return directory;
}

void removeDataSets()
{
    temporaryDirectory().reset();
}

QString workDirectory(const QString &name)
{
    const QString path = temporaryDirectory()->filePath(name);
    QDir().mkpath(path);
    return path;
}

void makeFile(const QString &path)
{
    static std::mt19937 random;
    std::uniform_int_distribution<long> second(1500000000, 1750000000);
    std::uniform_int_distribution<long> nanosecond(0, 999999999);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write("x") != 1)
        qFatal("cannot write %s", qPrintable(path));
    const timespec time = {second(random), nanosecond(random)};
    const timespec times[] = {time, time};
    ::futimens(file.handle(), times);
}

QString useStorage(const QString &name, const std::vector<int> &files)
{
    const QString location = temporaryDirectory()->filePath(name);
    VornFileHandler::mFolderSuffix = SUFFIX;
    VornFileHandler::mSDLocation = QDir(location);
    if (QDir(location).exists())
        return location;
    int number = 100;
    for (const int count : files) {
        const QString folder = workDirectory(QString("%1/%2%3").arg(name).arg(number++).arg(SUFFIX));
        for (int i = 1; i <= count; ++i)
            makeFile(QString("%1/DCF_%2.jpg").arg(folder).arg(i, 4, 10, QChar('0')));
    }
    return location;
}

template <typename Visit>
static void readDirectory(const std::string &directory, Visit visit)
{
    const std::unique_ptr<DIR, int (*)(DIR *)> stream(::opendir(directory.c_str()), ::closedir);
    if (!stream)
        qFatal("cannot read %s", directory.c_str());
    while (const dirent *entry = ::readdir(stream.get()))
        visit(::dirfd(stream.get()), *entry);
}

int bareCount(const std::string &directory)
{
    int count = 0;
    readDirectory(directory, [&count](int, const dirent &) { ++count; });
    return count;
}

static std::int64_t nanoseconds(const statx_timestamp &time)
{
    return time.tv_sec * 1000000000 + time.tv_nsec;
}

/// Calls visit(file) for each regular file.
template <typename Visit>
static void readStatus(const std::string &directory, Visit visit)
{
    readDirectory(directory, [&visit](int descriptor, const dirent &entry) {
        if (entry.d_type != DT_REG)
            return;
        struct statx status = {};
        ::statx(descriptor, entry.d_name, 0, STATX_BASIC_STATS | STATX_BTIME, &status);
        visit(BareFile{entry.d_name, nanoseconds(status.stx_mtime), nanoseconds(status.stx_btime),
                       status.stx_size});
    });
}

static void sortByTime(std::vector<BareFile> &files)
{
    std::sort(files.begin(), files.end(),
              [](const BareFile &a, const BareFile &b) { return a.modified < b.modified; });
}

std::vector<BareFile> bareStatus(const std::string &directory)
{
    std::vector<BareFile> files;
    readStatus(directory, [&files](BareFile &&file) { files.push_back(std::move(file)); });
    return files;
}

std::vector<BareFile> bareListing(const std::string &directory)
{
    std::vector<BareFile> files = bareStatus(directory);
    sortByTime(files);
    return files;
}

QFileInfoList bareInfos(const std::string &directory)
{
    std::vector<BareFile> files;
    QFileInfoList infos;
    const QString prefix = QString::fromStdString(directory) + '/';
    readStatus(directory, [&](BareFile &&file) {
        infos.append(QFileInfo(prefix + QFile::decodeName(file.name.c_str())));
        static_cast<void>(infos.last().isSymLink()); // makes it read the status
        files.push_back(std::move(file));
    });
    sortByTime(files);
    return infos;
}
