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

/// The enumerations and constants of the storage layout.
namespace VORN_FILE_HANDLER {

/// The storages of the device. Any other value is an unsupported storage: an operation whose comment names no
/// answer of its own to it works on the directory /tmp.
enum eStorageType : int {
    STORAGE_MMC = 0, ///< internal eMMC
    STORAGE_SD = 1,  ///< SD card
    STORAGE_USB = 2, ///< USB mass storage
};

/// Kinds of files. A value's media category is the value AND 0xF0: 16 image, 32 video, 64 audio,
/// 128 directory.
enum eFileTypes : int {
    FILE_TYPE_IMAGE = 16,      ///< an image of any format
    FILE_TYPE_IMAGE_JPEG = 17, ///< a JPEG image
    FILE_TYPE_IMAGE_PNG = 18,  ///< a PNG image
    FILE_TYPE_THUMB = 20,      ///< a thumbnail, an image too
    FILE_TYPE_VIDEO = 32,      ///< a video of any format
    FILE_TYPE_VIDEO_AVI = 33,  ///< an AVI video
    FILE_TYPE_VIDEO_MKV = 34,  ///< a Matroska video
    FILE_TYPE_AUDIO = 64,      ///< a sound of any format
    FILE_TYPE_AUDIO_WAV = 65,  ///< a WAV sound
    FILE_TYPE_DIRECTORY = 128, ///< a folder
    FILE_TYPE_UNKNOWN = -1,    ///< anything else
};

/// Which folders of a storage a listing takes. The two values are no complements of each other: a folder
/// 1000ABC under the suffix ABC, for instance, is taken by both. Any other value takes every folder.
enum eDIRECTORY_FILTER : int {
    DIRECTORY_FILTER_DCIM = 1,      ///< the folders of VornFileHandler::getDCIMFolders
    DIRECTORY_FILTER_NON_DCIM = 16, ///< all but those named by three digits and the folder suffix
};

VORN_FILE_HANDLER_EXPORT extern const QString JPEG_FILE_EXT;  ///< "jpg"
VORN_FILE_HANDLER_EXPORT extern const QString PNG_FILE_EXT;   ///< "png"
VORN_FILE_HANDLER_EXPORT extern const QString THUMB_FILE_EXT; ///< "thumb"
VORN_FILE_HANDLER_EXPORT extern const QString AVI_FILE_EXT;   ///< "avi"
VORN_FILE_HANDLER_EXPORT extern const QString MKV_FILE_EXT;   ///< "mkv"
VORN_FILE_HANDLER_EXPORT extern const QString WAV_FILE_EXT;   ///< "wav"

} // namespace VORN_FILE_HANDLER

class Metadata;

/// The media storages of a camera: numbered folders with numbered files in each storage's DCIM directory.
///
/// The host calls init() once; every other operation then works on the configuration that init() was
/// given. All operations are synchronous and none throws by itself. Failures give an empty value, false,
/// or 0; a diagnostic line on standard error is printed only where an operation's comment says so, in
/// cyan, as "\e[36m <text> \e[0m" and a line feed.
///
/// The numbering lives in the names on the storage alone. Nothing is cached, nothing is locked: init()
/// must not run beside any other operation, and recordings on one storage must be serialised by the host,
/// because two callers that ask for a name before either has written its file get the same one.
class VORN_FILE_HANDLER_EXPORT VornFileHandler
{
public:
    // Configuration

    /// Text behind the number in the name of every numbered folder; empty before init().
    static QString mFolderSuffix;
    static QDir mMMCLocation; ///< DCIM directory of the eMMC; "/tmp" before init()
    static QDir mSDLocation;  ///< DCIM directory of the SD card; "/tmp" before init()
    static QDir mUSBLocation; ///< DCIM directory of the USB storage; "/tmp" before init()
    static QString mMmcBlk;   ///< block device of the eMMC, as /proc/partitions names it; empty before init()
    static QString mSdBlk;    ///< block device of the SD card; empty before init()
    static QString mUsbBlk;   ///< block device of the USB storage; empty before init()
    /// Whether init() has run. For the host: no operation looks at it.
    static bool mbIsLibInitialized;

