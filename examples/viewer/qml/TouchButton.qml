// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A button with an icon, text, or both.
Item {
    id: button

    property string icon
    property string text
    property color color: Theme.raised
    signal clicked

    implicitWidth: Math.max(Theme.touch, content.implicitWidth + 2 * 18)
    implicitHeight: Theme.touch
    activeFocusOnTab: true
    opacity: enabled ? 1 : 0.4
    Accessible.role: Accessible.Button
    Accessible.name: text
    Keys.onPressed: {
        if (!Navigation.isEnter(event) && event.key !== Qt.Key_Space)
            return
        event.accepted = true
        clicked()
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.radius
        color: area.pressed ? Qt.lighter(button.color, 1.3) : button.color
    }
    Row {
        id: content
        anchors.centerIn: parent
        spacing: 10
        Icon {
            name: button.icon
            visible: button.icon !== ""
            anchors.verticalCenter: parent.verticalCenter
        }
        Label {
            text: button.text
            visible: button.text !== ""
            anchors.verticalCenter: parent.verticalCenter
        }
    }
    FocusRing { isShown: button.activeFocus }
    MouseArea {
        id: area
        anchors.fill: parent
        onClicked: button.clicked()
    }
}
