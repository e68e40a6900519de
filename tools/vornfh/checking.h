// SPDX-License-Identifier: MIT
#ifndef CHECKING_H
#define CHECKING_H

#include "numbering.h"
#include "objects.h"
#include "storages.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <functional>
#include <vector>

/// What the command "repair" does about a finding.
enum class Remedy {
    NotNeeded, // a player or the library may skip it, but no content is damaged
    None,      // it cannot be repaired
    Delete,
    Restore, // see removeLeftovers()
    Close,   // see closeRecording()
    MakeThumbnail,
};

/// Something that a player would reject, or that the library skips or can no longer reach.
struct Finding {
    QByteArray path;
    QString kind;
    QString text;
    Remedy remedy = Remedy::NotNeeded;
    QString recording; // the one whose thumbnail must be made

    QString file() const; // the path, escaped if it is not valid UTF-8
    bool isRepairable() const { return remedy != Remedy::NotNeeded && remedy != Remedy::None; }
    QJsonObject toJson() const;
};

struct CheckOptions {
    bool hasContents = true;   // files are opened
    bool isReadingAll = false; // files are read to their ends and decoded
    bool isDcf = false;        // names must follow the camera standard (DCF)
    std::function<void(const Finding &)>
        report; // called for each finding as soon as it is known; may be empty
};

struct CheckResult {
    QList<Finding> findings;
    int folders = 0;
    int files = 0;
    Numbering numbering;
};

/// Checks the numbered folders of a storage device, and the names of the other entries in its location.
/// Throws Failure if the location cannot be read.
CheckResult checkStorage(const Storage &storage, const CheckOptions &options);

/// Checks the files in one numbered folder.
CheckResult checkFolder(const QString &path, const CheckOptions &options);

/// The repairable findings about the newest object, and about the files that interrupted commands have left
/// behind: the part of checkStorage() that reads no other file. @p folders are those of numberedObjects().
QList<Finding> quickFindings(const Storage &storage, const std::vector<NumberedFolder> &folders);

#endif // CHECKING_H
