// SPDX-License-Identifier: MIT
// Random operations on storage devices on disk and in memory, which must agree after each operation.
//
//   tst_model [SEED [RUNS]]
//
// A failure prints the seed and the shortest failing sequence of operations that was found.
#include "model.h"
#include "testsupport.h"

#include <QCoreApplication>
#include <QJsonObject>

#include <rapidcheck.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

const QByteArrayList FOLDER_NAMES = {
    "100ABC",   "101ABC",        "100abc",    "999ABC",       "1000ABC",     "ABC",        "12ABC",
    "1ABC2ABC", "XYZABC",        "MISC",      "MISC\n",       "200ABC\n",    " 300ABC",    "+7ABC",
    "-005ABC",  "100",           "998",       "100ABC ",      ".102ABC",     "100A[B]",    "100A*C",
    "105AB",    "103A.C",        "104\\d",    "106\u00C4BC",  "107\u00E4bc", "108\377ABC", "109%1",
    "110:x",    "\U0001F4F7ABC", "\uFF61ABC", "DCF_0001.jpg", "album.jpg"};
const QByteArrayList FILE_NAMES = {"DCF_0001.jpg",
                                   "DCF_0002.JPG",
                                   "dcf_0003.jpg",
                                   "DCF_9999.avi",
                                   "DCF_12345.jpg",
                                   "DCF_7.jpg",
                                   "DCF_+012.png",
                                   "DCF_ 12 .wav",
                                   "DCF_-005.mkv",
                                   "DCF_DCF_.jpg",
                                   "DCF_0004.thumb",
                                   "DCF_0004.png",
                                   "DCF_0005.PnG",
                                   "DCF_0001.wav",
                                   "DCF_0002.mkv",
                                   "a.b.c",
                                   "README",
                                   ".hidden.jpg",
                                   "x.jpg\n",
                                   "x.jpg ",
                                   "\376.jpg",
                                   "*.jpg",
                                   "[x].jpg",
                                   "a%1%2.jpg",
                                   "a\\b.wav",
                                   "a;b.mkv",
                                   "IMG.JPG.png",
                                   "-p.jpg",
                                   "\u00E9.jpg",
                                   "e\u0301.jpg",
                                   "DCF_\U0001F4F7.jpg",
                                   "DCF_\uFF61.jpg",
                                   "\u00C4.\u00C4.avi",
                                   "'\"$(x).avi"};
const QStringList SUFFIXES = {"ABC", "",   "abc", "A[",   "A[B]", "A[BC]", "A*",  "A?C",   "A.C", "%1",
                              "%2",  "*",  "A/B", "ÄBC",  "(",    "BC\n",  "\\d", "[0-9]", "+",   ".",
                              "^",   "A$", ":x",  "[!C]", " ",    "C|B",   "98",  "]"};
const QList<QStringList> FILTERS = {
    {},   {"*"},   {"*.jpg"},  {"*.JPG", "*.a*"}, {"?CF_*"}, {"A["},  {"A[", "*.wav"},
    {""}, {"*é*"}, {"[d-f]*"}, {"DCF_0001.jpg"},  {"*.*.*"}, {"*\n"}, {"*%1*"}};
const QList<int> TYPES = {16, 17, 18, 20, 32, 33, 34, 64, 65, 128, -1, 7};
const QList<int> FOLDER_FILTERS = {1, 16, 0, 17};
const QList<qint64> TIMES = {1700000000000, 1700000000000, 1700000000001, 1,
                             -1500,         951782400123,  2208988800000};

enum Kind {
    Record,
    MakeFile,
    MakeFolder,
    MakeLink,
    Delete,
    Rename,
    SetSuffix,
    BlockLocation,
    ListFiles,
    ListFolders,
    ListMedia,
    Count,
    Json,
    Copy,
    Move,
    DeleteAll,
    Number,
    ListOne,
    Describe,
    CreateOrDelete
};
const char *const KIND_NAMES[] = {"record",
                                  "make file",
                                  "make folder",
                                  "make link",
                                  "delete",
                                  "rename",
                                  "set suffix",
                                  "block location",
                                  "list files",
                                  "list folders",
                                  "list media",
                                  "count",
                                  "json",
                                  "copy",
                                  "move",
                                  "delete all",
                                  "number",
                                  "list one folder",
                                  "describe folder",
                                  "create or delete folder"};

