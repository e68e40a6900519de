// SPDX-License-Identifier: MIT
#include "device.h"
#include "media.h"
#include "standins.h"
#include "testsupport.h"

#include <QtTest>

#include <array>
#include <csignal>
#include <cstdio>
#include <memory>

#include <fcntl.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace {

constexpr int SKIPPED = 77;
constexpr int TIMEOUT = 60000;
constexpr int MEBIBYTE = 1 << 20;

/// Inputs for ffmpeg: the first in real time, the second as fast as possible and several megabytes a second.
const QStringList PICTURE = {"-re", "-f", "lavfi", "-i", "testsrc2=size=320x240:rate=10"};
const QStringList NOISE = {"-f",   "rawvideo", "-video_size", "320x240", "-pixel_format",
                           "gray", "-i",       "/dev/urandom"};

/// The recorder, running with the suffix ABC.
class RunningRecorder
{
public:
    RunningRecorder(const QString &location, int seconds, int percent, const QStringList &input = PICTURE)
    {
        mProcess.start(RECORDER_PATH,
                       QStringList{location, "ABC", QString::number(seconds), QString::number(percent)}
                           + input);
    }

    /// The paths that it has printed.
    QStringList recorded()
    {
        mOut += mProcess.readAllStandardOutput();
        return QString::fromUtf8(mOut).split('\n', Qt::SkipEmptyParts);
    }

    bool hasShown(const QString &line)
    {
        mErr += mProcess.readAllStandardError();
        return mErr.split('\n').contains(line.toUtf8());
    }

    void sendSignal(int number) { ::kill(static_cast<pid_t>(mProcess.processId()), number); }

    /// Waits for its end and returns the exit code; 128 + n if signal n killed it, -1 if it does not end.
    int exitCode()
    {
        if (!mProcess.waitForFinished(TIMEOUT))
            return -1;
        return mProcess.exitCode() + (mProcess.exitStatus() == QProcess::CrashExit ? 128 : 0);
    }

    int stop(int number = SIGTERM)
    {
        sendSignal(number);
        return exitCode();
    }

    QString processId() const { return QString::number(mProcess.processId()); }

private:
    Companion mProcess;
    QByteArray mOut;
    QByteArray mErr;
};

int picturesIn(const QString &path)
{
    return outputOf("ffprobe", {"-v", "quiet", "-count_packets", "-select_streams", "v:0", "-show_entries",
                                "stream=nb_read_packets", "-of", "csv=p=0", path})
        .trimmed()
        .toInt();
}

/// Returns whether a Matroska file has more than its header, of half a kilobyte. Without a picture, ffmpeg
/// does not close the file.
bool hasPicture(const QString &path)
{
    return QFileInfo(path).size() > 1000;
}

/// Returns whether ffmpeg has written the end of a Matroska file: only then is its length known.
bool isClosed(const QString &path)
{
    QProcess probe; // fails while ffmpeg has written nothing yet
    probe.start("ffprobe", {"-v", "quiet", "-show_entries", "format=duration", "-of", "csv=p=0", path});
    return probe.waitForFinished(TIMEOUT) && probe.readAllStandardOutput().trimmed().toDouble() > 0;
}

QString thumbnailOf(const QString &recording)
{
    return QString(recording).replace(".mkv", ".thumb");
}

/// The bytes of a file for which space is allocated on the device. ext4 allocates it when it writes them,
/// which happens when the file is flushed, or else after half a minute.
quint64 bytesOnDevice(const QString &path)
{
    constexpr int EXTENTS = 100;
    std::array<quint64, (sizeof(fiemap) + EXTENTS * sizeof(fiemap_extent)) / sizeof(quint64)> buffer = {};
    auto *const map = reinterpret_cast<fiemap *>(buffer.data());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_extent_count = EXTENTS;
    QFile file(path);
    quint64 bytes = 0;
    if (!file.open(QIODevice::ReadOnly) || ::ioctl(file.handle(), FS_IOC_FIEMAP, map) != 0)
        return 0;
    for (quint32 i = 0; i < map->fm_mapped_extents; ++i) {
        const bool isPlaced = (map->fm_extents[i].fe_flags & FIEMAP_EXTENT_DELALLOC) == 0;
        bytes += isPlaced ? map->fm_extents[i].fe_length : 0;
    }
    return bytes;
}

