// SPDX-License-Identifier: MIT
#ifndef GALLERYFILES_H
#define GALLERYFILES_H

#include "temporary.h"

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>

/// A page that is written under a hidden name. Throws FileFailure for the path of the page.
class PageFile
{
public:
    /// The page will replace @p path, or the file it leads to if that is a symbolic link.
    explicit PageFile(const QString &path);

    /// Appends a piece of the page. Throws Failure if the tool is to stop.
    void write(const QByteArray &piece);

    /// Puts the page in its place.
    void finish();

private:
    QString mPath;
    QString mTarget;
    TemporaryFile mTemporary;
    QFile mFile;
};

/// The folder with the pages of a gallery that does not fit on one page: "sd-pages" for the index "sd.html".
class PageFolder
{
public:
    explicit PageFolder(const QString &index);

    QString path() const { return mPath; }
    QString pagePath(int number) const { return mPath + "/" + pageName(number); }
    static QString pageName(int number);
    /// The path of a page relative to the folder of the index.
    QString linkTo(int number) const;
    /// The path of the index relative to this folder.
    QString linkToIndex() const;

    /// Throws Failure if the folder contains anything but pages of this gallery and hidden files.
    void requireOwn() const;

    /// The paths of the pages of an earlier gallery, from number @p first on.
    QStringList pagesFrom(int first) const;

    /// Deletes them, and then the folder if it is empty. The folder above is not flushed.
    void removePages(int first) const;

private:
    bool isOwnPage(const QString &name) const;

    QString mIndex;
    QString mPath;
};

#endif // GALLERYFILES_H
