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

/// The storages of the device. Any other value is an unsupported storage: an operation works on /tmp then,
/// unless its comment says otherwise.
enum eStorageType : int {
    STORAGE_MMC = 0, ///< internal eMMC
    STORAGE_SD = 1,  ///< SD card
    STORAGE_USB = 2, ///< USB mass storage
};

/// Kinds of files. A value's media category is the value AND 0xF0: 16 image, 32 video, 64 audio,
/// 128 folder.
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

/// Which folders of a storage a listing covers. The two values are not complementary: with the suffix ABC, a
/// folder 1000ABC is covered by both. Any other value covers every folder.
enum eDIRECTORY_FILTER : int {
    DIRECTORY_FILTER_DCIM = 1,      ///< the folders of VornFileHandler::getDCIMFolders
    DIRECTORY_FILTER_NON_DCIM = 16, ///< all but those named with three digits and the suffix
};

VORN_FILE_HANDLER_EXPORT extern const QString JPEG_FILE_EXT;  ///< "jpg"
VORN_FILE_HANDLER_EXPORT extern const QString PNG_FILE_EXT;   ///< "png"
VORN_FILE_HANDLER_EXPORT extern const QString THUMB_FILE_EXT; ///< "thumb"
VORN_FILE_HANDLER_EXPORT extern const QString AVI_FILE_EXT;   ///< "avi"
VORN_FILE_HANDLER_EXPORT extern const QString MKV_FILE_EXT;   ///< "mkv"
VORN_FILE_HANDLER_EXPORT extern const QString WAV_FILE_EXT;   ///< "wav"

} // namespace VORN_FILE_HANDLER

class Metadata;

/// The media storages of a camera: numbered folders with numbered files on up to three storages. This class
/// and Metadata are in the global namespace, their enumerations in VORN_FILE_HANDLER.
///
/// In these comments a location is a storage's DCIM directory (/mnt/sd/DCIM), a folder is a directory in a
/// location, and a directory is any directory.
///
/// The host calls init() once; every other operation then works with the configuration given to it. All
/// operations are synchronous. None throws, except Metadata::setComment(). A failure gives an empty value,
/// false, or 0. Diagnostic lines go to standard error, only where a comment says so, in cyan:
/// "\e[36m <text> \e[0m" and a line feed. A directory that exists but cannot be read lists as an empty one,
/// without a line.
///
/// The numbering lives in the names on the storage alone. Nothing is cached and nothing is locked: init()
/// must not run concurrently with any other operation, and the host must serialise recordings on a storage,
/// because two callers that ask for a name before either has created its file get the same one.
class VORN_FILE_HANDLER_EXPORT VornFileHandler
{
public:
    // Configuration

    /// Text after the number in the name of every numbered folder; empty before init().
    static QString mFolderSuffix;
    static QDir mMMCLocation; ///< location of the eMMC; "/tmp" before init()
    static QDir mSDLocation;  ///< location of the SD card; "/tmp" before init()
    static QDir mUSBLocation; ///< location of the USB storage; "/tmp" before init()
    static QString mMmcBlk;   ///< block device of the eMMC, as /proc/partitions names it; empty before init()
    static QString mSdBlk;    ///< block device of the SD card; empty before init()
    static QString mUsbBlk;   ///< block device of the USB storage; empty before init()
    /// Whether init() has run. For the host's use: no operation looks at it.
    static bool mbIsLibInitialized;

    /// Replaces the whole configuration.
    ///
    /// A relative location is resolved against the current directory whenever a path is built. A block name
    /// is the device's name in /proc/partitions, for example "mmcblk1p1"; it may be empty, and isMounted() is
    /// then false. Nothing is checked and nothing is created. Prints the start banner, three lines in red, at
    /// every call.
    ///
    /// Locations and block names reach a shell unquoted (see isMounted() and the capacity queries): they must
    /// come from a source that the host trusts.
    static void init(QString folderSuffix, QString mmcLocation, QString mmcBlk, QString sdLocation,
                     QString sdBlk, QString usbLocation, QString usbBlk);