qint64 freeBytes(const QString &path)
{
    struct statvfs status = {};
    require(::statvfs(QFile::encodeName(path).constData(), &status) == 0, "statvfs");
    return static_cast<qint64>(status.f_bavail * status.f_frsize);
}

/// A file system that blocks whoever writes to it, until the end of the scope.
class Frozen
{
public:
    explicit Frozen(const QString &path)
        : mFolder(::open(QFile::encodeName(path).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        require(::ioctl(mFolder, FIFREEZE, 0) == 0, "freeze");
    }
    ~Frozen()
    {
        ::ioctl(mFolder, FITHAW, 0);
        ::close(mFolder);
    }
    Q_DISABLE_COPY(Frozen)

private:
    int mFolder;
};

/// The states of the threads of a process, as in proc(5); that of the main thread is the first.
QByteArray threadStates(const QString &process)
{
    QByteArray states;
    const QString folder = "/proc/" + process + "/task";
    for (const QString &thread : QDir(folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QByteArray status = contentOf(folder + "/" + thread + "/stat");
        const char state = status.mid(status.lastIndexOf(')') + 2, 1).at(0);
        states.insert(thread == process ? 0 : states.size(), state);
    }
    return states;
}

} // namespace

class RecorderTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void recordsUntilStopped_data();
    void recordsUntilStopped();
    void stopsWithoutCard();
    void skipsTakenNames_data();
    void skipsTakenNames();
    void endsWithTheLastNumber();
    void waitsForTheLock();
    void waitsForACard();
    void keepsWhatFillsTheCard();
    void keepsTheRecordingIfAnotherProgramFillsTheCard();
    void keepsWhatWasRecordedWhenTheCardFails_data();
    void keepsWhatWasRecordedWhenTheCardFails();
    void closesTheFileIfItIsKilled();
    void reportsWhyItCannotBegin();
    void deletesTheOldest();
    void keepsTheNewestAndTheCurrent();
    void leavesNothingWithoutInput_data();
    void leavesNothingWithoutInput();
    void staysResponsiveWhenTheCardHangs();
    void explainsItsArguments();

private:
    QString mountPoint() const { return mDirectory->path() + "/sd"; }
    QString location() const { return mountPoint() + "/DCIM"; }
    QString recording(int number) const
    {
        return location() + QString("/100ABC/DCF_%1.mkv").arg(number, 4, 10, QChar('0'));
    }
    void insertCard() { mCard = std::make_unique<Device>(EXT4, mountPoint()); }

    std::unique_ptr<QTemporaryDir> mDirectory;
    std::unique_ptr<Device> mCard;
};

void RecorderTest::init()
{
    mDirectory = std::make_unique<QTemporaryDir>();
}

void RecorderTest::cleanup()
{
    mCard.reset();
    mDirectory.reset();
}

void RecorderTest::recordsUntilStopped_data()
{
    QTest::addColumn<int>("number");
    row("SIGTERM", SIGTERM);
    row("SIGINT", SIGINT);
    row("SIGHUP", SIGHUP);
}

void RecorderTest::recordsUntilStopped()
{
    QFETCH(int, number);
    insertCard();
    RunningRecorder recorder(location(), 2, 0);
    QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(2)), TIMEOUT);
    QCOMPARE(recorder.stop(number), 0);
    QCOMPARE(recorder.recorded(), (QStringList{recording(1), recording(2)}));
    QCOMPARE(tree(location()), (Tree{"100ABC/", "100ABC/DCF_0001.mkv", "100ABC/DCF_0001.thumb",
                                     "100ABC/DCF_0002.mkv", "100ABC/DCF_0002.thumb"}));
    QCOMPARE(picturesIn(recording(1)), 20);
    for (const QString &path : recorder.recorded()) {
        QVERIFY(isClosed(path));
        QCOMPARE(picturesIn(thumbnailOf(path)), 1);
    }
}

