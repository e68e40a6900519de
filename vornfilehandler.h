// SPDX-License-Identifier: MIT
#ifndef VORNFILEHANDLER_H
#define VORNFILEHANDLER_H

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <string>
#include <vector>

#define VORN_FILE_HANDLER_EXPORT Q_DECL_EXPORT

/// Enumerations and constants of the storage layout.
namespace VORN_FILE_HANDLER {

/// The camera's storage devices. Any other value is an unsupported storage type, for which operations use
/// /tmp unless documented otherwise.
enum eStorageType : int {
    STORAGE_MMC = 0, ///< internal eMMC
    STORAGE_SD = 1,  ///< SD card
    STORAGE_USB = 2, ///< USB mass storage
};

/// File types. A value's media category is the value AND 0xF0: 16 image, 32 video, 64 audio, 128 folder.
enum eFileTypes : int {
    FILE_TYPE_IMAGE = 16,      ///< an image in any format
    FILE_TYPE_IMAGE_JPEG = 17, ///< a JPEG image
    FILE_TYPE_IMAGE_PNG = 18,  ///< a PNG image
    FILE_TYPE_THUMB = 20,      ///< a thumbnail, which is also an image
    FILE_TYPE_VIDEO = 32,      ///< a video in any format
    FILE_TYPE_VIDEO_AVI = 33,  ///< an AVI video
    FILE_TYPE_VIDEO_MKV = 34,  ///< a Matroska video
    FILE_TYPE_AUDIO = 64,      ///< an audio file in any format
    FILE_TYPE_AUDIO_WAV = 65,  ///< a WAV file
    FILE_TYPE_DIRECTORY = 128, ///< a folder
    FILE_TYPE_UNKNOWN = -1,    ///< anything else
};

/// Selects the folders of a listing. The two values are not complementary: with the suffix ABC, both select
/// folder 1000ABC. Any other value selects every folder.
enum eDIRECTORY_FILTER : int {
    DIRECTORY_FILTER_DCIM = 1,      ///< the folders that VornFileHandler::getDCIMFolders() returns
    DIRECTORY_FILTER_NON_DCIM = 16, ///< all folders but those whose names are three digits and the suffix
};

VORN_FILE_HANDLER_EXPORT extern const QString JPEG_FILE_EXT;  ///< "jpg"
VORN_FILE_HANDLER_EXPORT extern const QString PNG_FILE_EXT;   ///< "png"
VORN_FILE_HANDLER_EXPORT extern const QString THUMB_FILE_EXT; ///< "thumb"
VORN_FILE_HANDLER_EXPORT extern const QString AVI_FILE_EXT;   ///< "avi"
VORN_FILE_HANDLER_EXPORT extern const QString MKV_FILE_EXT;   ///< "mkv"
VORN_FILE_HANDLER_EXPORT extern const QString WAV_FILE_EXT;   ///< "wav"

} // namespace VORN_FILE_HANDLER

class Metadata;

/// Manages the media of a camera: numbered files in numbered folders on up to three storage devices. This
/// class and Metadata are in the global namespace, their enumerations in VORN_FILE_HANDLER.
///
/// In these comments the host is the application that uses this library, a location is the DCIM directory of
/// a storage device (/mnt/sd/DCIM), a folder is a directory in a location, and a directory is any directory.
///
/// The host calls init() once; all other operations use the configuration passed to it. All operations are
/// synchronous. None throws except Metadata::setComment(). Unless documented otherwise, operations return an
/// empty value, false or 0 on failure. They print to standard error only what their comments say. A
/// diagnostic line is in cyan: "\e[36m <text> \e[0m" and a line feed. A directory that exists but cannot be
/// read is treated as empty, and nothing is printed.
///
/// The numbering is held only in the names on the storage device. Nothing is cached and nothing is locked.
/// init() must not run concurrently with any other operation. The host must serialise allocations on a
/// storage device, because two callers that ask for a name before either has created its file receive the
/// same name.
class VORN_FILE_HANDLER_EXPORT VornFileHandler
{
public:
    // Configuration

