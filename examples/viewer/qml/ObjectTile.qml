// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A recording in the grid. It is kept simple, because the grid creates many of them while it scrolls.
Item {
    id: tile

    readonly property string base: model.base
    readonly property size pictureSize: Qt.size(141, 102)
    property bool hasKeys
    signal clicked
    signal held

    Rectangle {
        id: picture
        x: 4
        y: 4
        width: tile.pictureSize.width
        height: tile.pictureSize.height
        radius: 8
        color: Theme.surface
        Icon {
            objectName: "placeholder"
            name: ["photo", "video", "audio", "photo"][model.kind]
            size: 32
            opacity: 0.4
            anchors.centerIn: parent
            visible: !image.isShown
        }
        Picture {
            id: image
            source: model.tile
            sourceSize: tile.pictureSize
        }
        Rectangle {
            anchors { left: parent.left; bottom: parent.bottom; margins: 6 }
            width: 26
            height: 26
            radius: 13
            color: Theme.shade
            visible: model.kind === 1
            Icon { name: "play"; size: 16; anchors.centerIn: parent }
        }
        Rectangle {
            objectName: "lock"
            anchors { right: parent.right; top: parent.top; margins: 6 }
            width: 26
            height: 26
            radius: 13
            color: Theme.shade
            visible: model.isProtected
            Icon { name: "lock"; size: 16; anchors.centerIn: parent }
        }
        Rectangle {
            anchors.fill: parent
            radius: parent.radius
            color: area.pressed ? "#40ffffff" : "#50f0b24a"
            visible: area.pressed || model.isSelected
        }
        Rectangle {
            anchors.centerIn: parent
            width: 40
            height: 40
            radius: 20
            color: Theme.accent
            visible: model.isSelected
            Icon { name: "check"; anchors.centerIn: parent }
        }
    }
    Label {
        anchors { left: picture.left; right: picture.right; top: picture.bottom; topMargin: 4; leftMargin: 2 }
        text: tile.base
        color: Theme.secondary
        font.pixelSize: Theme.caption
    }
    FocusRing { isShown: tile.hasKeys && tile.GridView.isCurrentItem }
    MouseArea {
        id: area
        anchors.fill: parent
        onClicked: tile.clicked()
        onPressAndHold: tile.held()
    }
}