void RecorderTest::stopsWithoutCard()
{
    RunningRecorder recorder(location(), 60, 0);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(mountPoint() + ": no writable card"), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
}

void RecorderTest::skipsTakenNames_data()
{
    QTest::addColumn<Tree>("before");
    QTest::addColumn<QString>("first");
    row("a-folder", Tree{"100ABC/DCF_0001.mkv/"}, QString("100ABC/DCF_0002.mkv"));
    row("a-dangling-link", Tree{"100ABC/DCF_0001.mkv -> missing"}, QString("100ABC/DCF_0002.mkv"));
    row("several", Tree{"100ABC/DCF_0004.jpg", "100ABC/DCF_0005.mkv/", "100ABC/DCF_0006.mkv/"},
        QString("100ABC/DCF_0007.mkv"));
    row("the-last-number-of-a-folder", Tree{"100ABC/DCF_9998.jpg", "100ABC/DCF_9999.mkv/"},
        QString("101ABC/DCF_0001.mkv"));
}

void RecorderTest::skipsTakenNames()
{
    QFETCH(Tree, before);
    QFETCH(QString, first);
    insertCard();
    makeTree(location(), before);
    const Tree withFolders = tree(location());
    RunningRecorder recorder(location(), 1, 0);
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.recorded().isEmpty(), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded().first(), location() + "/" + first);
    for (const QByteArray &entry : withFolders)
        QVERIFY2(tree(location()).contains(entry), entry.constData());
}

void RecorderTest::endsWithTheLastNumber()
{
    insertCard();
    const Tree full = {"999ABC/", "999ABC/DCF_9998.jpg", "999ABC/DCF_9999.mkv/"};
    makeTree(location(), full);
    RunningRecorder recorder(location(), 1, 0);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(location() + ": File exists"), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(tree(location()), full);
}

void RecorderTest::waitsForTheLock()
{
    insertCard();
    makeTree(location(), {"100ABC/"});
    const int lock = ::open(QFile::encodeName(location()).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    QCOMPARE(::flock(lock, LOCK_EX), 0);
    RunningRecorder recorder(location(), 1, 0);
    const QByteArray waiting = "-> FLOCK  ADVISORY  WRITE " + recorder.processId().toUtf8() + " ";
    QTRY_VERIFY_WITH_TIMEOUT(contentOf("/proc/locks").contains(waiting), TIMEOUT);
    QCOMPARE(tree(location()), Tree{"100ABC/"});
    ::close(lock);
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.recorded().isEmpty(), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
}

/// Nothing is created in the mount point while nothing is mounted there.
void RecorderTest::waitsForACard()
{
    QVERIFY(QDir().mkpath(mountPoint()));
    RunningRecorder recorder(location(), 2, 0);
    for (int cards = 1; cards <= 2; ++cards) {
        QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(mountPoint() + ": no writable card"), TIMEOUT);
        QCOMPARE(tree(mountPoint()), Tree());
        insertCard();
        QTRY_VERIFY_WITH_TIMEOUT(recorder.recorded().count(recording(1)) == cards, TIMEOUT);
        QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(2)), TIMEOUT);
        mCard->unmount();
    }
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(tree(mountPoint()), Tree());
}

void RecorderTest::keepsWhatFillsTheCard()
{
    insertCard();
    writeFile(mountPoint() + "/filler",
              QByteArray(static_cast<int>(freeBytes(mountPoint())) - 4 * MEBIBYTE, 'f'));
    RunningRecorder recorder(location(), 3600, 0, NOISE);
    QTRY_COMPARE_WITH_TIMEOUT(recorder.recorded(), QStringList(recording(1)), TIMEOUT);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(mountPoint() + ": 0 MB free"), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded(), QStringList(recording(1)));
    QVERIFY(QFileInfo(recording(1)).size() > 2 * MEBIBYTE);
    QVERIFY(isClosed(recording(1)));
    QVERIFY(freeBytes(mountPoint()) > 0);
}