    /// Block name of @p type: any of the three storages, despite the name. For an unsupported storage prints
    /// the line "Unsupported storage type" and gives an empty text.
    static QString typeToMmcBlk(VORN_FILE_HANDLER::eStorageType type);

    /// Mount path of @p type: the absolute path of its location with every "DCIM" removed, so that
    /// /mnt/sd/DCIM gives "/mnt/sd/". Occurrences inside other names go too; lower case stays. For an
    /// unsupported storage prints the line "Unsupported storage type" and gives an empty text.
    static QString typeToMountPath(VORN_FILE_HANDLER::eStorageType type);

    /// Location of @p type, which may not exist; "/tmp" for an unsupported storage.
    static QDir getStorageDir(VORN_FILE_HANDLER::eStorageType type);

    // Paths and names
    //
    // Paths are filled in with QString::arg, one value after the other, so a "%1" inside a location or a
    // suffix is taken for a marker and filled by a later value. No path built here is tested for existence.

    /// Path of the numbered folder @p folderNumber: location, "/", the number without padding, suffix.
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// Path of a media file: numbered folder, "/DCF_", the number with at least four digits, ".",
    /// @p extension. With THUMB_FILE_EXT it is the path of the file's thumbnail.
    static QString getFilePath(VORN_FILE_HANDLER::eStorageType storage, int folderNumber, int fileNumber,
                               QString extension);

    /// Path of the folder @p folderName in the location. The name is not checked: it may be empty, hold
    /// "/" or be "..".
    static QString getDirPath(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// Extension of a file type, without a dot; empty for FILE_TYPE_DIRECTORY, FILE_TYPE_UNKNOWN and any
    /// value outside the enumeration. FILE_TYPE_AUDIO gives "avi"; for "wav" ask with FILE_TYPE_AUDIO_WAV.
    static QString getFileExtension(VORN_FILE_HANDLER::eFileTypes fileType);

    /// Creates the directory @p path with all missing parents. A failure is not reported.
    static void createFolder(QString path);
    /// The same as createFolder().
    static void createDCIMFolder(QString path);
    /// Deletes the directory @p path with everything in it; an empty path is the current directory. Blocks
    /// until all is gone. A failure is not reported; what could not be deleted stays.
    static void deleteFolder(QString path);
    /// The same as deleteFolder().
    static void deleteDCIMFolder(QString path);
    /// Creates a numbered folder, and the location if it is missing. A failure is not reported.
    static void createDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Deletes a numbered folder with everything in it. A failure is not reported.
    static void deleteDCIMFolder(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);
    /// Creates a folder in the location; "a/b" creates both levels. A failure is not reported.
    static void createFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);
    /// Deletes a folder of the location with everything in it. The name is not checked: an empty one deletes
    /// the whole location, ".." the directory above it. A failure is not reported.
    static void deleteFolder(VORN_FILE_HANDLER::eStorageType storage, QString folderName);

    /// The first eight characters starting at the last "/" of @p path, which is included: "/DCF_000" for
    /// /media/sd/DCIM/100ABC/DCF_0007.jpg, but "DCF_0007" for the bare name.
    static QString getDosBaseName(QString path);

    // Folder numbering

    /// The folders of the location whose names end in the suffix, case ignored, in the order of QDir::Name.
    /// The rest of the name may be anything. Wildcard characters in the suffix are interpreted. With an empty
    /// suffix, "." and ".." are in the list. Hidden folders and symbolic links are not.
    ///
    /// A missing location is created, with the line "root dir <location> doesn't exist. Create it". If no
    /// folder matches or the location cannot be read, folder 100 is created and the location read again; the
    /// list is empty if that fails, or if wildcards in the suffix keep folder 100 from matching.
    static QList<QFileInfo> getDCIMFolders(VORN_FILE_HANDLER::eStorageType storage);

    /// Number of the current folder: the last of getDCIMFolders() whose name, with every occurrence of the
    /// suffix removed (case-sensitively), is a decimal number. Last means last in name order: 1000 sorts
    /// before 101. 100 when there is none, whether or not folder 100 exists.
    ///
    /// Creates and prints what getDCIMFolders() does; for each folder skipped prints the line
    /// "directory is not a number, continue to check remaining directories".
    static int getLastDirectoryNum(VORN_FILE_HANDLER::eStorageType storage);

