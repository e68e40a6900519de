// SPDX-License-Identifier: MIT
#include "galleryfiles.h"

#include "durable.h"
#include "errors.h"
#include "files.h"
#include "gallerypage.h"
#include "signals.h"
#include "text.h"

#include <QDir>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

namespace {

/// The path that a symbolic link leads to; @p path if it is not a link.
QString linkTarget(const QString &path)
{
    const QFileInfo file(path);
    return file.isSymLink() ? linkTarget(file.symLinkTarget()) : path;
}

TemporaryFile temporaryIn(const QString &folder, const QString &concerning)
{
    removeLeftovers(folder);
    return TemporaryFile(folder, concerning);
}

/// The number in the name of a page; 0 if it is not the name of a page.
int pageNumber(const QString &name)
{
    const int number = name.section('.', 0, 0).toInt();
    return name == PageFolder::pageName(number) ? number : 0;
}

} // namespace

PageFile::PageFile(const QString &path)
    : mPath(path), mTarget(linkTarget(path)), mTemporary(temporaryIn(QFileInfo(mTarget).path(), path))
{
    mFile.open(mTemporary.descriptor(), QIODevice::WriteOnly);
}

void PageFile::write(const QByteArray &piece)
{
    if (isStopped())
        throw Failure(QString("interrupted; %1 was not written").arg(mPath));
    if (mFile.write(piece) != piece.size())
        throw FileFailure(mPath, "cannot be written: " + mFile.errorString());
}

void PageFile::finish()
{
    if (!mFile.flush())
        throw FileFailure(mPath, "cannot be written: " + mFile.errorString());
    setModeFrom(mTarget, mTemporary.descriptor());
    replaceFile(mTemporary, mTarget);
}

PageFolder::PageFolder(const QString &index)
    : mIndex(index), mPath(index.left(index.lastIndexOf('.')) + "-pages")
{
}

QString PageFolder::pageName(int number)
{
    return QString("%1.html").arg(number);
}

QString PageFolder::linkTo(int number) const
{
    return QFileInfo(mPath).fileName() + "/" + pageName(number);
}

QString PageFolder::linkToIndex() const
{
    return "../" + QFileInfo(mIndex).fileName();
}

bool PageFolder::isOwnPage(const QString &name) const
{
    return pageNumber(name) > 0 && isPartOfGallery(mPath + "/" + name, linkToIndex());
}

void PageFolder::requireOwn() const
{
    const auto everything = QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot;
    for (const QString &name : QDir(mPath).entryList(everything)) {
        if (!isOwnPage(name))
            throw Failure(QString("%1: exists and contains '%2', which is not a page of this gallery; use "
                                  "--force to write into this folder")
                              .arg(mPath, printable(name)));
    }
}

QStringList PageFolder::pagesFrom(int first) const
{
    QStringList paths;
    for (const QString &name : QDir(mPath).entryList({"*.html"}, QDir::Files | QDir::NoSymLinks)) {
        if (pageNumber(name) >= first && isOwnPage(name))
            paths.append(mPath + "/" + name);
    }
    return paths;
}

void PageFolder::removePages(int first) const
{
    const QStringList paths = pagesFrom(first);
    for (const QString &path : paths) {
        if (::unlink(QFile::encodeName(path).constData()) != 0)
            throw FileFailure(path, "belongs to the old gallery and cannot be deleted: " + errorText(errno));
    }
    if (paths.isEmpty())
        return;
    if (::rmdir(QFile::encodeName(mPath).constData()) != 0)
        flushFolder(mPath);
}
