// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Window 2.15
import "."

/// A question in front of the page, which is darkened. Opening it takes the focus; closing it gives the focus back.
FocusScope {
    id: dialog

    property string title
    property string text
    property Item previousFocus
    default property alias content: column.data

    anchors.fill: parent
    visible: false

    function open(firstFocus) {
        previousFocus = Window.activeFocusItem
        visible = true
        firstFocus.forceActiveFocus()
    }

    function close() {
        if (!visible)
            return
        visible = false
        if (previousFocus)
            previousFocus.forceActiveFocus()
    }

    Keys.onPressed: {
        event.accepted = true // the page behind must not react
        if (Navigation.isBack(event))
            close()
        else
            Navigation.moveFocus(event, Window.activeFocusItem, dialog)
    }

    Rectangle {
        anchors.fill: parent
        color: Theme.shade
    }
    MouseArea { // keeps touches from the page
        anchors.fill: parent
        onClicked: dialog.close()
    }
    Rectangle {
        anchors.centerIn: parent
        width: 460
        height: column.height + 2 * 24
        radius: 18
        color: Theme.surface
        border { width: 1; color: Theme.line }
        MouseArea { anchors.fill: parent }
        Column {
            id: column
            x: 24
            y: 24
            width: parent.width - 2 * 24
            spacing: 16
            Label {
                width: parent.width
                text: dialog.title
                wrapMode: Text.Wrap
                font { pixelSize: Theme.title; weight: Font.DemiBold }
            }
            Label {
                width: parent.width
                visible: text !== ""
                text: dialog.text
                wrapMode: Text.Wrap
                color: Theme.secondary
            }
        }
    }
}
