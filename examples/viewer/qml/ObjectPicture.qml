// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The picture of a recording, as large as the screen. The thumbnail is shown until the photo has been read.
Item {
    id: item

    readonly property string base: model.base
    readonly property int kind: model.kind
    readonly property string path: model.path
    readonly property string time: model.time
    readonly property bool isProtected: model.isProtected
    signal clicked

    Icon {
        anchors.centerIn: parent
        name: ["photo", "video", "audio", "photo"][model.kind]
        size: 96
        opacity: 0.4
        visible: !poster.isShown && !photo.isShown && model.kind !== 1
    }
    Picture {
        id: poster
        anchors.fill: parent
        fillMode: Image.PreserveAspectFit
        source: model.poster
        sourceSize: Theme.screen
        visible: !photo.isShown
    }
    Picture {
        id: photo
        objectName: "photo"
        anchors.fill: parent
        fillMode: Image.PreserveAspectFit
        source: model.photo
        sourceSize: Theme.screen
    }
    MouseArea {
        anchors.fill: parent
        onClicked: item.clicked()
    }
}