    // File numbering

    /// The number in the last media file, in name order, of a numbered folder; 0 when there is none, or when
    /// the folder cannot be read. Media files are DCF_*.jpg, .png, .avi, .mkv and .wav, case ignored;
    /// thumbnails do not count. The number is the first eight characters with every "DCF_" (upper case only)
    /// removed, read as a decimal number.
    ///
    /// For a missing folder prints the line "directory <folder> doesn't exist"; for each file skipped the
    /// line "problem finding the file number in this filename, continue to the next file".
    static int getLastFileNum(VORN_FILE_HANDLER::eStorageType storage, int folderNumber);

    /// The number for the next file in the current folder: getLastFileNum() plus one; gaps are never filled.
    /// After 9999 it creates the next folder and gives 1, whether or not that succeeded. Foreign names may
    /// make it 0 or negative: "DCF_-005" gives -4.
    /// Creates and prints what getLastDirectoryNum() and getLastFileNum() do.
    static int getNextFileNum(VORN_FILE_HANDLER::eStorageType storage);

    /// Full path for the next recording of type @p fileType. The file is not created and the name not
    /// reserved: until the host creates the file, every call gives the same path. Once a recording exists, a
    /// call with FILE_TYPE_THUMB gives the next number, so the host builds the thumbnail's path from the
    /// recording's. A type without an extension gives a path that ends in ".".
    ///
    /// After DCF_9999 in folder 999 the numbers are used up: folder 1000 is created but never becomes the
    /// current one, and DCF_0001 in folder 999 is named again and again. A host must therefore open the file
    /// exclusively (O_EXCL, QIODevice::NewOnly). Creates and prints what getNextFileNum() and then
    /// getLastDirectoryNum() do. Reads the location twice and the current folder once.
    static QString getNextFileName(VORN_FILE_HANDLER::eStorageType storage,
                                   VORN_FILE_HANDLER::eFileTypes fileType);

    // Listings
    //
    // A file listing holds regular files only: no directories, no symbolic links, no hidden files. Name
    // filters are QDir wildcards, case ignored; an empty list of filters takes every file. Names that are not
    // valid UTF-8 are never listed. Size and times of an entry are those at the moment of the listing if it
    // was ordered by time or size; otherwise they are read when first asked for.

