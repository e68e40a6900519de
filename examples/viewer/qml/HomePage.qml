// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The storage devices, and the folders of the selected one.
FocusScope {
    id: page

    Rectangle {
        id: sidebar
        width: 256
        height: parent.height
        color: Theme.surface
    }
    Label {
        id: heading
        x: 24
        height: Theme.header
        verticalAlignment: Text.AlignVCenter
        text: qsTr("Recordings")
        font { pixelSize: 26; weight: Font.DemiBold }
    }
    ListView {
        id: devices
        objectName: "devices"
        anchors { left: sidebar.left; right: sidebar.right; top: heading.bottom; bottom: parent.bottom }
        anchors.margins: Theme.gap
        focus: true
        spacing: 8
        clip: true
        model: viewer.devices
        currentIndex: viewer.storageRow
        highlightMoveDuration: 0
        delegate: DeviceCard {
            width: ListView.view.width
            isCurrent: ListView.isCurrentItem
            hasKeys: devices.activeFocus
            onClicked: viewer.showStorage(model.type)
        }
        Keys.onPressed: {
            event.accepted = true
            if (event.key === Qt.Key_Up && currentIndex > 0)
                viewer.showStorage(itemAtIndex(currentIndex - 1).type)
            else if (event.key === Qt.Key_Down && currentIndex < count - 1)
                viewer.showStorage(itemAtIndex(currentIndex + 1).type)
            else if (folders.count > 0 && (event.key === Qt.Key_Right || Navigation.isEnter(event)))
                folders.forceActiveFocus()
            else
                event.accepted = false
        }
    }
    Connections {
        target: viewer
        function onStorageChanged() { folders.currentIndex = 0 }
    }
    GridView {
        id: folders
        objectName: "folders"
        anchors { left: sidebar.right; right: parent.right; top: heading.bottom; bottom: parent.bottom }
        anchors { leftMargin: Theme.gap; rightMargin: 4 }
        cellWidth: 176
        cellHeight: 152
        clip: true
        model: viewer.folders
        highlightMoveDuration: 0
        delegate: FolderTile {
            width: folders.cellWidth
            height: folders.cellHeight
            hasKeys: folders.activeFocus
            onClicked: {
                folders.currentIndex = index
                folders.forceActiveFocus()
                viewer.showFolder(model.name)
            }
        }
        Keys.onPressed: {
            const isFirstColumn = currentIndex < 0 || currentIndex % Math.floor(width / cellWidth) === 0
            event.accepted = true
            if (Navigation.isEnter(event) && currentItem)
                viewer.showFolder(currentItem.name)
            else if (Navigation.isBack(event) || (event.key === Qt.Key_Left && isFirstColumn))
                devices.forceActiveFocus()
            else
                event.accepted = false
        }
    }
    EmptyState {
        anchors.centerIn: folders
        visible: folders.count === 0 && !viewer.isLoading
        icon: "device" + viewer.storage
        title: viewer.isStoragePresent ? qsTr("No recordings") : viewer.storageTitle
        hint: viewer.isStoragePresent ? qsTr("Your recordings will appear here.")
                                      : qsTr("Insert the storage device to see its recordings.")
    }
    Label {
        anchors { left: folders.left; leftMargin: 6; verticalCenter: heading.verticalCenter }
        text: viewer.storageTitle
        color: Theme.secondary
        font.pixelSize: Theme.title
    }
}
