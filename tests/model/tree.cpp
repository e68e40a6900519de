// SPDX-License-Identifier: MIT
#include "tree.h"

#include <algorithm>

namespace {

bool isText(const QByteArray &name)
{
    return QString::fromUtf8(name).toUtf8() == name;
}

/// Deletes the entries that a directory listing contains. Returns whether the folder is then empty.
bool clear(Node &folder)
{
    for (auto child = folder.children.begin(); child != folder.children.end();) {
        const bool stays =
            !isText(child->first) || (child->second.kind == Node::Folder && !clear(child->second));
        child = stays ? std::next(child) : folder.children.erase(child);
    }
    return folder.children.empty();
}

} // namespace

QString MemoryTree::plain(QString path)
{
    while (path.endsWith('/'))
        path.chop(1);
    if (path.endsWith("/.."))
        return path.section('/', 0, -3);
    return path.endsWith("/.") ? path.chopped(2) : path;
}

Node *MemoryTree::find(const QByteArray &path)
{
    Node *node = &mTop;
    for (const QByteArray &name : path.mid(root.size()).split('/')) {
        if (name.isEmpty())
            continue;
        QByteArray wanted = name;
        auto child = node->children.find(wanted);
        for (int links = 0; child != node->children.end() && child->second.kind == Node::Link; ++links)
            child = links < 40 ? node->children.find(child->second.target) : node->children.end();
        if (child == node->children.end())
            return nullptr;
        node = &child->second;
    }
    return node;
}

Node *MemoryTree::parentOf(const QByteArray &path)
{
    Node *folder = find(path.left(path.lastIndexOf('/')));
    return folder && folder->kind == Node::Folder ? folder : nullptr;
}

Node *MemoryTree::entry(const QByteArray &path)
{
    Node *folder = parentOf(path);
    const QByteArray name = path.mid(path.lastIndexOf('/') + 1);
    return folder && folder->children.count(name) > 0 ? &folder->children[name] : nullptr;
}

bool MemoryTree::contains(const QByteArray &path)
{
    return entry(path) != nullptr;
}

bool MemoryTree::add(const QByteArray &path, const Node &node)
{
    Node *folder = parentOf(path);
    return folder && folder->children.emplace(path.mid(path.lastIndexOf('/') + 1), node).second;
}

Node MemoryTree::take(const QByteArray &path)
{
    return parentOf(path)->children.extract(path.mid(path.lastIndexOf('/') + 1)).mapped();
}

QByteArrayList MemoryTree::entries(const QByteArray &path)
{
    QByteArrayList paths;
    const Node *folder = entry(path);
    if (folder && folder->kind == Node::Folder)
        for (const auto &child : folder->children)
            paths += QByteArrayList{path + "/" + child.first} + entries(path + "/" + child.first);
    return paths;
}

QByteArrayList MemoryTree::describe(const Node &folder, const QByteArray &prefix) const
{
    QByteArrayList lines;
    for (const auto &[name, node] : folder.children) {
        const char *end = node.kind == Node::Folder ? "/" : node.kind == Node::Link ? " -> " : "";
        lines += prefix + name + end + node.target;
        lines += describe(node, prefix + name + "/");
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool MemoryTree::isFolder(const QString &path)
{
    const Node *node = find(plain(path).toUtf8());
    return node && node->kind == Node::Folder;
}

void MemoryTree::makeFolder(const QString &path)
{
    QByteArray part = root;
    for (const QByteArray &name : path.toUtf8().mid(root.size()).split('/')) {
        part += name.isEmpty() ? QByteArray() : "/" + name;
        if (!find(part))
            add(part, Node());
    }
}

void MemoryTree::removeFolder(const QString &path)
{
    const QByteArray bytes = plain(path).toUtf8();
    const Node *direct = entry(bytes);
    if (isFolder(path) && clear(*find(bytes)) && direct && direct->kind == Node::Folder)
        take(bytes);
}

void MemoryTree::removeFile(const QString &path)
{
    const Node *direct = entry(path.toUtf8());
    if (direct && direct->kind != Node::Folder)
        take(path.toUtf8());
}

QStringList MemoryTree::names(const QString &folder, Node::Kind kind)
{
    QStringList result;
    if (isFolder(folder))
        for (const auto &[name, node] : find(plain(folder).toUtf8())->children)
            if (node.kind == kind && !name.startsWith('.') && isText(name))
                result += QString::fromUtf8(name);
    std::sort(result.begin(), result.end());
    return result;
}