    /// The files of one directory in the order @p sort. A QDir with name filters of its own keeps them when
    /// @p nameFilters is empty. For a missing directory prints the line "directory <path> doesn't exist" and
    /// gives an empty list; an unreadable one gives an empty list without a line.
    static QList<QFileInfo> getDirectoryContents(QDir directory, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// The same for the directory @p path; an empty path is the current directory.
    static QList<QFileInfo> getDirectoryContents(QString path, QStringList nameFilters,
                                                 QFlags<QDir::SortFlag> sort);

    /// The folders of a storage that @p filter covers, in the order of QDir::Name. For DIRECTORY_FILTER_DCIM
    /// the same as getDCIMFolders(), including what it creates. Otherwise a missing location is created, with
    /// the line "root dir <location> doesn't exist. Create it"; hidden folders, symbolic links, "." and ".."
    /// are left out. For DIRECTORY_FILTER_NON_DCIM the suffix is part of a regular expression; if that is
    /// not valid, no folder is left out.
    static QList<QFileInfo> getFolders(VORN_FILE_HANDLER::eStorageType storage,
                                       VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The files of all folders that @p filter covers: folder by folder in the order of getFolders(), in each
    /// the oldest modification first (QDir::Time | QDir::Reversed; equal times in descending name order).
    /// Files in the location itself and in subdirectories of the folders are not listed. Creates and prints
    /// what getFolders() does; for a folder that has meanwhile gone prints the line
    /// "directory <folder> doesn't exist".
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 QStringList nameFilters,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The same without name filters.
    static QList<QFileInfo> getDirectoryContents(VORN_FILE_HANDLER::eStorageType storage,
                                                 VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    // Media lists
    //
    // Extensions are matched without regard to case. Each list is one storage listing (images: two) and
    // creates and prints what that does.

    /// The images of a storage: first the JPEG files of all folders, with the thumbnails among them if
    /// @p thumbnails is set, then the PNG files of all folders. Location and folders are read twice.
    static QList<QFileInfo> getImageList(VORN_FILE_HANDLER::eStorageType storage, bool thumbnails,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The videos of a storage, AVI and Matroska in one order.
    static QList<QFileInfo> getVideoList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// The WAV sounds of a storage.
    static QList<QFileInfo> getAudioList(VORN_FILE_HANDLER::eStorageType storage,
                                         VORN_FILE_HANDLER::eDIRECTORY_FILTER filter);

    /// Number of media files directly in @p directory: .jpg, .png, .avi, .mkv and .wav, not thumbnails.
    /// For a missing directory prints the line "<path> doesn't exist" and gives 0; an unreadable one gives 0
    /// without a line.
    static int getMediaFileCount(QDir directory);

    /// Number of media files in the folders of getDCIMFolders(); with an empty suffix these include the
    /// location itself and its parent directory. Creates and prints what getDCIMFolders() does.
    static int getMediaFileCount(VORN_FILE_HANDLER::eStorageType storage);

    /// Deletes the location of a storage with everything in it: numbered folders, other folders, loose files,
    /// and the location itself, which the next listing or allocation creates again. Blocks until all is gone.
    /// A failure is not reported; what could not be deleted stays.
    ///
    /// The location of an unsupported storage, and of every storage before init(), is /tmp: it is deleted.
    /// Creates and prints what getDCIMFolders() does: a missing location is created and deleted again.
    static void deleteAllFiles(VORN_FILE_HANDLER::eStorageType storage);

    // JSON file list

    /// One object per file, in the order of @p files:
    ///   "filename"  the absolute path with every occurrence of "<location>/" removed: "100ABC/DCF_0001.jpg"
    ///   "size"      bytes, as hexadecimal text: "0x1000"
    ///   "type"      eFileTypes as a number, by the extension, which must be in lower case: 16 .jpg and .png,
    ///               20 .thumb, 32 .avi, 34 .mkv, 64 .wav; 128 a directory, -1 anything else
    ///   "moddate"   despite the key, local date of the file's creation: "2025-02-25"
    ///   "modtime"   despite the key, local time of the file's creation: "14:03:59"
    /// Where the file system keeps no creation time, date and time are those of the last status change; for a
    /// missing file they are empty. For an unsupported storage the array is empty. The files need not be on
    /// the storage. Prints nothing.
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
    // Each query starts processes, waits for them without a time limit, and remembers nothing. Block name and
    // mount path reach the shell unquoted: whoever may choose them may run any command, and a mount path with
    // a space in it is split, which gives 0 or the figures of another file system. An unsupported storage
    // gives false or 0, with the line "Unsupported storage type" for each query of its block device.
    //
    // Before Linux 5.4, Qt needs SIGCHLD to learn that a process has ended: there a host must not block it,
    // nor replace its handler after the first process was started.

    /// Runs a program and waits until it ends.
    ///
    /// @param command  the program, looked up on PATH; with empty @p arguments a whole command line, split at
    ///                 white space: a double quote keeps what follows together up to the next one or to the
    ///                 end of the line, three in a row are one literal quote, single quotes are ordinary
    /// @param arguments  passed to the program as they are, without a shell in between
    /// @param stdOut   replaced by the program's standard output, read as UTF-8 up to the first zero byte
    /// @param stdErr   likewise for its standard error
    /// @param timeout  limit in milliseconds, -1 for none; a program still running then is killed
    /// @return the exit code narrowed to eight bits (255 gives -1), or the signal number of a program that
    ///         crashed; 0 also for a program that could not be started or was killed at the limit
    ///
    /// Prints nothing. The program's standard input stays open and empty: a program that reads it waits
    /// forever. May be called on several threads at once, with or without an application object.
    static qint8 execCmdLine(QString command, QStringList arguments, QString &stdOut, QString &stdErr,
                             int timeout = -1);

    /// Whether /proc/partitions lists the storage's block device (also as part of another name: mmcblk1 is
    /// found in mmcblk1p1); false for an empty name. It does not look at mounts: a card that is inserted but
    /// not mounted gives true. Starts sh, cat and grep once.
    static bool isMounted(VORN_FILE_HANDLER::eStorageType type);

    /// Bytes available to users on the file system that holds the storage's mount path, as df reports them.
    /// For a card that is present but not mounted that is the file system of the mount point, usually the
    /// root's. 0 when isMounted() is false, when the mount path does not exist or the answer is not one
    /// number, and beyond 2 TiB. Starts isMounted()'s processes, then sh, df and awk.
    static qint64 getRemainingBytes(VORN_FILE_HANDLER::eStorageType type);

    /// Size in bytes of that file system; 0 as above. Starts isMounted()'s processes, then sh, df and awk.
    static qint64 getStorageSize(VORN_FILE_HANDLER::eStorageType type);

    /// getRemainingBytes() in percent of getStorageSize(), rounded; 0 as above, and when df reports more free
    /// space than size. Starts five pipelines.
    static int getRemainingPercent(VORN_FILE_HANDLER::eStorageType type);

    /// getStorageSize() minus getRemainingBytes(), so including space reserved for root. Computed in single
    /// precision: for tens of gigabytes the result is off by up to a few kilobytes. 0 as above. Starts five
    /// pipelines.
    static qint64 getUsedBytes(VORN_FILE_HANDLER::eStorageType type);

    // Transfer

    /// Copies @p files, one after the other, into the folder @p folder of the location of @p type. The folder
    /// is created if missing, also for an empty list, and stays if nothing could be copied into it. Mode,
    /// owner and times are kept.
    ///
    /// A name that is taken gets a counter: DCF_0001_1.jpg to DCF_0001_999.jpg, made of the text before the
    /// first dot and the text after the last (a.b.c gives a_1.c, README gives README_1.README). If all are
    /// taken, the last one is overwritten. Starts one "cp -p" per file, without a shell, and waits for each
    /// without a time limit. Failures are not reported (a full storage leaves a truncated copy), and the
    /// copies are not flushed to the device. Directories are not copied; a symbolic link is copied as the
    /// file it points to; a relative source that begins with "-" is an option to cp. @p folder is not
    /// checked: "../x" leaves the location.
    static void copyToFolder(QStringList files, VORN_FILE_HANDLER::eStorageType type, QString folder);

    /// copyToFolder(), then deletes every source that is a file or a symbolic link, whether or not its copy
    /// succeeded: a move whose copy failed loses the file. A host that cannot afford that must copy, compare
    /// and delete by itself.
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
/// A copy takes only the fields from mType to mFramerate: the four counts of an assigned record stay as they
/// were, those of a copy-constructed record are 0. Filling a record again does not clear it: fields that do
/// not belong to the new type keep their values.
class VORN_FILE_HANDLER_EXPORT Metadata
{
public:
    VORN_FILE_HANDLER::eFileTypes mType = VORN_FILE_HANDLER::FILE_TYPE_UNKNOWN; ///< type of the file
    QString mFileName;                                                          ///< name without path
    qint64 mSize = 0;        ///< bytes; of a folder, the sum of the files directly in it
    QDateTime mCreated;      ///< creation, or last status change where none is kept; local time
    QDateTime mLastModified; ///< last modification, local time
    int mWidth = 0;          ///< pixels; -1 for an image that cannot be read
    int mHeight = 0;         ///< pixels; -1 for an image that cannot be read
    int mLength = 0;         ///< 60 for videos and sounds: a fixed figure, not measured
    int mBitrate = 0;        ///< 6000 for videos and sounds: a fixed figure, not measured
    int mFramerate = 0;      ///< 30 for videos: a fixed figure, not measured
    int mImageCount = 0;     ///< of a folder: number of images
    int mThumbCount = 0;     ///< of a folder: number of thumbnails
    int mVideoCount = 0;     ///< of a folder: number of videos
    int mAudioCount = 0;     ///< of a folder: number of sounds

    /// A record of an unknown file: type -1, all numbers 0, name and dates empty.
    Metadata();
    /// A record filled by set(); what set() does not reach is 0.
    Metadata(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);
    Metadata(const Metadata &other);            ///< copies all but the counts, which are 0
    Metadata &operator=(const Metadata &other); ///< copies all but the counts, which stay

    void setType(VORN_FILE_HANDLER::eFileTypes type); ///< stores mType and nothing else
    int getMediaCategory(); ///< mType AND 0xF0: 16 image, 32 video, 64 audio, 128 folder, 240 unknown

    /// setType(), then setFile().
    void set(VORN_FILE_HANDLER::eFileTypes type, QFileInfo file);

    /// Fills the record from @p file according to mType: name and dates; for a folder setDirectorySize() and
    /// setDirectoryContent(); for anything else size, resolution and the fixed figures. A missing file has
    /// size 0 and no dates. Prints and starts what those operations do.
    void setFile(QFileInfo file);

    void setLength(QFileInfo &file);    ///< mLength = 60 for videos and sounds; the file is not read
    void setBitrate(QFileInfo &file);   ///< mBitrate = 6000 for videos and sounds; the file is not read
    void setFramerate(QFileInfo &file); ///< mFramerate = 30 for videos; the file is not read

    /// Fills mWidth and mHeight. For an image or thumbnail they come from the header of the file (-1 and -1
    /// if it cannot be read; what the image libraries print about damaged data is not suppressed). For a
    /// video ffprobe is started through sh and waited for without a time limit; without an answer the fields
    /// stay as they are. The path reaches the shell unquoted: a host must not pass a name with spaces or
    /// shell characters. For other types the fields stay as they are.
    void setResolution(QFileInfo &file);

    /// Fills the four counts from the files directly in @p folder, by extensions in lower case. Does nothing
    /// unless mType is a folder. For a missing folder the counts are 0 and the line
    /// "directory <folder> doesn't exist" is printed; for an unreadable one they are 0 without a line.
    void setDirectoryContent(QFileInfo &folder);

    /// mSize = the sum of the sizes of the files directly in @p folder, whatever mType is. For a missing
    /// folder 0, with the line "directory <folder> doesn't exist"; for an unreadable one 0 without a line.
    void setDirectorySize(QFileInfo &folder);

    /// Writes @p comment into the picture @p file as the EXIF tag Exif.Photo.UserComment, in place of an
    /// earlier one. Exiv2 recognises the format by content, not by extension. The file is rewritten in place;
    /// the record is neither read nor changed.
    ///
    /// @return 0 when Exiv2 reported no error; 1 when the file does not exist, with the line
    ///         "Error: File does not exist: <path>", or when Exiv2 gives no image and no exception, with the
    ///         line "Error: Cannot open input file <path>"; both lines on standard error, without colour
    /// @throws an exception of Exiv2, derived from std::exception, for a file of a format that Exiv2 does not
    ///         know (text, an empty file) or cannot write EXIF data to (BMP, GIF), for damaged data, and for
    ///         anything that it cannot read or write; the file is then as Exiv2 left it
    ///
    /// A result of 0 does not prove that the comment is in the file. AVI, Matroska, MP4 and WAV files give 0
    /// and stay unchanged where Exiv2 is built with video support, as Debian's 0.27.6 is: it writes nothing
    /// to them, and reports no error. Some comments are dropped or mangled without an error: characters
    /// beyond U+FFFF, more than about 32,000 characters in a JPEG. Where that matters, write to a copy and
    /// read it back. Each call registers one more function with atexit(). Must not run on two threads at
    /// once, nor concurrently with other uses of Exiv2.
    int setComment(QFileInfo file, QString comment);

    /// 0xFF 0xFE, then each byte of @p text followed by 0x00, then 0x00 0x00. This is UTF-16LE for ASCII
    /// only: a character of several bytes becomes as many units.
    std::vector<uint8_t> utf8ToUtf16LE(const std::string &text);
};

#endif // VORNFILEHANDLER_H
