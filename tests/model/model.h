// SPDX-License-Identifier: MIT
#ifndef MODEL_H
#define MODEL_H

#include "tree.h"

/// The layout of the storages, said a second time over a tree in memory: with no regard to speed, with no
/// look at a disk, and with one way for every name.
class Model : public Tree
{
public:
    enum Order { ByName, ByNameReversed, NewestFirst, OldestFirst };

    using Tree::Tree;

    QString suffix;
    QByteArray printed; ///< what the operations said on standard error

    QString location(int storage) const;
    QString folderPath(int storage, int number) const;
    QString folderPath(int storage, const QString &name) const;

    void removeAll(int storage);

    QStringList numberedFolders(int storage);
    QStringList folders(int storage, int filter);
    QStringList files(const QString &folder, const QStringList &filters, Order order);
    QStringList files(int storage, const QStringList &filters, int filter);
    QStringList images(int storage, bool thumbnails, int filter);
    int mediaCount(const QString &folder);
    int mediaCount(int storage);

    int lastFolder(int storage);
    int lastFile(int storage, int folder);
    int nextFile(int storage);
    QString nextName(int storage, int type);

    void copy(const QStringList &files, int storage, const QString &folder);
    void move(const QStringList &files, int storage, const QString &folder);

    static int typeOf(const QString &name);

private:
    void print(const QString &text) { printed += "\x1b[36m " + text.toUtf8() + " \x1b[0m\n"; }
    void ensureLocation(int storage);
    QString freePath(const QString &folder, const QString &name);
};

#endif // MODEL_H
