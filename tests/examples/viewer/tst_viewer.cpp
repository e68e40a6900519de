// SPDX-License-Identifier: MIT
#include "engine.h"
#include "media.h"
#include "testsupport.h"
#include "viewer.h"

#include <QColor>
#include <QElapsedTimer>
#include <QImage>
#include <QQmlContext>
#include <QQmlEngine>
#include <QTimer>
#include <QtQuickTest>

#include <algorithm>
#include <memory>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

/// Creates storage devices, which are folders in a temporary directory, for the tests in tst_viewer.qml, and
/// reads what the interface has changed on them. Paths are relative to that directory.
class Fixture : public QObject
{
    Q_OBJECT

public:
    Fixture();

    Q_INVOKABLE void start(const QStringList &entries);
    Q_INVOKABLE void make(const QStringList &entries) const;
    /// Creates @p count photos with thumbnails, which are red.
    Q_INVOKABLE void makePhotos(const QString &folder, int count) const;
    Q_INVOKABLE void makeVideo(const QString &path) const { ::makeVideo(absolute(path), {160, 120}); }
    Q_INVOKABLE void rename(const QString &from, const QString &to) const;
    /// Changes the content of an existing file.
    Q_INVOKABLE void copyContent(const QString &from, const QString &to) const
    {
        writeFile(absolute(to), contentOf(absolute(from)));
    }
    Q_INVOKABLE bool mount(const QString &folder) const;
    Q_INVOKABLE void remountReadOnly(const QString &folder) const;
    Q_INVOKABLE void unmount(const QString &folder) const;
    Q_INVOKABLE void setMode(const QString &path, int mode) const;
    /// All files and folders, sorted.
    Q_INVOKABLE QStringList names() const { return textsOf(tree(mStorages->path())); }
    /// The same with the contents of files.
    Q_INVOKABLE QStringList files() const { return textsOf(treeWithContents(mStorages->path())); }
    /// The files that nobody may write to.
    Q_INVOKABLE QStringList protectedFiles() const;
    Q_INVOKABLE double modified(const QString &path) const;
    Q_INVOKABLE void setLanguage(const QString &language) { setUpApplication(language); }
    Q_INVOKABLE QColor pixel(const QImage &image, int x, int y) const { return image.pixelColor(x, y); }
    /// The warnings of QML since the last call.
    Q_INVOKABLE QString takeWarnings();

    /// Measures the longest time without a reaction of the interface, from now to longestGap().
    Q_INVOKABLE void startMeter();
    Q_INVOKABLE int longestGap();

public slots:
    void qmlEngineAvailable(QQmlEngine *engine);
    void cleanupTestCase() { mViewer.reset(); }

private:
    static QStringList textsOf(const Tree &tree);
    QString absolute(const QString &path) const { return mStorages->path() + "/" + path; }

    QQmlEngine *mEngine = nullptr;
    std::unique_ptr<Storages> mStorages;
    std::unique_ptr<Viewer> mViewer;
    QStringList mWarnings;
    QTimer mTick;
    QElapsedTimer mSinceTick;
    qint64 mLongestGap = 0;
    bool mCanMount = false;
};

Fixture::Fixture()
{
    // Before any thread is started: mounts are then seen by this process only.
    mCanMount =
        ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    mTick.setTimerType(Qt::PreciseTimer);
    mTick.setInterval(1);
    connect(&mTick, &QTimer::timeout, this,
            [this] { mLongestGap = std::max(mLongestGap, mSinceTick.restart()); });
}

void Fixture::qmlEngineAvailable(QQmlEngine *engine)
{
    mEngine = engine;
    registerTypes();
    engine->rootContext()->setContextProperty("fixture", this);
    connect(engine, &QQmlEngine::warnings, this, [this](const QList<QQmlError> &warnings) {
        for (const QQmlError &warning : warnings)
            mWarnings.append(warning.toString());
    });
}

void Fixture::start(const QStringList &entries)
{
    mViewer.reset();
    mStorages.reset(); // before the next one, because its destructor resets the library
    mStorages = std::make_unique<Storages>();
    make(entries);
    mViewer = std::make_unique<Viewer>(QVector<eStorageType>{STORAGE_MMC, STORAGE_SD, STORAGE_USB});
    setUpEngine(*mEngine, *mViewer);
}

void Fixture::make(const QStringList &entries) const
{
    Tree tree;
    for (const QString &entry : entries)
        tree.append(entry.toUtf8());
    makeTree(mStorages->path(), tree);
}

void Fixture::makePhotos(const QString &folder, int count) const
{
    make({folder + "/"});
    const QByteArray original = absolute("original.thumb").toUtf8();
    QImage picture(160, 120, QImage::Format_RGB32);
    picture.fill(Qt::red);
    picture.save(absolute("original.thumb"), "JPG");
    for (int number = 1; number <= count; ++number) {
        const QString path = absolute(QString("%1/DCF_%2").arg(folder).arg(number, 4, 10, QChar('0')));
        for (const QString &extension : {JPEG_FILE_EXT, THUMB_FILE_EXT})
            require(::link(original.constData(), (path + "." + extension).toUtf8().constData()) == 0, "link");
    }
}

void Fixture::rename(const QString &from, const QString &to) const
{
    require(QFile::rename(absolute(from), absolute(to)), "rename");
}

bool Fixture::mount(const QString &folder) const
{
    return mCanMount && ::mount("none", absolute(folder).toUtf8().constData(), "tmpfs", 0, nullptr) == 0;
}

void Fixture::remountReadOnly(const QString &folder) const
{
    const QByteArray path = absolute(folder).toUtf8();
    require(::mount(nullptr, path.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0, "remount");
}

void Fixture::unmount(const QString &folder) const
{
    require(::umount2(absolute(folder).toUtf8().constData(), 0) == 0, "umount");
}

void Fixture::setMode(const QString &path, int mode) const
{
    require(::chmod(absolute(path).toUtf8().constData(), static_cast<mode_t>(mode)) == 0, "chmod");
}

QStringList Fixture::textsOf(const Tree &tree)
{
    QStringList texts;
    for (const QByteArray &entry : tree)
        texts.append(QString::fromUtf8(entry));
    return texts;
}

QStringList Fixture::protectedFiles() const
{
    QStringList files;
    for (const QString &name : names()) {
        struct stat status = {};
        if (::stat(absolute(name).toUtf8().constData(), &status) == 0 && S_ISREG(status.st_mode)
            && (status.st_mode & 0222) == 0)
            files.append(name);
    }
    return files;
}

double Fixture::modified(const QString &path) const
{
    return static_cast<double>(QFileInfo(absolute(path)).lastModified().toMSecsSinceEpoch());
}

QString Fixture::takeWarnings()
{
    const QString all = mWarnings.join("\n");
    mWarnings.clear();
    return all;
}

void Fixture::startMeter()
{
    mLongestGap = 0;
    mSinceTick.start();
    mTick.start();
}

int Fixture::longestGap()
{
    mTick.stop();
    return static_cast<int>(mLongestGap);
}

QUICK_TEST_MAIN_WITH_SETUP(tst_viewer, Fixture)
#include "tst_viewer.moc"