struct Step {
    Kind kind = Record;
    int storage = 0;
    int a = 0;
    int b = 0;
    int c = 0;
};

void showValue(const Step &step, std::ostream &stream)
{
    stream << "\n  " << KIND_NAMES[step.kind] << " (" << step.storage << ", " << step.a << ", " << step.b
           << ", " << step.c << ")";
}

template <typename List>
typename List::const_reference pick(const List &list, int index)
{
    return list.at(index % list.size());
}

QByteArray joined(const QStringList &lines)
{
    return lines.join("\n").toUtf8();
}

int stepCount = 0;

/// The same storage devices twice: on disk, managed by the library, and in memory.
class Twins
{
public:
    Twins() : mModel(mStorages.path()) { mModel.suffix = "ABC"; }
    void run(const Step &step);

private:
    void act(const Step &step);
    void compare(const QByteArray &library, const QByteArray &model);
    QByteArray entry(int index);
    QByteArray folder(const Step &step);
    QStringList sources(const Step &step);
    QByteArray describe(const QList<QFileInfo> &files) const;
    QByteArray describe(const QStringList &files);
    static QByteArray describe(const QJsonArray &array);
    QByteArray jsonOf(int storage, const QStringList &files);
    void makeFile(const QByteArray &path, int size, qint64 modified);
    void record(const Step &step);
    void makeLink(const Step &step);
    void removeOrRename(const Step &step);
    void setSuffix(const QString &suffix);
    void listMedia(const Step &step);
    void json(const Step &step);
    void listNumbers(const Step &step);
    void listOne(const Step &step);
    void describeFolder(const Step &step);
    void createOrDelete(const Step &step);

    Storages mStorages;
    StandardErrorCapture mCapture;
    Model mModel;
};

void Twins::compare(const QByteArray &library, const QByteArray &model)
{
    RC_LOG() << "  " << library.toPercentEncoding(" /:.,()[]>\n-").toStdString() << "\n";
    RC_ASSERT(library.toStdString() == model.toStdString());
}

/// Any entry of any storage device; empty if there is none.
QByteArray Twins::entry(int index)
{
    QByteArrayList all;
    for (int storage = 0; storage < 3; ++storage)
        all += mModel.entries(mModel.location(storage).toUtf8());
    return all.isEmpty() ? QByteArray() : pick(all, index);
}

/// The location of the step's storage device or a folder in it.
QByteArray Twins::folder(const Step &step)
{
    QByteArrayList folders = {mModel.location(step.storage).toUtf8()};
    for (const QByteArray &path : mModel.entries(folders.first()))
        if (mModel.find(path) && mModel.find(path)->kind == Node::Folder)
            folders += path;
    return pick(folders, step.b);
}

QStringList Twins::sources(const Step &step)
{
    QStringList paths;
    for (int i = 0; i < step.a % 4; ++i) {
        const QByteArray path = i == 2 ? QByteArray() : entry(step.b * 7 + i * 3);
        if (path.isEmpty() || QString::fromUtf8(path).toUtf8() != path)
            paths += mStorages.path() + "/missing.jpg";
        else
            paths += QString::fromUtf8(path);
    }
    return paths;
}

QByteArray Twins::describe(const QList<QFileInfo> &files) const
{
    QStringList lines;
    for (const QFileInfo &file : files)
        lines += file.filePath()
                 + (file.isDir()
                        ? QString()
                        : QString(" %1 %2").arg(file.size()).arg(file.lastModified().toMSecsSinceEpoch()));
    return joined(lines);
}

QByteArray Twins::describe(const QStringList &files)
{
    QStringList lines;
    for (const QString &path : files) {
        const Node *node = mModel.find(path.toUtf8());
        lines +=
            path
            + (!node || node->kind == Node::Folder ? QString()
                                                   : QString(" %1 %2").arg(node->size).arg(node->modified));
    }
    return joined(lines);
}

QByteArray Twins::describe(const QJsonArray &array)
{
    QStringList lines;
    for (const QJsonValue &value : array) {
        const QJsonObject object = value.toObject();
        lines += object["filename"].toString() + " " + object["size"].toString() + " "
                 + QString::number(object["type"].toInt(99)) + " " + object["moddate"].toString() + " "
                 + object["modtime"].toString() + " " + QString::number(object.size());
    }
    return joined(lines);
}

