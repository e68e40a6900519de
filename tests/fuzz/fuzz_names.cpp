// SPDX-License-Identifier: MIT
// Input: the folder suffix, then entries, all terminated by NUL. The first byte of an entry is its kind, the
// second its modification time, the rest its name.
#include "fuzz.h"
#include "literal.h"
#include "testsupport.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int LONGEST_SUFFIX = 24; // the time for matching grows quickly with the number of '*'
constexpr int LONGEST_NAME = 200;
constexpr int MOST_ENTRIES = 24;

void makeFile(const QByteArray &path, int time)
{
    const int descriptor = ::open(path, O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (descriptor < 0)
        return;
    const timespec moment = {(time - 2) * 500000000L, (time % 7) * 300000L};
    const timespec moments[] = {moment, moment};
    ::futimens(descriptor, moments);
    if (::ftruncate(descriptor, time * 300) == 0)
        ::close(descriptor);
}

/// Creates one entry, in the location or in the folder that was created last.
void makeEntry(const QByteArray &location, QByteArray &folder, const QByteArray &entry)
{
    const QByteArray name = entry.mid(2).left(LONGEST_NAME);
    if (name.isEmpty() || name.contains('/') || name == "." || name == "..")
        return;
    switch (entry.at(0) & 7) {
    case 0:
    case 1:
        ::mkdir(location + "/" + name, 0755);
        folder = location + "/" + name;
        break;
    case 2: makeFile(location + "/" + name, entry.at(1) & 7); break;
    case 3: static_cast<void>(::symlink("100ABC", location + "/" + name)); break;
    case 4: static_cast<void>(::symlink("DCF_0001.jpg", folder + "/" + name)); break;
    default: makeFile(folder + "/" + name, entry.at(1) & 7);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const Scratch scratch;
    QByteArrayList pieces =
        QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)).split('\0');
    const QByteArray suffix = pieces.takeFirst().left(LONGEST_SUFFIX);
    if (suffix.contains("..") || pieces.size() > MOST_ENTRIES)
        return -1; // a suffix "/../x" would leave the scratch folder
    scratch.clear();
    const QByteArray location = scratch.path("DCIM");
    ::mkdir(location, 0755);
    QByteArray folder = location;
    for (const QByteArray &piece : pieces)
        if (piece.size() > 2)
            makeEntry(location, folder, piece);

    VornFileHandler::mFolderSuffix = QString::fromUtf8(suffix);
    VornFileHandler::mSDLocation = QDir(QString::fromUtf8(location));
    StandardErrorCapture capture;
    literal::report(STORAGE_SD); // creates everything that can be created
    capture.take();
    const QByteArray expected = literal::report(STORAGE_SD);
    const QByteArray expectedLines = capture.take();
    requireEqual("results", literal::libraryReport(STORAGE_SD), expected);
    requireEqual("lines on standard error", capture.take(), expectedLines);
    return 0;
}
