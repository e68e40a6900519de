// SPDX-License-Identifier: MIT
#ifndef TREE_H
#define TREE_H

#include <QByteArrayList>
#include <QStringList>

#include <map>

/// A file, folder or link of the tree in memory. Names are bytes, as on a disk.
struct Node {
    enum Kind { File, Folder, Link };
    Kind kind = Folder;
    qint64 size = 0;
    qint64 modified = 0; ///< milliseconds since 1970
    QByteArray target;   ///< of a link: a name in the same folder, which may not exist
    std::map<QByteArray, Node> children;
};

/// A tree of files in memory. Paths are absolute and begin with that of the root.
class MemoryTree
{
public:
    explicit MemoryTree(const QString &rootPath) : root(rootPath.toUtf8()) {}

    const QByteArray root; ///< absolute path of the uppermost folder

    Node *find(const QByteArray &path);                 ///< follows links
    bool contains(const QByteArray &path);              ///< as an entry: a dangling link counts
    bool add(const QByteArray &path, const Node &node); ///< if the folder is there and the name free
    Node take(const QByteArray &path);                  ///< removes an entry and returns it
    QByteArrayList entries(const QByteArray &path);     ///< paths of everything below
    QByteArrayList listing() const { return describe(mTop, ""); } ///< in the format of tree()

    bool isFolder(const QString &path);
    void makeFolder(const QString &path);
    void removeFolder(const QString &path);
    void removeFile(const QString &path);

    /// The names in a folder that a directory listing shows, in name order.
    QStringList names(const QString &folder, Node::Kind kind);

    /// @p path without "/." or with "/.." resolved at the end.
    static QString plain(QString path);

private:
    Node *parentOf(const QByteArray &path);
    Node *entry(const QByteArray &path); ///< does not follow links
    QByteArrayList describe(const Node &folder, const QByteArray &prefix) const;

    Node mTop;
};

#endif // TREE_H
