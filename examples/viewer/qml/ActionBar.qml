// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The actions on recordings, as buttons.
Row {
    id: bar

    property bool isProtected
    signal requested(string action)

    spacing: 8

    TouchButton {
        objectName: "copy"
        icon: "copy"
        text: qsTr("Copy")
        enabled: !viewer.isCopying
        onClicked: bar.requested("copy")
    }
    TouchButton {
        objectName: "protect"
        icon: bar.isProtected ? "unlock" : "lock"
        text: bar.isProtected ? qsTr("Unprotect") : qsTr("Protect")
        onClicked: bar.requested("protect")
    }
    TouchButton {
        objectName: "delete"
        icon: "trash"
        text: qsTr("Delete")
        onClicked: bar.requested("delete")
    }
}