void RecorderTest::keepsTheRecordingIfAnotherProgramFillsTheCard()
{
    insertCard();
    RunningRecorder recorder(location(), 3600, 0);
    QTRY_VERIFY_WITH_TIMEOUT(bytesOnDevice(recording(1)) > 0, TIMEOUT);
    QFile filler(mountPoint() + "/filler");
    QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
    while (filler.write(QByteArray(MEBIBYTE, 'f')) == MEBIBYTE) {
    }
    QTRY_COMPARE_WITH_TIMEOUT(recorder.recorded(), QStringList(recording(1)), TIMEOUT);
    QVERIFY(picturesIn(recording(1)) > 0);
    QVERIFY(filler.remove());
    QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(2)), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded(), (QStringList{recording(1), recording(2)}));
}

void RecorderTest::keepsWhatWasRecordedWhenTheCardFails_data()
{
    QTest::addColumn<bool>("isPulled");
    QTest::addColumn<QString>("reason");
    row("read-only", false, QString("Read-only file system"));
    row("pulled", true, QString("Input/output error"));
}

void RecorderTest::keepsWhatWasRecordedWhenTheCardFails()
{
    QFETCH(bool, isPulled);
    QFETCH(QString, reason);
    insertCard();
    makeTree(location(), {"100ABC/"});
    RunningRecorder recorder(location(), 3600, 0);
    QTRY_VERIFY_WITH_TIMEOUT(bytesOnDevice(recording(1)) > 0, TIMEOUT);
    // When the second flush has begun, the first is complete.
    const quint64 first = bytesOnDevice(recording(1));
    QTRY_VERIFY_WITH_TIMEOUT(bytesOnDevice(recording(1)) > first, TIMEOUT);
    if (isPulled)
        mCard->pullOut();
    else
        mCard->turnReadOnly();
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(recording(1) + ": missing or incomplete on the card"),
                             TIMEOUT);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(location() + ": " + reason), TIMEOUT);
    QCOMPARE(recorder.recorded(), QStringList());

    mCard->insertAgain();
    QVERIFY(picturesIn(recording(1)) > 0);
    QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(2)), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded(), QStringList(recording(2)));
}

void RecorderTest::closesTheFileIfItIsKilled()
{
    insertCard();
    RunningRecorder recorder(location(), 3600, 0);
    QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(1)), TIMEOUT);
    QCOMPARE(recorder.stop(SIGKILL), 128 + SIGKILL);
    QTRY_VERIFY_WITH_TIMEOUT(isClosed(recording(1)), TIMEOUT);
}

void RecorderTest::reportsWhyItCannotBegin()
{
    insertCard();
    writeFile(location(), "not a folder");
    RunningRecorder recorder(location(), 1, 0);
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(location() + ": Not a directory"), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
}

void RecorderTest::deletesTheOldest()
{
    insertCard();
    const QByteArray content(2 * MEBIBYTE, 'r');
    for (const char *name : {"100ABC/DCF_0001.mkv", "100ABC/DCF_0002.mkv", "100ABC/DCF_9999.avi",
                             "101ABC/DCF_0001.mkv", "101ABC/DCF_0002.mkv"})
        writeFile(location() + "/" + name, content);
    makeTree(location(),
             {"100ABC/DCF_0001.thumb", "100ABC/DCF_0002.thumb", "100ABC/DCF_9999.thumb",
              "100ABC/notes.txt = kept", "100ABC/DCF_00001.jpg = kept", "MISCABC/DCF_0001.jpg = kept"});
    QVERIFY(QFile::setPermissions(location() + "/100ABC/DCF_0001.mkv", QFile::ReadOwner));
    RunningRecorder recorder(location(), 1, 50); // of 16 MiB, of which 4 are free
    QTRY_VERIFY_WITH_TIMEOUT(!recorder.recorded().isEmpty(), TIMEOUT);
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded().first(), location() + "/101ABC/DCF_0003.mkv");
    Tree left = tree(location());
    for (const QString &path : recorder.recorded()) {
        left.removeOne(path.mid(location().size() + 1).toUtf8());
        left.removeOne(thumbnailOf(path).mid(location().size() + 1).toUtf8());
    }
    QCOMPARE(left,
             (Tree{"100ABC/", "100ABC/DCF_00001.jpg", "100ABC/DCF_0001.mkv", "100ABC/notes.txt", "101ABC/",
                   "101ABC/DCF_0001.mkv", "101ABC/DCF_0002.mkv", "MISCABC/", "MISCABC/DCF_0001.jpg"}));
}

