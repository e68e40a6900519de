// SPDX-License-Identifier: MIT
#ifndef MODEL_H
#define MODEL_H

#include "tree.h"

#include <QRegularExpression>

#include <algorithm>

/// The rules of the library on a tree in memory: without regard to speed, without access to a disk, and with
/// one code path for all names.
class Model : public MemoryTree
{
public:
    enum Order { ByName, ByNameReversed, NewestFirst, OldestFirst };

    using MemoryTree::MemoryTree;

    QString suffix;
    QByteArray printed; ///< by the operations on standard error

    QString location(int storage) const
    {
        return QString::fromUtf8(root) + (storage == 0 ? "/mmc" : storage == 1 ? "/sd" : "/usb") + "/DCIM";
    }

    QString folderPath(int storage, int number) const
    {
        return QString("%1/%2%3").arg(location(storage)).arg(number).arg(suffix);
    }

    QString folderPath(int storage, const QString &name) const
    {
        return QString("%1/%2").arg(location(storage)).arg(name);
    }

    void removeAll(int storage)
    {
        if (!numberedFolders(storage).isEmpty())
            removeFolder(location(storage));
    }

    void ensureLocation(int storage)
    {
        if (isFolder(location(storage)))
            return;
        print("root dir " + location(storage) + " doesn't exist. Create it");
        makeFolder(location(storage));
    }

    QStringList numberedFolders(int storage)
    {
        ensureLocation(storage);
        const auto list = [&] {
            QStringList found = matching(names(location(storage), Node::Folder), {"*" + suffix});
            for (const char *dots : {".", ".."})
                if (isFolder(location(storage)) && matchesAny(dots, {"*" + suffix}))
                    found += dots;
            std::sort(found.begin(), found.end());
            return found.replaceInStrings(QRegularExpression("\\A"), location(storage) + "/");
        };
        if (list().isEmpty())
            makeFolder(folderPath(storage, 100));
        return list();
    }

    QStringList folders(int storage, int filter)
    {
        if (filter == 1)
            return numberedFolders(storage);
        ensureLocation(storage);
        QStringList found = names(location(storage), Node::Folder);
        const QRegularExpression numbered(QString("^[0-9]{3}%1$").arg(suffix));
        if (filter == 16 && numbered.isValid())
            found.erase(std::remove_if(found.begin(), found.end(),
                                       [&](const QString &name) { return numbered.match(name).hasMatch(); }),
                        found.end());
        return found.replaceInStrings(QRegularExpression("\\A"), location(storage) + "/");
    }

    QStringList files(const QString &folder, const QStringList &filters, Order order)
    {
        const QString path = plain(folder);
        if (!isFolder(path)) {
            print("directory " + path + " doesn't exist");
            return {};
        }
        QStringList found = matching(names(path, Node::File), filters);
        const auto modified = [&](const QString &name) {
            return find((path + "/" + name).toUtf8())->modified;
        };
        if (order == NewestFirst || order == OldestFirst)
            std::stable_sort(found.begin(), found.end(),
                             [&](const QString &a, const QString &b) { return modified(a) > modified(b); });
        if (order == ByNameReversed || order == OldestFirst)
            std::reverse(found.begin(), found.end());
        return found.replaceInStrings(QRegularExpression("\\A"), path + "/");
    }

    QStringList files(int storage, const QStringList &filters, int filter)
    {
        QStringList found;
        for (const QString &folder : folders(storage, filter))
            found += files(folder, filters, OldestFirst);
        return found;
    }

    QStringList images(int storage, bool thumbnails, int filter)
    {
        const QStringList photos =
            files(storage, thumbnails ? QStringList{"*.jpg", "*.thumb"} : QStringList{"*.jpg"}, filter);
        return photos + files(storage, {"*.png"}, filter);
    }

    int mediaCount(const QString &folder)
    {
        if (!isFolder(folder))
            print(plain(folder) + " doesn't exist");
        return matching(names(folder, Node::File), MEDIA).size();
    }

    int mediaCount(int storage)
    {
        int count = 0;
        for (const QString &folder : numberedFolders(storage))
            count += mediaCount(folder);
        return count;
    }

