// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A folder: the picture of its last recording, its name and the number of recordings.
Item {
    id: tile

    readonly property string name: model.name
    readonly property size pictureSize: Qt.size(164, 104)
    property bool hasKeys
    signal clicked

    Rectangle {
        id: picture
        x: 6
        y: 6
        width: tile.pictureSize.width
        height: tile.pictureSize.height
        radius: 8
        color: Theme.surface
        Icon {
            name: "folder"
            size: 40
            opacity: 0.4
            anchors.centerIn: parent
            visible: !cover.isShown
        }
        Picture {
            id: cover
            source: model.cover
            sourceSize: tile.pictureSize
        }
        Rectangle {
            anchors.fill: parent
            radius: parent.radius
            color: "#40ffffff"
            visible: area.pressed
        }
    }
    Label {
        id: nameLabel
        anchors { left: picture.left; top: picture.bottom; topMargin: 6; right: countLabel.left; rightMargin: 6 }
        text: tile.name
        font.weight: Font.DemiBold
    }
    Label {
        id: countLabel
        anchors { right: picture.right; baseline: nameLabel.baseline }
        text: model.count
        color: Theme.secondary
        font.pixelSize: Theme.caption
    }
    FocusRing { isShown: tile.hasKeys && tile.GridView.isCurrentItem }
    MouseArea {
        id: area
        anchors.fill: parent
        onClicked: tile.clicked()
    }
}