/// Only the creation time comes from the disk, because it cannot be set.
QByteArray Twins::jsonOf(int storage, const QStringList &files)
{
    QStringList lines;
    for (const QString &path : files) {
        const std::time_t seconds = creationTime(path.toUtf8()) / 1000;
        char moment[64];
        std::strftime(moment, sizeof moment, "%Y-%m-%d %H:%M:%S", std::gmtime(&seconds));
        lines += QString(path).replace(mModel.location(storage) + "/", "") + " 0x"
                 + QString::number(mModel.find(path.toUtf8())->size, 16) + " "
                 + QString::number(Model::typeOf(path.section('/', -1))) + " " + moment + " 5";
    }
    return joined(lines);
}

void Twins::makeFile(const QByteArray &path, int size, qint64 modified)
{
    Node file;
    file.kind = Node::File;
    file.size = size;
    file.modified = modified;
    if (!mModel.add(path, file))
        return;
    writeFile(path, QByteArray(size, 'x'));
    setModified(path, modified);
}

void Twins::record(const Step &step)
{
    const int type = pick(TYPES, step.a);
    const QString path =
        VornFileHandler::getNextFileName(anyStorage(step.storage), static_cast<eFileTypes>(type));
    compare(path.toUtf8(), mModel.nextName(step.storage, type).toUtf8());
    makeFile(path.toUtf8(), step.b, pick(TIMES, step.c));
}

void Twins::makeLink(const Step &step)
{
    Node link;
    link.kind = Node::Link;
    link.target = pick(FILE_NAMES + FOLDER_NAMES, step.a + step.c);
    const QByteArray path = folder(step) + "/" + pick(FILE_NAMES + FOLDER_NAMES, step.c);
    if (mModel.add(path, link))
        RC_ASSERT(::symlink(link.target, path) == 0);
}

void Twins::removeOrRename(const Step &step)
{
    const QByteArray path = entry(step.a);
    if (path.isEmpty())
        return;
    if (step.kind == Rename) {
        const QByteArray target =
            path.left(path.lastIndexOf('/') + 1) + pick(FILE_NAMES + FOLDER_NAMES, step.b);
        if (!mModel.contains(target)) {
            mModel.add(target, mModel.take(path));
            RC_ASSERT(::rename(path, target) == 0);
        }
    } else if (QString::fromUtf8(path).toUtf8() == path) {
        const QString name = QString::fromUtf8(path);
        step.b % 2 ? VornFileHandler::deleteFile(name) : VornFileHandler::deleteFolder(name);
        step.b % 2 ? mModel.removeFile(name) : mModel.removeFolder(name);
    }
}

void Twins::setSuffix(const QString &suffix)
{
    VornFileHandler::init(suffix, mStorages.location(STORAGE_MMC), "", mStorages.location(STORAGE_SD), "",
                          mStorages.location(STORAGE_USB), "");
    mModel.suffix = suffix;
    mModel.printed += START_BANNER;
}

void Twins::listMedia(const Step &step)
{
    const eStorageType storage = anyStorage(step.storage);
    const int number = pick(FOLDER_FILTERS, step.b);
    const auto filter = static_cast<eDIRECTORY_FILTER>(number);
    switch (step.a % 4) {
    case 0:
    case 1:
        compare(describe(VornFileHandler::getImageList(storage, step.a % 4 == 1, filter)),
                describe(mModel.images(step.storage, step.a % 4 == 1, number)));
        break;
    case 2:
        compare(describe(VornFileHandler::getVideoList(storage, filter)),
                describe(mModel.files(step.storage, {"*.avi", "*.mkv"}, number)));
        break;
    default:
        compare(describe(VornFileHandler::getAudioList(storage, filter)),
                describe(mModel.files(step.storage, {"*.wav"}, number)));
    }
}

void Twins::json(const Step &step)
{
    const eStorageType storage = anyStorage(step.storage);
    const auto same = [&](const QJsonArray &array, const QStringList &files) {
        compare(describe(array), jsonOf(step.storage, files));
    };
    switch (step.a % 6) {
    case 0:
    case 1:
        same(VornFileHandler::getJSONImageList(storage, step.a % 6 == 1),
             mModel.images(step.storage, step.a % 6 == 1, 1));
        break;
    case 2:
        same(VornFileHandler::getJSONVideoList(storage), mModel.files(step.storage, {"*.avi", "*.mkv"}, 1));
        break;
    case 3: same(VornFileHandler::getJSONAudioList(storage), mModel.files(step.storage, {"*.wav"}, 1)); break;
    case 4:
        same(VornFileHandler::getJSONDirectoryContents(storage), mModel.files(step.storage, {}, 1));
        break;
    default:
        same(VornFileHandler::getJSONDirectoryContents(storage, pick(FILTERS, step.b)),
             mModel.files(step.storage, pick(FILTERS, step.b), 1));
    }
}