    /// String after the number in the name of every numbered folder; empty before init().
    static QString mFolderSuffix;
    static QDir mMMCLocation; ///< location of the eMMC; "/tmp" before init()
    static QDir mSDLocation;  ///< location of the SD card; "/tmp" before init()
    static QDir mUSBLocation; ///< location of the USB device; "/tmp" before init()
    static QString mMmcBlk;   ///< block name of the eMMC, as in /proc/partitions; empty before init()
    static QString mSdBlk;    ///< block name of the SD card; empty before init()
    static QString mUsbBlk;   ///< block name of the USB device; empty before init()
    /// True after init(). For the host's use; the library never reads it.
    static bool mbIsLibInitialized;

    /// Replaces the whole configuration.
    ///
    /// A relative location is resolved against the current directory each time a path is built. A block name
    /// is the name of the block device in /proc/partitions, for example "mmcblk1p1"; it may be empty, in
    /// which case isMounted() returns false. Nothing is checked and nothing is created. Each call prints the
    /// start banner, three lines in red.
    ///
    /// Locations and block names are passed to a shell unquoted (see isMounted() and the capacity queries),
    /// so they must come from a source that the host trusts.
    static void init(QString folderSuffix, QString mmcLocation, QString mmcBlk, QString sdLocation,
                     QString sdBlk, QString usbLocation, QString usbBlk);

    /// Block name of @p type: any of the three storage devices, despite the function's name. For an
    /// unsupported storage type, prints the line "Unsupported storage type" and returns an empty string.
    static QString typeToMmcBlk(VORN_FILE_HANDLER::eStorageType type);

    /// Mount path of @p type: the absolute path of its location with every "DCIM" removed, so /mnt/sd/DCIM
    /// becomes "/mnt/sd/". Occurrences within other names are removed too; "dcim" is not. For an unsupported
    /// storage type, prints the line "Unsupported storage type" and returns an empty string.
    static QString typeToMountPath(VORN_FILE_HANDLER::eStorageType type);

    /// Location of @p type, which need not exist; "/tmp" for an unsupported storage type.
    static QDir getStorageDir(VORN_FILE_HANDLER::eStorageType type);

    // Paths and names
    //
    // Paths are built with chained calls to QString::arg(), so a "%1" in a location or suffix is treated as a
    // place marker and replaced by a later value. No path is tested for existence.