    int lastFolder(int storage)
    {
        const QStringList found = numberedFolders(storage);
        for (auto folder = found.rbegin(); folder != found.rend(); ++folder) {
            bool isNumber = false;
            const int number = folder->section('/', -1).replace(suffix, "").toInt(&isNumber);
            if (isNumber)
                return number;
            print("directory is not a number, continue to check remaining directories");
        }
        return 100;
    }

    int lastFile(int storage, int folder)
    {
        const QStringList found =
            files(folderPath(storage, folder), QStringList(MEDIA).replaceInStrings("*", "DCF_*"), ByName);
        for (auto file = found.rbegin(); file != found.rend(); ++file) {
            bool isNumber = false;
            const int number = file->section('/', -1).left(8).replace("DCF_", "").toInt(&isNumber);
            if (isNumber)
                return number;
            print("problem finding the file number in this filename, continue to the next file");
        }
        return 0;
    }

    int nextFile(int storage)
    {
        const int folder = lastFolder(storage);
        const int last = lastFile(storage, folder);
        if (last == 9999)
            makeFolder(folderPath(storage, folder + 1));
        return last == 9999 ? 1 : last + 1;
    }

    QString nextName(int storage, int type)
    {
        static const std::map<int, QString> EXTENSIONS = {{16, "jpg"},   {17, "jpg"}, {18, "png"},
                                                          {20, "thumb"}, {32, "avi"}, {33, "avi"},
                                                          {34, "mkv"},   {64, "avi"}, {65, "wav"}};
        const int file = nextFile(storage);
        const auto extension = EXTENSIONS.find(type);
        return QString("%1/%2%3.%4")
            .arg(folderPath(storage, lastFolder(storage)))
            .arg("DCF_")
            .arg(file, 4, 10, QChar('0'))
            .arg(extension == EXTENSIONS.end() ? "" : extension->second);
    }

    QString freePath(const QString &folder, const QString &name)
    {
        QString path = QString("%1/%2").arg(folder).arg(name);
        for (int i = 1; i < 1000 && find(path.toUtf8()); ++i)
            path = QString("%1/%2_%3.%4")
                       .arg(folder)
                       .arg(name.section('.', 0, 0))
                       .arg(i)
                       .arg(name.section('.', -1));
        return path;
    }

    void copy(const QStringList &files, int storage, const QString &folder)
    {
        makeFolder(folderPath(storage, folder));
        for (const QString &file : files) {
            const QString target = freePath(folderPath(storage, folder), file.section('/', -1));
            const Node *source = find(file.toUtf8());
            if (source && source->kind == Node::File)
                add(target.toUtf8(), Node(*source));
        }
    }

    void move(const QStringList &files, int storage, const QString &folder)
    {
        copy(files, storage, folder);
        for (const QString &file : files)
            removeFile(file);
    }

    static int typeOf(const QString &name)
    {
        static const std::map<QString, int> TYPES = {{"jpg", 16}, {"png", 16}, {"thumb", 20},
                                                     {"avi", 32}, {"mkv", 34}, {"wav", 64}};
        const auto type = TYPES.find(name.contains('.') ? name.section('.', -1) : QString());
        return type == TYPES.end() ? -1 : type->second;
    }

private:
    void print(const QString &text) { printed += "\x1b[36m " + text.toUtf8() + " \x1b[0m\n"; }

    const QStringList MEDIA = {"*.jpg", "*.png", "*.avi", "*.mkv", "*.wav"};

    static bool matchesAny(const QString &name, const QStringList &wildcards)
    {
        return wildcards.isEmpty()
               || std::any_of(wildcards.begin(), wildcards.end(), [&](const QString &wildcard) {
                      const QRegularExpression expression(
                          QRegularExpression::wildcardToRegularExpression(wildcard),
                          QRegularExpression::CaseInsensitiveOption);
                      return expression.isValid() && expression.match(name).hasMatch();
                  });
    }

    static QStringList matching(QStringList names, const QStringList &wildcards)
    {
        names.erase(std::remove_if(names.begin(), names.end(),
                                   [&](const QString &name) { return !matchesAny(name, wildcards); }),
                    names.end());
        return names;
    }
};

#endif // MODEL_H
