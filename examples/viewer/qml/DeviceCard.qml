// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A storage device: its name, and how full it is or that it is absent.
Item {
    id: card

    readonly property int type: model.type
    property bool isCurrent
    property bool hasKeys // its list has the focus
    signal clicked

    height: 116

    Rectangle {
        anchors.fill: parent
        radius: Theme.radius
        color: area.pressed ? Theme.pressed : card.isCurrent ? Theme.raised : Theme.surface
    }
    Rectangle { // marks the current storage device
        visible: card.isCurrent
        width: 4
        height: parent.height - 40
        radius: 2
        anchors.verticalCenter: parent.verticalCenter
        color: Theme.accent
    }
    Column {
        anchors { fill: parent; leftMargin: 20; rightMargin: 16; topMargin: 16 }
        spacing: 10
        opacity: model.isPresent ? 1 : 0.5
        Row {
            spacing: 12
            Icon { name: "device" + model.type }
            Label {
                text: model.title
                font.weight: Font.DemiBold
            }
        }
        CapacityBar {
            width: parent.width
            visible: model.isPresent
            used: model.used
            fill: model.used > 0.9 ? Theme.danger : Theme.accent
        }
        Label {
            width: parent.width
            color: Theme.secondary
            font.pixelSize: Theme.caption
            text: !model.isPresent ? qsTr("Not inserted")
                : model.isReadOnly ? qsTr("Write-protected")
                                   : qsTr("%1 free of %2").arg(model.freeText).arg(model.sizeText)
        }
    }
    FocusRing { isShown: card.hasKeys && card.isCurrent }
    MouseArea {
        id: area
        anchors.fill: parent
        onClicked: card.clicked()
    }
}