    /// Path of the numbered folder @p folderNumber: location, "/", the number without padding, suffix.
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// Path of a media file: numbered folder, "/DCF_", the number padded with zeros to at least four
    /// characters (7 becomes 0007, -7 becomes -007), ".", @p extension. With THUMB_FILE_EXT it is the path of
    /// the file's thumbnail.
    static QString getFilePath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber, int fileNumber,
                               QString extension);

    /// Path of the folder @p folderName in the location. The name is not checked: it may be empty, contain
    /// "/" or be "..".
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// Extension for a file type, without a dot; empty for FILE_TYPE_DIRECTORY, FILE_TYPE_UNKNOWN and any
    /// value outside the enumeration. FILE_TYPE_AUDIO returns "avi"; use FILE_TYPE_AUDIO_WAV for "wav".
    static QString getFileExtension(VORN_FILE_HANDLER::eFileTypes fileType);

    /// Creates the directory @p path and any missing parents. A failure is not reported.
    static void createFolder(QString path);
    /// Same as createFolder().
    static void createDCIMFolder(QString path);
    /// Deletes the directory @p path and everything in it; an empty path means the current directory. If the
    /// path is a symbolic link, its target is emptied, and link and target remain. Blocks until the deletion
    /// is complete. A failure is not reported; anything that cannot be deleted remains.
    static void deleteFolder(QString path);
    /// Same as deleteFolder().
    static void deleteDCIMFolder(QString path);
    /// Creates a numbered folder, and the location if it is missing. A failure is not reported.
    static void createDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Deletes a numbered folder as deleteFolder() does.
    static void deleteDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Creates a folder in the location; "a/b" creates both levels. A failure is not reported.
    static void createFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);
    /// Deletes a folder in the location as deleteFolder() does. The name is not checked: an empty name
    /// deletes the whole location, ".." the directory above it.
    static void deleteFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// Up to eight characters of @p path, starting at its last "/" (inclusive): "/DCF_000" for
    /// /media/sd/DCIM/100ABC/DCF_0007.jpg, but "DCF_0007" for the bare name.
    static QString getDosBaseName(QString path);

    // Folder numbering

    /// The folders in the location whose names end in the suffix, ignoring case, in QDir::Name order. The
    /// rest of the name may be anything. Wildcard characters in the suffix act as wildcards. With an empty
    /// suffix the list contains "." and "..". Hidden folders and symbolic links are not listed.
    ///
    /// If the location is missing, it is created, and the line "root dir <location> doesn't exist. Create it"
    /// is printed. If no folder matches or the location cannot be read, folder 100 is created and the
    /// location is read again; the list is empty if that fails, or if wildcards in the suffix prevent folder
    /// 100 from matching.
    static QList<QFileInfo> getDCIMFolders(VORN_FILE_HANDLER::eStorageType storage);

    /// Number of the current folder: the last folder of getDCIMFolders() whose name, with every occurrence of
    /// the suffix removed (case-sensitively), is a decimal number. Last means last in name order, in which
    /// 1000 comes before 101. Returns 100 if there is no such folder, whether or not folder 100 exists.
    ///
    /// Has the side effects and output of getDCIMFolders(). For each folder skipped, prints the line
    /// "directory is not a number, continue to check remaining directories".
    static int getLastDirectoryNum(VORN_FILE_HANDLER::eStorageType storage);

    // File numbering

    /// Number of the last media file, in name order, in a numbered folder; 0 if there is none or the folder
    /// cannot be read. Media files are DCF_*.jpg, .png, .avi, .mkv and .wav, ignoring case; thumbnails are
    /// not counted. The number is read from the first eight characters of the name, with every "DCF_" (upper
    /// case only) removed.
    ///
    /// If the folder is missing, prints the line "directory <folder> doesn't exist". For each file skipped,
    /// prints the line "problem finding the file number in this filename, continue to the next file".
    static int getLastFileNum(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// Number for the next file in the current folder: getLastFileNum() plus one. Gaps are never filled.
    /// After 9999 it creates the next folder and returns 1, whether or not the folder could be created. A
    /// name that the library did not create may make the number 0 or negative: "DCF_-005" leads to -4. Has
    /// the side effects and output of getLastDirectoryNum() and getLastFileNum().
    static int getNextFileNum(VORN_FILE_HANDLER::eStorageType storage);

    /// Full path for the next recording of type @p fileType. The file is not created and the name is not
    /// reserved: until the host creates the file, every call returns the same path. Once a recording exists,
    /// a call with FILE_TYPE_THUMB returns a path with the next number, so the host must derive the path of a
    /// thumbnail from that of its recording. For a type without an extension the path ends in ".".
    ///
    /// After DCF_9999 in folder 999 the numbers are used up: folder 1000 is created but never becomes the
    /// current folder, and every later call returns DCF_0001 in folder 999. A host must therefore open the
    /// file exclusively (O_EXCL, QIODevice::NewOnly). Has the side effects and output of getNextFileNum()
    /// followed by getLastDirectoryNum(). Reads the location twice and the current folder once; each of these
    /// reads is repeated if the file system does not report the types of entries, or if a name in the
    /// directory is not ASCII and QTextCodec::codecForLocale() is not UTF-8.
    static QString getNextFileName(VORN_FILE_HANDLER::eStorageType storage,
                                   VORN_FILE_HANDLER::eFileTypes fileType);

    // Listings
    //
    // A file listing contains only regular files: no directories, no symbolic links, no hidden files. Name
    // filters are QDir wildcards and ignore case; an empty list of filters matches every file. Names that are
    // not valid in the encoding of QTextCodec::codecForLocale(), normally UTF-8, are never listed. In a
    // listing in the order QDir::Time | QDir::Reversed, the entries keep the size and times that the files
    // had when they were listed; in any other order, these may be read when first asked for. A directory is
    // read once. In the order QDir::Time | QDir::Reversed, it is read twice if the file system does not
    // report the types of entries, or if a name in it is not ASCII and QTextCodec::codecForLocale() is not
    // UTF-8, and once more if a file has no modification time.

    /// The files in one directory, sorted by @p sort. If @p nameFilters is empty, the name filters already
    /// set in @p directory apply. If the directory is missing, prints the line "directory <path> doesn't
    /// exist" and returns an empty list; if it cannot be read, returns an empty list and prints nothing.
    static QList<QFileInfo> getDirectoryContents(QDir directory, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// Same as above for the directory @p path; an empty path means the current directory.
    static QList<QFileInfo> getDirectoryContents(QString path, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// The folders of a storage device that @p filter selects, in QDir::Name order. DIRECTORY_FILTER_DCIM is
    /// the same as getDCIMFolders(), including its side effects and output. With any other filter, a missing
    /// location is created, and the line "root dir <location> doesn't exist. Create it" is printed; hidden
    /// folders, symbolic links, "." and ".." are not listed. With DIRECTORY_FILTER_NON_DCIM the suffix
    /// becomes part of a regular expression; if that is not valid, the numbered folders are listed too.
    static QList<QFileInfo> getFolders(VORN_FILE_HANDLER::eStorageType storage,
                                       VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The files in all folders that @p filter selects: folder by folder in the order of getFolders(), and
    /// in each folder the oldest modification first (QDir::Time | QDir::Reversed; files with equal times in
    /// descending name order). Files in subdirectories of the folders are not listed, nor those in the
    /// location itself, except with DIRECTORY_FILTER_DCIM and an empty suffix: "." and ".." are then among
    /// the numbered folders. Has the side effects and output of getFolders(). For a folder that has
    /// disappeared in the meantime, prints the line "directory <folder> doesn't exist".
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 QStringList nameFilters,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// Same as above without name filters.
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    // Media lists
    //
    // Extensions are matched ignoring case. Each function with a storage argument lists the storage device
    // once (getImageList() twice), with the side effects and output of that listing.

    /// The images on a storage device: first the JPEG files of all folders, with the thumbnails among them if
    /// @p thumbnails is set, then the PNG files of all folders. The location and the folders are read twice.
    static QList<QFileInfo> getImageList(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The videos on a storage device, AVI and Matroska sorted together.
    static QList<QFileInfo> getVideoList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The WAV files on a storage device.
    static QList<QFileInfo> getAudioList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// Number of media files directly in @p directory: .jpg, .png, .avi, .mkv and .wav, not thumbnails. If
    /// the directory is missing, prints the line "<path> doesn't exist" and returns 0; if it cannot be read,
    /// returns 0 and prints nothing.
    static int getMediaFileCount(QDir directory);

    /// Number of media files in the folders of getDCIMFolders(); with an empty suffix these include the
    /// location itself and its parent directory. Has the side effects and output of getDCIMFolders().
    static int getMediaFileCount(VORN_FILE_HANDLER::eStorageType storage);

    /// Deletes the location of a storage device and everything in it: numbered folders, other folders, loose
    /// files, and the location itself, which the next listing or allocation creates again. Blocks until the
    /// deletion is complete. A failure is not reported; anything that cannot be deleted remains.
    ///
    /// For an unsupported storage type, and for every storage device before init(), the location is /tmp, so
    /// /tmp is deleted. Has the side effects and output of getDCIMFolders(): a missing location is created
    /// and then deleted. If getDCIMFolders() returns an empty list, nothing is deleted.
    static void deleteAllFiles(VORN_FILE_HANDLER::eStorageType storage);

    // JSON file list

    /// One object per file, in the order of @p files:
    ///   "filename"  the absolute path with every occurrence of "<location>/" removed: "100ABC/DCF_0001.jpg"
    ///   "size"      bytes, as a hexadecimal string: "0x1000"
    ///   "type"      eFileTypes as a number, by the extension, which must be in lower case: 16 .jpg and .png,
    ///               20 .thumb, 32 .avi, 34 .mkv, 64 .wav; 128 a directory, -1 anything else
    ///   "moddate"   despite the key, the local date of the file's creation: "2025-02-25"
    ///   "modtime"   despite the key, the local time of the file's creation: "14:03:59"
    /// If the file system keeps no creation time, both are those of the last status change; for a missing
    /// file they are empty. For an unsupported storage type, the array is empty. The files need not be on the
    /// storage device. Prints nothing.
    static QJsonArray getJsonFileList(VORN_FILE_HANDLER::eStorageType storage, QList<QFileInfo> files);

    /// getJsonFileList() for the result of getImageList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONImageList(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails);
    /// getJsonFileList() for the result of getVideoList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONVideoList(VORN_FILE_HANDLER::eStorageType storage);
    /// getJsonFileList() for the result of getAudioList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONAudioList(VORN_FILE_HANDLER::eStorageType storage);
    /// getJsonFileList() for the result of getDirectoryContents() with DIRECTORY_FILTER_DCIM: every file.
    static QJsonArray getJSONDirectoryContents(VORN_FILE_HANDLER::eStorageType storage);
    /// Same as above for the files that match @p nameFilters.
    static QJsonArray getJSONDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                               QStringList nameFilters);

    // Devices and capacity
    //
    // Each query starts processes, waits for them without a time limit, and caches nothing. The block name
    // and the mount path are passed to the shell unquoted: anyone who can choose them can run any command,
    // and a mount path with a space in it is split, which yields 0 or a meaningless value. For an unsupported
    // storage type, the queries return false or 0 and print the line "Unsupported storage type" each time
    // they look up its block name.
    //
    // On kernels before 5.4, Qt relies on SIGCHLD to learn that a process has ended. On those kernels the
    // host must not block the signal, nor replace its handler after the first process has been started.

    /// Runs a program and waits until it ends.
    ///
    /// @param command  the program, looked up on PATH; if @p arguments is empty, a whole command line, split
    ///                 at white space: double quotes group words (an unclosed quote extends to the end of the
    ///                 line), three in a row stand for one literal quote, and single quotes have no special
    ///                 meaning
    /// @param arguments  passed to the program unchanged, without a shell in between
    /// @param stdOut   replaced by the program's standard output, read as UTF-8 up to the first zero byte
    /// @param stdErr   likewise for its standard error
    /// @param timeout  limit in milliseconds, -1 for none; a program still running when it expires is killed
    /// @return the exit code narrowed to eight bits (255 becomes -1), or the signal number of a program that
    ///         crashed; 0 also for a program that could not be started or was killed at the limit
    ///
    /// Prints nothing. The program's standard input stays open and empty: a program that reads it waits until
    /// it is killed at the limit, or forever without one. If a program cannot be killed because it is blocked
    /// in the kernel, the call gives up 30 seconds after the limit. May be called from several threads at
    /// once, with or without an application object.
    static qint8 execCmdLine(QString command, QStringList arguments, QString &stdOut, QString &stdErr,
                             int timeout = -1);

    /// Returns whether /proc/partitions lists the block name, even as part of another name: mmcblk1 is found
    /// in mmcblk1p1. False for an empty name. Mounts are not checked: the result is true for a card that is
    /// inserted but not mounted. Starts sh, cat and grep once.
    static bool isMounted(VORN_FILE_HANDLER::eStorageType type);

    /// Bytes available to users on the file system that holds the mount path, as df reports them. For a card
    /// that is present but not mounted, that is the file system of the mount-point directory, usually the
    /// root file system. 0 if isMounted() is false, if the mount path does not exist, if the lines that df
    /// prints after its header do not join into one number, or if the value is 2 TiB or more. Starts the
    /// processes of isMounted(), then sh, df and awk.
    static qint64 getRemainingBytes(VORN_FILE_HANDLER::eStorageType type);

    /// Size of that file system in bytes; 0 as above. Starts the processes of isMounted(), then sh, df and
    /// awk.
    static qint64 getStorageSize(VORN_FILE_HANDLER::eStorageType type);

    /// getRemainingBytes() as a percentage of getStorageSize(), rounded; 0 as above, and also if df reports
    /// more free space than the size of the file system. Starts five pipelines.
    static int getRemainingPercent(VORN_FILE_HANDLER::eStorageType type);

    /// getStorageSize() minus getRemainingBytes() in bytes; space reserved for root counts as used.
    /// Computed in single precision: for tens of gigabytes the result is off by up to a few kilobytes. 0 as
    /// above. Starts five pipelines.
    static qint64 getUsedBytes(VORN_FILE_HANDLER::eStorageType type);

    // Transfer

    /// Copies @p files, one after the other, into @p folder in the location of @p type. The folder is created
    /// if missing, even for an empty list, and remains if nothing could be copied into it. Mode, owner and
    /// times are kept if permissions and the file system allow it.
    ///
    /// If a name is taken, a counter is added: DCF_0001_1.jpg to DCF_0001_999.jpg, built from the text before
    /// the first dot and the text after the last (a.b.c becomes a_1.c, README becomes README_1.README). If
    /// all are taken, the last one is overwritten. Starts one "cp -p" per file, without a shell, and waits
    /// for each without a time limit. Failures are not reported (a full storage device leaves a truncated
    /// copy), and the copies are not flushed to the device. Directories are not copied; a symbolic link is
    /// copied as the file it points to; cp parses a relative source that begins with "-" as an option. @p
    /// folder is not checked: "../x" is outside the location.
    static void copyToFolder(QStringList files, VORN_FILE_HANDLER::eStorageType type, QString folder);

    /// Calls copyToFolder(), then deletes every source that is a file or a symbolic link, whether or not its
    /// copy succeeded: a move whose copy failed loses the file. A host that cannot accept that must copy,
    /// compare and delete the files itself.
    static void moveToFolder(QStringList files, VORN_FILE_HANDLER::eStorageType type, QString folder);

    /// Deletes one file. A failure is not reported.
    static void deleteFile(QString path);

    // Metadata

    /// Determines the type of @p file (as in getJsonFileList()) and fills @p metadata by calling
    /// Metadata::set(). Does not require init(). May be called from several threads at once, each with its
    /// own record.
    static void getMetadata(QFileInfo file, Metadata &metadata);
};

/// Describes one file or folder.
///
/// Copying transfers only the fields from mType to mFramerate: an assignment leaves the four counts
/// unchanged, and in a copy-constructed record they are 0. Filling a record again does not clear it: fields
/// that do not belong to the new type keep their values.
class VORN_FILE_HANDLER_EXPORT Metadata
{
public:
    VORN_FILE_HANDLER::eFileTypes mType = VORN_FILE_HANDLER::FILE_TYPE_UNKNOWN; ///< type
    QString mFileName;                                                          ///< name without path
    qint64 mSize = 0;        ///< bytes; for a folder, the total size of the files directly in it
    QDateTime mCreated;      ///< creation, or last status change if none is kept; local time
    QDateTime mLastModified; ///< last modification, local time
    int mWidth = 0;          ///< pixels; -1 for an image that cannot be read
    int mHeight = 0;         ///< pixels; -1 for an image that cannot be read
    int mLength = 0;         ///< 60 for video and audio: a fixed value, not measured
    int mBitrate = 0;        ///< 6000 for video and audio: a fixed value, not measured
    int mFramerate = 0;      ///< 30 for video: a fixed value, not measured
    int mImageCount = 0;     ///< for a folder: number of images
    int mThumbCount = 0;     ///< for a folder: number of thumbnails
    int mVideoCount = 0;     ///< for a folder: number of videos
    int mAudioCount = 0;     ///< for a folder: number of audio files

    /// A record of unknown type: mType -1, all numbers 0, name and dates empty.
    Metadata();
    /// A record filled by set(); the fields that set() does not fill are 0.
    Metadata(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);
    Metadata(const Metadata &other);            ///< copies all fields but the counts, which are 0
    Metadata &operator=(const Metadata &other); ///< copies all fields but the counts, which are unchanged

    void setType(VORN_FILE_HANDLER::eFileTypes type); ///< sets mType only
    int getMediaCategory(); ///< mType AND 0xF0: 16 image, 32 video, 64 audio, 128 folder, 240 unknown

    /// setType(), then setFile().
    void set(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);

    /// Fills the record from @p file according to mType: name and dates; for a folder setDirectorySize() and
    /// setDirectoryContent(); for anything else size, resolution and the fixed values. A missing file has
    /// size 0 and no dates. Prints what those operations print, and starts the processes that they start.
    void setFile(QFileInfo file);

    void setLength(QFileInfo &file);    ///< mLength = 60 for video and audio; the file is not read
    void setBitrate(QFileInfo &file);   ///< mBitrate = 6000 for video and audio; the file is not read
    void setFramerate(QFileInfo &file); ///< mFramerate = 30 for video; the file is not read

    /// Fills mWidth and mHeight. For an image or thumbnail they come from the header of the file; both are -1
    /// if it cannot be read, and what the image libraries print about damaged data is not suppressed. For a
    /// video, ffprobe is started through sh and waited for without a time limit; if it reports no size, the
    /// fields are unchanged. The path is passed to the shell unquoted: a host must not pass a name with
    /// spaces or shell metacharacters. For other types the fields are unchanged.
    void setResolution(QFileInfo &file);

    /// Fills the four counts from the files directly in @p folder; only lower-case extensions are recognised.
    /// Does nothing unless mType is a folder. If the folder is missing, the counts are 0 and the line
    /// "directory <folder> doesn't exist" is printed; if it cannot be read, they are 0 and nothing is
    /// printed.
    void setDirectoryContent(QFileInfo &folder);

    /// mSize = the sum of the sizes of the files directly in @p folder, whatever mType is. If the folder is
    /// missing, mSize is 0 and the line "directory <folder> doesn't exist" is printed; if the folder cannot
    /// be read, mSize is 0 and nothing is printed.
    void setDirectorySize(QFileInfo &folder);

    /// Writes @p comment into the image @p file as the EXIF tag Exif.Photo.UserComment, replacing an earlier
    /// one. Exiv2 recognises the format by the content, not the extension. The file is rewritten in place;
    /// the record is neither read nor changed. Blocks until the file is rewritten.
    ///
    /// @return 0 if Exiv2 reported no error; 1 if the file does not exist, with the line "Error: File does
    ///         not exist: <path>", or if Exiv2 neither returns an image nor throws, with the line
    ///         "Error: Cannot open input file <path>"; both lines on standard error, without colour
    /// @throws an Exiv2 exception, derived from std::exception, for a file whose format Exiv2 does not
    ///         know (text, an empty file) or cannot write EXIF data to (BMP, GIF), for damaged data, and for
    ///         anything that it cannot read or write; the file is then as Exiv2 left it
    ///
    /// @warning The call may never return for a damaged AVI file: Exiv2 0.27.6 loops if the RIFF size is
    ///          0xFFFFFFFF, which is what an interrupted recording leaves behind, or if the file is cut off
    ///          in its header. Check first that the content is JPEG (FF D8 FF), PNG (89 50 4E 47) or TIFF (49
    ///          49 2A 00 or 4D 4D 00 2A).
    ///
    /// A result of 0 does not prove that the comment is in the file. For AVI, Matroska, MP4 and WAV files the
    /// result is 0 and the file is unchanged if Exiv2 is built with video support, as Debian's 0.27.6 is.
    /// Some comments are lost or altered without an error: those with characters above U+FFFF and, in a JPEG,
    /// those longer than about 32,000 characters. If that matters, write to a copy and read it back. Each
    /// call registers one more function with atexit(). Must not run on two threads at once, nor concurrently
    /// with other uses of Exiv2.
    int setComment(QFileInfo file, QString comment);

    /// 0xFF 0xFE, then each byte of @p text followed by 0x00, then 0x00 0x00. This is UTF-16LE for ASCII
    /// only: a character that takes several bytes in UTF-8 becomes that many code units.
    std::vector<uint8_t> utf8ToUtf16LE(const std::string &text);
};

#endif // VORNFILEHANDLER_H