    /// Replaces the whole configuration.
    ///
    /// A location is a storage's DCIM directory, in which the numbered folders lie; a relative one is
    /// resolved against the current directory whenever a path is built. A block name is the device's name
    /// in /proc/partitions, "mmcblk1p1" for instance. Nothing is checked and nothing is created.
    /// Prints the start banner, three lines in red, at every call.
    ///
    /// Mount path and block name reach a shell unquoted (isMounted(), getStorageSize() and their
    /// relatives): they must come from a source that the host trusts.
    static void init(QString folderSuffix, QString mmcLocation, QString mmcBlk, QString sdLocation,
                     QString sdBlk, QString usbLocation, QString usbBlk);

    /// Block name of @p type, of the SD card and the USB storage too. For an unsupported storage prints
    /// the line "Unsupported storage type" and gives an empty text.
    static QString typeToMmcBlk(VORN_FILE_HANDLER::eStorageType type);

    /// Mount path of @p type: the absolute path of its location without any "DCIM" in it, so that
    /// /mnt/sd/DCIM gives "/mnt/sd/". Every occurrence goes, inside other names too; lower case stays. For
    /// an unsupported storage prints the line "Unsupported storage type" and gives an empty text.
    static QString typeToMountPath(VORN_FILE_HANDLER::eStorageType type);

    /// Location of @p type, which may not exist; "/tmp" for an unsupported storage.
    static QDir getStorageDir(VORN_FILE_HANDLER::eStorageType type);

    // Paths and names
    //
    // Paths are filled in with QString::arg one value after the other, so a "%1" inside a location or a
    // suffix is taken for a marker and filled by a later value. No path built here is tested for existence.

