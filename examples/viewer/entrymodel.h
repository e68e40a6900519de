// SPDX-License-Identifier: MIT
#ifndef ENTRYMODEL_H
#define ENTRYMODEL_H

#include <QAbstractListModel>
#include <QSet>
#include <QVector>

/// A list of values for QML. An Entry has a key() that is unique in the list, and operator==.
template <typename Entry>
class EntryModel : public QAbstractListModel
{
public:
    struct Role {
        const char *name;
        QVariant (*value)(const Entry &entry);
    };

    explicit EntryModel(const QVector<Role> &roles) : mRoles(roles) {}

    int rowCount(const QModelIndex & /*parent*/ = QModelIndex()) const override { return mEntries.size(); }

    QVariant data(const QModelIndex &index, int role) const override
    {
        const int place = role - Qt::UserRole;
        if (!index.isValid() || place < 0 || place >= mRoles.size())
            return QVariant();
        return mRoles[place].value(mEntries[index.row()]);
    }

    QHash<int, QByteArray> roleNames() const override
    {
        QHash<int, QByteArray> names;
        for (const Role &role : mRoles)
            names.insert(Qt::UserRole + names.size(), role.name);
        return names;
    }

    const QVector<Entry> &entries() const { return mEntries; }

    /// Replaces the list. Rows that remain are kept, so that a view keeps its position. The rows that remain
    /// must be in the same order as before.
    void setEntries(const QVector<Entry> &entries)
    {
        removeOthers(keysOf(entries));
        insertMissing(entries);
        for (int row = 0; row < entries.size(); ++row) {
            if (mEntries[row] == entries[row])
                continue;
            mEntries[row] = entries[row];
            emit dataChanged(index(row), index(row));
        }
    }

private:
    using Keys = QSet<std::decay_t<decltype(std::declval<Entry>().key())>>;

    static Keys keysOf(const QVector<Entry> &entries)
    {
        Keys keys;
        keys.reserve(entries.size());
        for (const Entry &entry : entries)
            keys.insert(entry.key());
        return keys;
    }

    void removeOthers(const Keys &keys)
    {
        for (int last = mEntries.size() - 1; last >= 0; --last) {
            int first = last;
            while (first >= 0 && !keys.contains(mEntries[first].key()))
                --first;
            if (first == last)
                continue;
            beginRemoveRows(QModelIndex(), first + 1, last);
            mEntries.erase(mEntries.begin() + first + 1, mEntries.begin() + last + 1);
            endRemoveRows();
            last = first + 1;
        }
    }

    void insertMissing(const QVector<Entry> &entries)
    {
        const Keys present = keysOf(mEntries);
        for (int first = 0; first < entries.size(); ++first) {
            int next = first;
            while (next < entries.size() && !present.contains(entries[next].key()))
                ++next;
            if (next == first)
                continue;
            beginInsertRows(QModelIndex(), first, next - 1);
            mEntries = mEntries.mid(0, first) + entries.mid(first, next - first) + mEntries.mid(first);
            endInsertRows();
            first = next;
        }
    }

    const QVector<Role> mRoles;
    QVector<Entry> mEntries;
};

#endif // ENTRYMODEL_H
