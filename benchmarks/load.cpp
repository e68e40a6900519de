// SPDX-License-Identifier: MIT
// Full storage devices and long use, on the file system of TMPDIR:
//   load            both
//   load storages   time and memory of each operation with 1,000 to 1,000,000 sparse files
//   load recordings memory of a host that 100,000 times records, lists, and deletes the oldest file

#include "vornfilehandler.h"

#include <QTemporaryDir>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace VORN_FILE_HANDLER;

namespace {

constexpr int FILES_PER_FOLDER = 1112; // a million files fill all 900 possible folders
constexpr eStorageType STORAGE = STORAGE_SD;

struct Cost {
    double seconds = 0;
    double mebibytes = 0; ///< peak memory use minus the use before
};

void makeSparseFile(const QString &path)
{
    const int file = ::open(path.toUtf8().constData(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0 || ::ftruncate(file, 4 << 20) != 0)
        qFatal("cannot make %s", qPrintable(path));
    ::close(file);
}

void fill(const QString &location, int files)
{
    VornFileHandler::mFolderSuffix = "ABC";
    VornFileHandler::mSDLocation = QDir(location);
    const eFileTypes types[] = {FILE_TYPE_IMAGE_JPEG, FILE_TYPE_VIDEO_AVI, FILE_TYPE_IMAGE_PNG,
                                FILE_TYPE_VIDEO_MKV, FILE_TYPE_AUDIO_WAV};
    for (int i = 0; i < files; ++i) {
        const int folder = 100 + i / FILES_PER_FOLDER;
        const int number = 1 + i % FILES_PER_FOLDER;
        if (number == 1)
            VornFileHandler::createDCIMFolder(STORAGE, folder);
        makeSparseFile(VornFileHandler::getFilePath(STORAGE, folder, number,
                                                    VornFileHandler::getFileExtension(types[i % 5])));
    }
}

double mebibytesOf(const std::string &field)
{
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.compare(0, field.size() + 1, field + ":") == 0)
            return std::stod(line.substr(field.size() + 1)) / 1024;
    qFatal("/proc/self/status has no %s", field.c_str());
}

/// Runs @p operation in a child process, so that it does not reuse memory that another operation has freed.
Cost costOf(const std::function<void()> &operation)
{
    int ends[2] = {-1, -1};
    if (::pipe(ends) != 0)
        qFatal("no pipe");
    const pid_t child = ::fork();
    if (child == 0) {
        std::ofstream("/proc/self/clear_refs") << 5; // the peak is counted from here
        const double before = mebibytesOf("VmRSS");
        const auto start = std::chrono::steady_clock::now();
        operation();
        const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
        const Cost cost = {duration.count(), mebibytesOf("VmHWM") - before};
        ::_exit(::write(ends[1], &cost, sizeof cost) == sizeof cost ? 0 : 1);
    }
    ::close(ends[1]);
    Cost cost;
    if (::read(ends[0], &cost, sizeof cost) != sizeof cost)
        qFatal("an operation did not finish");
    ::close(ends[0]);
    ::waitpid(child, nullptr, 0);
    return cost;
}

struct Operation {
    const char *name;
    std::function<void()> run;
};

std::vector<Operation> operations()
{
    return {
        {"getDCIMFolders", [] { VornFileHandler::getDCIMFolders(STORAGE); }},
        {"getNextFileName", [] { VornFileHandler::getNextFileName(STORAGE, FILE_TYPE_VIDEO_AVI); }},
        {"getMediaFileCount", [] { VornFileHandler::getMediaFileCount(STORAGE); }},
        {"getDirectoryContents",
         [] { VornFileHandler::getDirectoryContents(STORAGE, DIRECTORY_FILTER_DCIM); }},
        {"getImageList", [] { VornFileHandler::getImageList(STORAGE, true, DIRECTORY_FILTER_DCIM); }},
        {"getVideoList", [] { VornFileHandler::getVideoList(STORAGE, DIRECTORY_FILTER_DCIM); }},
        {"getAudioList", [] { VornFileHandler::getAudioList(STORAGE, DIRECTORY_FILTER_DCIM); }},
        {"getJSONDirectoryContents", [] { VornFileHandler::getJSONDirectoryContents(STORAGE); }},
        {"getJSONVideoList", [] { VornFileHandler::getJSONVideoList(STORAGE); }},
        {"getMetadata of a folder",
         [] {
             Metadata record;
             VornFileHandler::getMetadata(QFileInfo(VornFileHandler::getDirPath(STORAGE, 100)), record);
         }},
        {"deleteAllFiles", [] { VornFileHandler::deleteAllFiles(STORAGE); }},
    };
}

void printStorages()
{
    const std::vector<int> sizes = {1000, 10000, 100000, 1000000};
    std::vector<std::vector<Cost>> table(operations().size());
    for (const int files : sizes) {
        const QTemporaryDir directory;
        fill(directory.filePath("DCIM"), files);
        const std::vector<Operation> all = operations();
        for (size_t i = 0; i < all.size(); ++i)
            table[i].push_back(costOf(all[i].run));
    }
    std::printf("| operation | 1,000 files | 10,000 | 100,000 | 1,000,000 |\n|---|---|---|---|---|\n");
    for (size_t i = 0; i < table.size(); ++i) {
        std::printf("| %s |", operations()[i].name);
        for (const Cost &cost : table[i])
            std::printf(" %.1f ms, %.1f MiB |", 1000 * cost.seconds, cost.mebibytes);
        std::printf("\n");
    }
}

void recordOnce()
{
    constexpr int KEPT = 100;
    makeSparseFile(VornFileHandler::getNextFileName(STORAGE, FILE_TYPE_VIDEO_AVI));
    const QList<QFileInfo> files = VornFileHandler::getDirectoryContents(STORAGE, DIRECTORY_FILTER_DCIM);
    if (VornFileHandler::getJsonFileList(STORAGE, files).size() != files.size())
        qFatal("a file is missing");
    if (files.size() <= KEPT)
        return;
    const QFileInfo &oldest = files.first();
    VornFileHandler::deleteFile(oldest.filePath());
    if (oldest.path() != files.last().path() && VornFileHandler::getMediaFileCount(oldest.dir()) == 0)
        VornFileHandler::deleteFolder(oldest.path());
}

void printRecordings()
{
    constexpr int RECORDINGS = 100000;
    constexpr int SHOWN = 10000;
    const QTemporaryDir directory;
    fill(directory.filePath("DCIM"), 0);
    std::printf("| recordings | resident | in use on the heap |\n|---|---|---|\n");
    for (int i = 1; i <= RECORDINGS; ++i) {
        recordOnce();
        if (i == 1000 || i % SHOWN == 0)
            std::printf("| %d | %.2f MiB | %.1f KiB |\n", i, mebibytesOf("VmRSS"),
                        static_cast<double>(::mallinfo2().uordblks) / 1024);
    }
}

} // namespace

int main(int argc, char *argv[])
{
    const std::string part = argc > 1 ? argv[1] : "";
    if (argc > 2 || (!part.empty() && part != "storages" && part != "recordings")) {
        std::fprintf(stderr, "usage: load [storages|recordings]\n");
        return 2;
    }
    if (part != "recordings")
        printStorages();
    if (part != "storages")
        printRecordings();
    return 0;
}
