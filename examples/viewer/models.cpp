// SPDX-License-Identifier: MIT
#include "models.h"

#include "imageprovider.h"

#include <QDateTime>
#include <QLocale>

#include <algorithm>

namespace {

QString sizeText(qint64 bytes)
{
    return QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat);
}

QString tileOf(const MediaObject &object)
{
    return imageUrl(TILES, object.picture(), object.modified + object.size); // FAT keeps times of two seconds
}

} // namespace

DeviceModel::DeviceModel()
    : EntryModel({
        {"type", [](const StorageDevice &device) -> QVariant { return int(device.type); }},
        {"title", [](const StorageDevice &device) -> QVariant { return titleOf(device.type); }},
        {"isPresent", [](const StorageDevice &device) -> QVariant { return device.isPresent; }},
        {"isReadOnly", [](const StorageDevice &device) -> QVariant { return device.isReadOnly; }},
        {"sizeText", [](const StorageDevice &device) -> QVariant { return sizeText(device.size); }},
        {"freeText", [](const StorageDevice &device) -> QVariant { return sizeText(device.free); }},
        {"used",
         [](const StorageDevice &device) -> QVariant {
             return device.size > 0 ? 1 - double(device.free) / double(device.size) : 0.0;
         }},
    })
{
}

FolderModel::FolderModel()
    : EntryModel({
        {"name", [](const Folder &folder) -> QVariant { return folder.name; }},
        {"count", [](const Folder &folder) -> QVariant { return folder.count; }},
        {"cover",
         [](const Folder &folder) -> QVariant {
             return folder.count > 0 ? tileOf(folder.cover) : QString();
         }},
    })
{
}

ObjectModel::ObjectModel()
    : EntryModel({
        {"base", [](const MediaObject &object) -> QVariant { return object.base; }},
        {"kind", [](const MediaObject &object) -> QVariant { return int(object.kind); }},
        {"isProtected", [](const MediaObject &object) -> QVariant { return object.isProtected; }},
        {"tile", [](const MediaObject &object) -> QVariant { return tileOf(object); }},
        {"poster",
         [](const MediaObject &object) -> QVariant {
             return imageUrl(PICTURES, object.picture(), object.modified);
         }},
        {"photo",
         [](const MediaObject &object) -> QVariant {
             const bool isPhoto = object.kind == MediaObject::Photo;
             return isPhoto ? imageUrl(PICTURES, object.recording(), object.modified) : QString();
         }},
        {"path", [](const MediaObject &object) -> QVariant { return object.recording(); }},
        {"time",
         [](const MediaObject &object) -> QVariant {
             return QLocale().toString(QDateTime::fromMSecsSinceEpoch(object.modified), QLocale::ShortFormat);
         }},
    })
{
}

void ObjectModel::toggle(int row)
{
    const QString base = baseAt(row);
    if (!mSelection.remove(base))
        mSelection.insert(base);
    emit dataChanged(index(row), index(row), {SELECTED});
    emit selectionChanged();
}

void ObjectModel::clearSelection()
{
    if (mSelection.isEmpty())
        return;
    mSelection.clear();
    emit dataChanged(index(0), index(rowCount() - 1), {SELECTED});
    emit selectionChanged();
}

QString ObjectModel::baseAt(int row) const
{
    return entries().value(row).base;
}

bool ObjectModel::isAnyProtected(const QStringList &bases) const
{
    const QSet<QString> wanted(bases.begin(), bases.end());
    return std::any_of(entries().begin(), entries().end(), [&](const MediaObject &object) {
        return object.isProtected && wanted.contains(object.base);
    });
}

QVariant ObjectModel::data(const QModelIndex &index, int role) const
{
    return role == SELECTED ? mSelection.contains(baseAt(index.row())) : EntryModel::data(index, role);
}

QHash<int, QByteArray> ObjectModel::roleNames() const
{
    QHash<int, QByteArray> names = EntryModel::roleNames();
    names.insert(SELECTED, "isSelected");
    return names;
}

void ObjectModel::setObjects(const MediaObjects &objects)
{
    setEntries(objects);
    QSet<QString> remaining;
    for (const MediaObject &object : objects) {
        if (mSelection.contains(object.base))
            remaining.insert(object.base);
    }
    mSelection = remaining;
    emit selectionChanged(); // also if the protection of an object has changed
}
