// SPDX-License-Identifier: MIT
#ifndef MODELS_H
#define MODELS_H

#include "catalog.h"
#include "entrymodel.h"

// The lists of the interface. Their roles are defined by the tables in models.cpp.

class DeviceModel : public EntryModel<StorageDevice>
{
public:
    DeviceModel();
};

class FolderModel : public EntryModel<Folder>
{
public:
    FolderModel();
};

/// The objects of a folder, some of which the user has selected.
class ObjectModel : public EntryModel<MediaObject>
{
    Q_OBJECT
    Q_PROPERTY(int selectionCount READ selectionCount NOTIFY selectionChanged)
    Q_PROPERTY(bool isSelectionProtected READ isSelectionProtected NOTIFY selectionChanged)

public:
    ObjectModel();

    int selectionCount() const { return mSelection.size(); }
    /// Returns whether a selected object is protected.
    bool isSelectionProtected() const { return isAnyProtected(selectedBases()); }
    Q_INVOKABLE QStringList selectedBases() const { return mSelection.values(); }
    Q_INVOKABLE void toggle(int row);
    Q_INVOKABLE void clearSelection();
    Q_INVOKABLE bool isAnyProtected(const QStringList &bases) const;

    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;
    void setObjects(const MediaObjects &objects);

signals:
    void selectionChanged();

private:
    QString baseAt(int row) const;

    static constexpr int SELECTED = Qt::UserRole - 1;

    QSet<QString> mSelection;
};

#endif // MODELS_H
