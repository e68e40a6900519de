// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Window 2.15
import "."

/// The top of a page: a back button, a title with a line below it, and what the page adds.
Item {
    id: header

    property alias title: titleLabel.text
    property alias subtitle: subtitleLabel.text
    property alias subtitleColor: subtitleLabel.color
    property string backIcon: "back"
    default property alias content: extras.data
    signal back

    function takeFocus() {
        backButton.forceActiveFocus()
    }

    height: Theme.header
    Keys.onPressed: {
        event.accepted = true
        if (Navigation.isBack(event))
            back()
        else if (event.key === Qt.Key_Down || !Navigation.moveFocus(event, Window.activeFocusItem, header))
            event.accepted = false
    }

    TouchButton {
        id: backButton
        objectName: "back"
        anchors { left: parent.left; leftMargin: Theme.gap / 2; verticalCenter: parent.verticalCenter }
        icon: header.backIcon
        color: "transparent"
        onClicked: header.back()
    }
    Column {
        anchors { left: backButton.right; leftMargin: 4; right: extras.left; verticalCenter: parent.verticalCenter }
        spacing: 2
        Label {
            id: titleLabel
            width: parent.width
            font { pixelSize: Theme.title; weight: Font.DemiBold }
        }
        Label {
            id: subtitleLabel
            width: parent.width
            color: Theme.secondary
            font.pixelSize: Theme.caption
        }
    }
    Row {
        id: extras
        anchors { right: parent.right; rightMargin: Theme.gap; verticalCenter: parent.verticalCenter }
        spacing: 8
    }
}