void Twins::listNumbers(const Step &step)
{
    const eStorageType storage = anyStorage(step.storage);
    const int folder = step.b % 3 == 0 ? 100 : step.b;
    switch (step.a % 3) {
    case 0:
        compare(QByteArray::number(VornFileHandler::getLastDirectoryNum(storage)),
                QByteArray::number(mModel.lastFolder(step.storage)));
        break;
    case 1:
        compare(QByteArray::number(VornFileHandler::getLastFileNum(storage, folder)),
                QByteArray::number(mModel.lastFile(step.storage, folder)));
        break;
    default:
        compare(QByteArray::number(VornFileHandler::getNextFileNum(storage)),
                QByteArray::number(mModel.nextFile(step.storage)));
    }
}

void Twins::listOne(const Step &step)
{
    static const QDir::SortFlags SORTS[] = {QDir::Name, QDir::Name | QDir::Reversed, QDir::Time,
                                            QDir::Time | QDir::Reversed};
    const QByteArray bytes = folder(step);
    const QString path = QString::fromUtf8(bytes);
    if (path.toUtf8() != bytes)
        return;
    const QStringList filters = pick(FILTERS, step.a);
    compare(describe(VornFileHandler::getDirectoryContents(path, filters, SORTS[step.c % 4])),
            describe(mModel.files(path, filters, static_cast<Model::Order>(step.c % 4))));
}

void Twins::describeFolder(const Step &step)
{
    const QByteArray bytes = folder(step);
    const QString path = QString::fromUtf8(bytes);
    if (path.toUtf8() != bytes || !mModel.find(bytes) || mModel.find(bytes)->kind != Node::Folder)
        return;
    Metadata record;
    VornFileHandler::getMetadata(QFileInfo(path), record);
    QMap<int, int> counts;
    qint64 size = 0;
    for (const QString &file : mModel.files(path, {}, Model::ByName)) {
        ++counts[Model::typeOf(file.section('/', -1))];
        size += mModel.find(file.toUtf8())->size;
    }
    const auto text = [](std::initializer_list<qint64> values) {
        QStringList texts;
        for (const qint64 value : values)
            texts += QString::number(value);
        return joined(texts);
    };
    compare(text({record.mType, record.mSize, record.mImageCount, record.mThumbCount, record.mVideoCount,
                  record.mAudioCount}),
            text({128, size, counts[16], counts[20], counts[32] + counts[34], counts[64]}));
}

void Twins::createOrDelete(const Step &step)
{
    static const QStringList NAMES = {"100ABC", "MISC", "x/y", "", "a b", "album.jpg", "110%1"};
    const eStorageType storage = anyStorage(step.storage);
    const QString name = pick(NAMES, step.b);
    switch (step.a % 8) {
    case 0:
        VornFileHandler::deleteFolder(storage, name);
        mModel.removeFolder(mModel.folderPath(step.storage, name));
        break;
    case 1:
        VornFileHandler::deleteDCIMFolder(storage, 99 + step.c % 4);
        mModel.removeFolder(mModel.folderPath(step.storage, 99 + step.c % 4));
        break;
    case 2:
    case 3:
    case 4:
        VornFileHandler::createDCIMFolder(storage, 97 + step.c);
        mModel.makeFolder(mModel.folderPath(step.storage, 97 + step.c));
        break;
    default:
        VornFileHandler::createFolder(storage, name);
        mModel.makeFolder(mModel.folderPath(step.storage, name));
    }
}