/// Deleting cannot make enough space here.
void RecorderTest::keepsTheNewestAndTheCurrent()
{
    insertCard();
    writeFile(location() + "/100ABC/DCF_0001.jpg", QByteArray(MEBIBYTE, 'o'));
    writeFile(location() + "/100ABC/DCF_0002.jpg", QByteArray(MEBIBYTE, 'n'));
    RunningRecorder recorder(location(), 3600, 99);
    QTRY_VERIFY_WITH_TIMEOUT(hasPicture(recording(3)), TIMEOUT);
    QTRY_COMPARE_WITH_TIMEOUT(tree(location()),
                              (Tree{"100ABC/", "100ABC/DCF_0003.mkv", "100ABC/DCF_0003.thumb"}), TIMEOUT);
    makeTree(location(), {"100ABC/DCF_0004.jpg = newer"});
    const quint64 size = bytesOnDevice(recording(3));
    QTRY_VERIFY_WITH_TIMEOUT(bytesOnDevice(recording(3)) > size, TIMEOUT); // deletion comes before the flush
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded(), QStringList(recording(3)));
    QCOMPARE(tree(location()),
             (Tree{"100ABC/", "100ABC/DCF_0003.mkv", "100ABC/DCF_0003.thumb", "100ABC/DCF_0004.jpg"}));
}

void RecorderTest::leavesNothingWithoutInput_data()
{
    QTest::addColumn<bool>("hasFfmpeg");
    row("no-camera", true);
    row("no-ffmpeg", false);
}

void RecorderTest::leavesNothingWithoutInput()
{
    QFETCH(bool, hasFfmpeg);
    insertCard();
    const StandIns programs(hasFfmpeg ? StandIns::BeforeTheRealOnes : StandIns::Alone);
    RunningRecorder recorder(location(), 1, 0, {"-f", "v4l2", "-i", "/dev/missing"});
    QTRY_VERIFY_WITH_TIMEOUT(recorder.hasShown(recording(1) + ": missing or incomplete on the card"),
                             TIMEOUT);
    if (!hasFfmpeg)
        QTRY_VERIFY(recorder.hasShown("setpriv: execvp: No such file or directory"));
    QCOMPARE(recorder.stop(), 0);
    QCOMPARE(recorder.recorded(), QStringList());
    QCOMPARE(tree(location()), Tree{"100ABC/"});
}

void RecorderTest::staysResponsiveWhenTheCardHangs()
{
    insertCard();
    auto frozen = std::make_unique<Frozen>(mountPoint());
    RunningRecorder recorder(location(), 1, 0);
    const auto isOnlyTheCardBlocked = [&recorder] {
        const QByteArray states = threadStates(recorder.processId());
        return states.startsWith('S') && states.contains('D'); // the main thread waits for events
    };
    QTRY_VERIFY_WITH_TIMEOUT(isOnlyTheCardBlocked(), TIMEOUT);
    recorder.sendSignal(SIGTERM);
    frozen.reset();
    QCOMPARE(recorder.exitCode(), 0);
}

void RecorderTest::explainsItsArguments()
{
    QProcess process;
    process.start(RECORDER_PATH, {"/mnt/sd/DCIM"});
    QVERIFY(process.waitForFinished(TIMEOUT));
    QCOMPARE(process.exitCode(), 2);
    QCOMPARE(process.readAllStandardError(),
             QByteArray("Usage: recorder LOCATION SUFFIX SECONDS PERCENT [INPUT...]\n"));
}

int main(int argc, char *argv[])
{
    QString why = enterOwnMounts();
    if (why.isEmpty())
        why = whyNot(EXT4);
    if (!why.isEmpty()) {
        std::printf("tst_recorder: skipped: %s\n", qPrintable(why));
        return SKIPPED;
    }
    const QCoreApplication application(argc, argv);
    RecorderTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_recorder.moc"