    /// Path of the numbered folder @p folderNumber: location, "/", the number without padding, suffix.
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// Path of a media file: numbered folder, "/DCF_", the number with at least four digits, ".",
    /// @p extension.
    static QString getFilePath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber, int fileNumber,
                               QString extension);

    /// Path of the folder @p folderName in the location. The name is not checked: it may be empty, hold
    /// "/" or be "..".
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// Extension of a file type, without a dot; empty for folders, unknown files and any other value.
    /// FILE_TYPE_AUDIO gives "avi"; ask with FILE_TYPE_AUDIO_WAV for "wav".
    static QString getFileExtension(VORN_FILE_HANDLER::eFileTypes fileType);

    /// Creates the folder @p path with all missing parents. A failure is not reported.
    static void createFolder(QString path);
    /// The same as createFolder().
    static void createDCIMFolder(QString path);
    /// Deletes the folder @p path with everything in it; an empty path is the current directory. Blocks
    /// until all is gone. A failure is not reported; what could not be deleted stays.
    static void deleteFolder(QString path);
    /// The same as deleteFolder().
    static void deleteDCIMFolder(QString path);
    /// Creates a numbered folder, and the location if it is missing. A failure is not reported.
    static void createDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Deletes a numbered folder with everything in it. A failure is not reported.
    static void deleteDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Creates a folder in the location, "a/b" with both levels. A failure is not reported.
    static void createFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);
    /// Deletes a folder of the location with everything in it. The name is not checked: an empty one
    /// deletes the whole location, ".." the directory above it. A failure is not reported.
    static void deleteFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// The first eight characters from the last "/" of @p path on, the "/" included: "/DCF_000" for
    /// /media/sd/DCIM/100ABC/DCF_0007.jpg, but "DCF_0007" for the bare name.
    static QString getDosBaseName(QString path);

    // Folder numbering

    /// The folders of the location whose names end in the folder suffix, case ignored, in the order of
    /// QDir::Name. The rest of the name may be anything; wildcard characters in the suffix act; with an
    /// empty suffix "." and ".." are in the list. Hidden folders and symbolic links are not.
    ///
    /// A missing location is created, with the line "root dir <location> doesn't exist. Create it". Where
    /// no folder matches, folder 100 is created; where that fails, or does not match either because of
    /// wildcards in the suffix, the list is empty. Reads the location once, after such a creation twice.
    static QList<QFileInfo> getDCIMFolders(VORN_FILE_HANDLER::eStorageType storage);

    /// Number of the current folder: the last of getDCIMFolders() whose name, less every occurrence of the
    /// suffix (its case minded), is a decimal number. That is the last in name order: 1000 sorts before 101.
    /// 100 when there is none, whether or not such a folder exists.
    ///
    /// Creates and prints what getDCIMFolders() does; for each folder passed over prints the line
    /// "directory is not a number, continue to check remaining directories".
    static int getLastDirectoryNum(VORN_FILE_HANDLER::eStorageType storage);

    // File numbering

    /// The number in the last media file of a numbered folder in name order; 0 when there is none.
    /// Media files are DCF_*.jpg, .png, .avi, .mkv and .wav, case ignored; thumbnails do not count. The
    /// number is the first eight characters less every "DCF_" (capitals only), read as a decimal number.
    ///
    /// For a missing folder prints the line "directory <folder> doesn't exist"; for each file passed over
    /// the line "problem finding the file number in this filename, continue to the next file".
    static int getLastFileNum(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// The number for the next file in the current folder: getLastFileNum() plus one, gaps are never
    /// filled. After 9999 it creates the folder after the current one and gives 1, whether or not that
    /// succeeded. Foreign names may make it 0 or negative: "DCF_-005" gives -4.
    /// Creates and prints what getLastDirectoryNum() and getLastFileNum() do.
    static int getNextFileNum(VORN_FILE_HANDLER::eStorageType storage);

    /// Full path for the next recording of type @p fileType. The file is not created and the name not
    /// reserved: until the host writes the file, every call gives the same path.
    ///
    /// Behind DCF_9999 in folder 999 the numbers are used up: folder 1000 is created, but it never becomes
    /// the current one, and DCF_0001 in folder 999 is named again and again. A host must look whether the
    /// file exists before it writes. Creates and prints what getNextFileNum() and then
    /// getLastDirectoryNum() do. Reads the location twice and the current folder once.
    static QString getNextFileName(VORN_FILE_HANDLER::eStorageType storage,
                                   VORN_FILE_HANDLER::eFileTypes fileType);

    // Listings
    //
    // A file listing holds regular files only: no folders, no symbolic links, no hidden files. Name filters
    // are QDir wildcards, case ignored; an empty list takes every file. Names that are no valid UTF-8 are
    // never listed. Size and times of an entry are those of the listing if it was ordered by time or size;
    // otherwise they are read when first asked for.

    /// The files of one directory in the order @p sort. A directory with name filters of its own keeps
    /// them when @p nameFilters is empty. For a missing directory prints the line
    /// "directory <path> doesn't exist" and gives an empty list.
    static QList<QFileInfo> getDirectoryContents(QDir directory, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// The same for the directory @p path; an empty path is the current directory.
    static QList<QFileInfo> getDirectoryContents(QString path, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// The folders of a storage that @p filter takes, in the order of QDir::Name. For
    /// DIRECTORY_FILTER_DCIM the same as getDCIMFolders(), creations included. Otherwise a missing location
    /// is created, with the line "root dir <location> doesn't exist. Create it"; hidden folders, symbolic
    /// links, "." and ".." are left out. For DIRECTORY_FILTER_NON_DCIM pattern characters in the suffix act
    /// as a regular expression, and a suffix that is no valid one leaves the list whole.
    static QList<QFileInfo> getFolders(VORN_FILE_HANDLER::eStorageType storage,
                                       VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The files of all folders that @p filter takes: folder by folder in the order of getFolders(), in
    /// each the oldest modification first (QDir::Time | QDir::Reversed; equal times in descending name
    /// order). Files beside the folders and files further down are not listed. Creates and prints what
    /// getFolders() does; for a folder that has gone meanwhile prints "directory <folder> doesn't exist".
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 QStringList nameFilters,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The same without name filters.
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    // Media lists
    //
    // Extensions are matched without regard to case. Each list is one storage listing (the images' are two)
    // and creates and prints what that does.

    /// The images of a storage: all JPEG files, with the thumbnails among them if @p thumbnails is set, and
    /// behind them all PNG files of all folders. The folders are selected twice, once for each of the two.
    static QList<QFileInfo> getImageList(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The videos of a storage, AVI and Matroska in one order.
    static QList<QFileInfo> getVideoList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The WAV sounds of a storage.
    static QList<QFileInfo> getAudioList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// Number of media files directly in @p directory: .jpg, .png, .avi, .mkv and .wav, not thumbnails.
    /// For a missing directory prints the line "<path> doesn't exist" and gives 0.
    static int getMediaFileCount(QDir directory);

    /// Number of media files in the folders of getDCIMFolders(); with an empty suffix the location and its
    /// parent directory are among these. Creates and prints what getDCIMFolders() does.
    static int getMediaFileCount(VORN_FILE_HANDLER::eStorageType storage);

    /// Deletes the location of a storage itself with everything in it: numbered folders, other folders,
    /// loose files. Blocks until all is gone. A failure is not reported; what could not be deleted stays.
    ///
    /// An unsupported storage, and before init() every storage, is "/tmp", which then goes. Creates and
    /// prints what getDCIMFolders() does: a missing location is created and deleted again. The location is
    /// not created anew; the next listing or allocation does that.
    static void deleteAllFiles(VORN_FILE_HANDLER::eStorageType storage);

    // JSON file list

    /// One object per file, in the order of @p files:
    ///   "filename"  the absolute path without the location (every occurrence of it): "100ABC/DCF_0001.jpg"
    ///   "size"      bytes, as hexadecimal text: "0x1000"
    ///   "type"      eFileTypes as a number: 16 .jpg and .png, 20 .thumb, 32 .avi, 34 .mkv, 64 .wav (in
    ///               lower case), 128 a folder, -1 anything else
    ///   "moddate"   local date of the file's creation, "2025-02-25"
    ///   "modtime"   local time of the file's creation, "14:03:59"
    /// Date and time are empty for a file without a creation time. Where the file system keeps none, that
    /// of the last change of status stands in. For an unsupported storage the array is empty.
    /// The files need not lie on the storage. Prints nothing.
    static QJsonArray getJsonFileList(VORN_FILE_HANDLER::eStorageType storage, QList<QFileInfo> files);

    /// getJsonFileList() of getImageList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONImageList(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails);
    /// getJsonFileList() of getVideoList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONVideoList(VORN_FILE_HANDLER::eStorageType storage);
    /// getJsonFileList() of getAudioList() with DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONAudioList(VORN_FILE_HANDLER::eStorageType storage);
    /// getJsonFileList() of getDirectoryContents() with DIRECTORY_FILTER_DCIM: every file.
    static QJsonArray getJSONDirectoryContents(VORN_FILE_HANDLER::eStorageType storage);
    /// getJsonFileList() of getDirectoryContents() with @p nameFilters and DIRECTORY_FILTER_DCIM.
    static QJsonArray getJSONDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                               QStringList nameFilters);

    // Devices and capacity
    //
    // Each query starts processes, blocks until they have ended, without a time limit, and remembers
    // nothing. Block name and mount path reach the shell unquoted: whoever may choose them may run any
    // command, and a mount path with a blank in it is taken apart, which gives 0 or the figures of another
    // file system. An unsupported storage gives false or 0, with the line "Unsupported storage type" for each
    // look at its block device.
    //
    // Before Linux 5.4, Qt needs SIGCHLD to learn that a process has ended: there a host must not block it,
    // nor replace its handler after the first process was started.

    /// Runs a program and waits until it ends.
    ///
    /// @param command  the program, looked up on PATH; with empty @p arguments a whole command line, split at
    ///                 white space: a double quote keeps what follows together up to the next one or to the
    ///                 end of the line, three in a row are one literal quote, single quotes are ordinary
    /// @param arguments  handed to the program as they are, without a shell in between
    /// @param stdOut   replaced by the program's standard output, read as UTF-8 up to the first zero byte
    /// @param stdErr   the same of its standard error
    /// @param timeout  limit in milliseconds, -1 for none; a program that still runs then is killed
    /// @return the exit code narrowed to eight bits (255 gives -1), for a program that crashed its signal;
    ///         0 for a program that could not be started or was killed at the limit
    ///
    /// Prints nothing. Its standard input stays open and empty: a program that reads it waits forever.
    /// May be called on several threads at once, with or without an application object.
    static qint8 execCmdLine(QString command, QStringList arguments, QString &stdOut, QString &stdErr,
                             int timeout = -1);

    /// Whether /proc/partitions lists the storage's block device (also as a part of another name: mmcblk1
    /// is found in mmcblk1p1); false for an empty name. Starts sh, cat and grep once.
    static bool isMounted(VORN_FILE_HANDLER::eStorageType type);

    /// Bytes free for users on the file system at the storage's mount path, as df reports them; 0 when not
    /// mounted, when the answer is not one number, and beyond 2 TiB. Starts isMounted()'s processes, then sh,
    /// df and awk.
    static qint64 getRemainingBytes(VORN_FILE_HANDLER::eStorageType type);

    /// Size in bytes of that file system; 0 as above. Starts isMounted()'s processes, then sh, df and awk.
    static qint64 getStorageSize(VORN_FILE_HANDLER::eStorageType type);

    /// Free space in percent of the size, rounded; 0 as above, and when df reports more free space than size.
    /// Starts five pipelines.
    static int getRemainingPercent(VORN_FILE_HANDLER::eStorageType type);

    /// Size less free space in bytes, reckoned in single precision: for tens of gigabytes it is a few
    /// kilobytes coarse. 0 as above. Starts five pipelines.
    static qint64 getUsedBytes(VORN_FILE_HANDLER::eStorageType type);

    // Transfer

    /// Copies @p files, one after the other, into the folder @p folder of the location of @p type, which is
    /// created if missing, also for an empty list. Mode, owner and times are kept.
    ///
    /// A name that is taken gets a counter: DCF_0001_1.jpg to DCF_0001_999.jpg, from the text before the
    /// first dot and behind the last (a.b.c gives a_1.c, README gives README_1.README). If all are taken,
    /// the last one is overwritten. Starts one "cp -p" per file, without a shell, and waits for each
    /// without a time limit. Failures are not reported, and the copies are not flushed to the device. A
    /// folder is not copied, of a symbolic link its target is; a relative source that begins with "-" is an
    /// option to cp. @p folder is not checked: "../x" leaves the location.
    static void copyToFolder(QStringList files, VORN_FILE_HANDLER::eStorageType type, QString folder);

    /// copyToFolder(), then deletes every source (of a symbolic link the link, a folder not), whether or not
    /// its copy succeeded: a move whose copy failed loses the file. A host that cannot afford that copies,
    /// compares and deletes by itself.
    static void moveToFolder(QStringList files, VORN_FILE_HANDLER::eStorageType type, QString folder);

    /// Deletes one file. A failure is not reported.
    static void deleteFile(QString path);

    // Metadata

    /// Finds the type of @p file (as in getJsonFileList()) and fills @p metadata with Metadata::set().
    /// Needs no init(). May run on several threads at once, each with a record of its own.
    static void getMetadata(QFileInfo file, Metadata &metadata);
};

/// What is known of one file or folder.
///
/// A copy takes the fields from mType to mFramerate only: the four counts of an assigned record stay what
/// they were, those of a copy-constructed record are 0. Filling a record again does not clear it: fields
/// that do not belong to the new type keep what they held.
class VORN_FILE_HANDLER_EXPORT Metadata
{
public:
    VORN_FILE_HANDLER::eFileTypes mType = VORN_FILE_HANDLER::FILE_TYPE_UNKNOWN; ///< type of the file
    QString mFileName;                                                          ///< name without directory
    qint64 mSize = 0;        ///< bytes; of a folder the sum of the files directly in it
    QDateTime mCreated;      ///< creation, or last change of status where none is kept; local time
    QDateTime mLastModified; ///< last modification, local time
    int mWidth = 0;          ///< pixels; -1 for an image that cannot be read
    int mHeight = 0;         ///< pixels; -1 for an image that cannot be read
    int mLength = 0;         ///< 60 for videos and sounds: a fixed figure, not measured
    int mBitrate = 0;        ///< 6000 for videos and sounds: a fixed figure, not measured
    int mFramerate = 0;      ///< 30 for videos: a fixed figure, not measured
    int mImageCount = 0;     ///< of a folder: its images
    int mThumbCount = 0;     ///< of a folder: its thumbnails
    int mVideoCount = 0;     ///< of a folder: its videos
    int mAudioCount = 0;     ///< of a folder: its sounds

    /// A record of an unknown file: type -1, all figures 0, name and dates empty.
    Metadata();
    /// A record filled by set(); what set() does not reach is 0.
    Metadata(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);
    Metadata(const Metadata &other);            ///< copies all but the counts, which are 0
    Metadata &operator=(const Metadata &other); ///< copies all but the counts, which stay

    void setType(VORN_FILE_HANDLER::eFileTypes type); ///< stores mType and nothing else
    int getMediaCategory(); ///< mType AND 0xF0: 16 image, 32 video, 64 audio, 128 folder, 240 unknown

    /// setType(), then setFile().
    void set(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);

    /// Fills the record from @p file according to the type it has: name and dates; for a folder
    /// setDirectorySize() and setDirectoryContent(); for anything else size, resolution and the fixed
    /// figures. A missing file has size 0 and no dates. Prints and starts what those operations do.
    void setFile(QFileInfo file);

    void setLength(QFileInfo &file);    ///< mLength = 60 for videos and sounds; the file is not read
    void setBitrate(QFileInfo &file);   ///< mBitrate = 6000 for videos and sounds; the file is not read
    void setFramerate(QFileInfo &file); ///< mFramerate = 30 for videos; the file is not read

    /// Fills mWidth and mHeight, for an image or thumbnail from the header of the file (-1 and -1 if it
    /// cannot be read; what the image libraries print about damaged data is not held back), for a video by
    /// starting ffprobe through sh, which blocks until ffprobe has ended, without a time limit. The path
    /// reaches the shell unquoted: a host must not have names with blanks or shell characters probed.
    /// Without an answer from ffprobe the fields stay as they are; for other types, too.
    void setResolution(QFileInfo &file);

    /// Fills the four counts from the names directly in @p folder (extensions in lower case). Does nothing
    /// unless the record's type is a folder. For a missing folder the counts are 0 and the line
    /// "directory <folder> doesn't exist" is printed.
    void setDirectoryContent(QFileInfo &folder);

    /// mSize = the sum of the sizes of the files directly in @p folder, whatever the record's type. For a
    /// missing folder 0, with the line "directory <folder> doesn't exist".
    void setDirectorySize(QFileInfo &folder);

    /// Writes @p comment into the picture @p file as the EXIF tag Exif.Photo.UserComment, in place of an
    /// earlier one. The file is rewritten in place; the record is neither read nor changed.
    ///
    /// @return 0 when written; 1, with the line "Error: File does not exist: <path>" or (where Exiv2 gives no
    ///         image and no exception) "Error: Cannot open input file <path>", in no colour, on standard
    ///         error
    /// @throws an exception of Exiv2, derived from std::exception, for everything else, a file that is no
    ///         picture or cannot be read above all; the file is then as Exiv2 left it
    ///
    /// Exiv2 drops or mangles some comments without an error (characters beyond U+FFFF, more than about
    /// 32,000 characters in a JPEG): where that matters, write to a copy and read it back. Each call
    /// registers one more function with atexit(). Must not run on two threads at once, nor beside other
    /// users of Exiv2.
    int setComment(QFileInfo file, QString comment);

    /// 0xFF 0xFE, then each byte of @p text followed by 0x00, then 0x00 0x00. UTF-16LE for ASCII only: a
    /// character of several bytes becomes as many units.
    std::vector<uint8_t> utf8ToUtf16LE(const std::string &text);
};

#endif // VORNFILEHANDLER_H