void Twins::act(const Step &step)
{
    const eStorageType storage = anyStorage(step.storage);
    const int number = pick(FOLDER_FILTERS, step.b);
    const auto filter = static_cast<eDIRECTORY_FILTER>(number);
    const QString target = QString::fromUtf8(pick(FOLDER_NAMES, step.c * 5 % 24));
    switch (step.kind) {
    case Record: record(step); break;
    case MakeFile:
        makeFile(folder(step) + "/" + pick(FILE_NAMES, step.a), step.b, pick(TIMES, step.c));
        break;
    case MakeFolder: {
        const QByteArray path = folder(step) + "/" + pick(FOLDER_NAMES, step.a);
        if (mModel.add(path, Node()))
            RC_ASSERT(::mkdir(path, 0755) == 0);
        break;
    }
    case MakeLink: makeLink(step); break;
    case Delete:
    case Rename: removeOrRename(step); break;
    case SetSuffix: setSuffix(pick(SUFFIXES, step.a)); break;
    case BlockLocation: makeFile(mModel.location(step.storage).toUtf8(), 1, 1); break;
    case ListFiles:
        compare(describe(VornFileHandler::getDirectoryContents(storage, pick(FILTERS, step.a), filter)),
                describe(mModel.files(step.storage, pick(FILTERS, step.a), number)));
        break;
    case ListFolders:
        compare(describe(VornFileHandler::getFolders(storage, filter)),
                joined(mModel.folders(step.storage, number)));
        break;
    case ListMedia: listMedia(step); break;
    case Count:
        compare(QByteArray::number(VornFileHandler::getMediaFileCount(storage)),
                QByteArray::number(mModel.mediaCount(step.storage)));
        break;
    case Json: json(step); break;
    case Copy: {
        const QStringList files = sources(step);
        VornFileHandler::copyToFolder(files, storage, target);
        mModel.copy(files, step.storage, target);
        break;
    }
    case Move: {
        const QStringList files = sources(step);
        VornFileHandler::moveToFolder(files, storage, target);
        mModel.move(files, step.storage, target);
        break;
    }
    case DeleteAll:
        VornFileHandler::deleteAllFiles(storage);
        mModel.removeAll(step.storage);
        break;
    case Number: listNumbers(step); break;
    case ListOne: listOne(step); break;
    case Describe: describeFolder(step); break;
    case CreateOrDelete: createOrDelete(step); break;
    }
}

void Twins::run(const Step &step)
{
    ++stepCount;
    RC_LOG() << KIND_NAMES[step.kind] << "\n";
    act(step);
    compare(mCapture.take(), mModel.printed);
    mModel.printed.clear();
    compare(tree(mStorages.path()).join('\n'), mModel.listing().join('\n'));
}

} // namespace

namespace rc {

template <>
struct Arbitrary<Step> {
    static Gen<Step> arbitrary()
    {
        static const std::vector<std::pair<std::size_t, Kind>> WEIGHTS = {
            {12, Record},   {16, MakeFile}, {12, MakeFolder},   {4, MakeLink},  {2, Delete},
            {4, Rename},    {4, SetSuffix}, {1, BlockLocation}, {6, ListFiles}, {4, ListFolders},
            {5, ListMedia}, {4, Count},     {6, Json},          {2, Copy},      {2, Move},
            {1, DeleteAll}, {6, Number},    {6, ListOne},       {3, Describe},  {4, CreateOrDelete}};
        std::vector<Kind> kinds;
        for (const auto &[weight, kind] : WEIGHTS)
            kinds.insert(kinds.end(), weight, kind);
        return gen::build<Step>(gen::set(&Step::kind, gen::elementOf(kinds)),
                                gen::set(&Step::storage, gen::elementOf(std::vector<int>{1, 1, 1, 0, 2})),
                                gen::set(&Step::a, gen::inRange(0, 128)),
                                gen::set(&Step::b, gen::inRange(0, 128)),
                                gen::set(&Step::c, gen::inRange(0, 128)));
    }
};

} // namespace rc

int main(int argc, char *argv[])
{
    // Before Qt reads it. In UTC the order by time is that of the numbers.
    ::setenv("TZ", "UTC", 1);
    const QByteArray seed = argc > 1 ? argv[1] : "20250225";
    const QByteArray runs = argc > 2 ? argv[2] : "600";
    ::setenv("RC_PARAMS", "max_size=80 seed=" + seed + " max_success=" + runs, 1);
    const QCoreApplication application(argc, argv);
    const bool agree =
        rc::check("the storage devices on disk and in memory agree", [](const std::vector<Step> &steps) {
            Twins twins;
            for (const Step &step : steps)
                twins.run(step);
        });
    std::printf("seed %s, %d steps\n", seed.constData(), stepCount);
    return agree ? EXIT_SUCCESS : EXIT_FAILURE;
}
