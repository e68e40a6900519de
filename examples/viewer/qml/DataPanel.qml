// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The data of a recording.
Rectangle {
    id: panel

    property var details

    width: 300
    color: "#e6171c22"

    Column {
        anchors { fill: parent; margins: 20 }
        spacing: 12
        Repeater {
            model: [
                {title: qsTr("Resolution"), value: panel.details.resolution},
                {title: qsTr("Size"), value: panel.details.size},
                {title: qsTr("Created"), value: panel.details.created},
                {title: qsTr("Modified"), value: panel.details.modified},
                {title: qsTr("Files"), value: panel.details.files}
            ]
            Column {
                width: parent.width
                spacing: 2
                visible: !!modelData.value
                Label {
                    text: modelData.title
                    color: Theme.secondary
                    font.pixelSize: Theme.caption
                }
                Label {
                    objectName: "value"
                    width: parent.width
                    text: modelData.value || ""
                }
            }
        }
    }
}
