// SPDX-License-Identifier: MIT
#ifndef TREE_H
#define TREE_H

#include <QByteArray>
#include <QStringList>

#include <map>

/// A file, folder or link of the tree in memory. Names are bytes, as they are on a disk.
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
    Node take(const QByteArray &path);                  ///< cuts an entry out
    QList<QByteArray> entries(const QByteArray &path);  ///< paths of all that lies below
    QList<QByteArray> listing() const { return describe(mTop, ""); } ///< as tests see a tree on a disk

    bool isFolder(const QString &path);
    void makeFolder(const QString &path);
    void removeFolder(const QString &path);
    void removeFile(const QString &path);

    /// The names in a folder that a directory listing shows, in name order.
    QStringList names(const QString &folder, Node::Kind kind);

    /// A path that ends in "/." or "/.." without these.
    static QString plain(QString path);

private:
    Node *parentOf(const QByteArray &path);
    Node *entry(const QByteArray &path); ///< not what a link leads to
    QList<QByteArray> describe(const Node &folder, const QByteArray &prefix) const;

    Node mTop;
};

#endif // TREE_H
