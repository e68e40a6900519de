// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The progress of a copy, with a button that cancels it.
Rectangle {
    objectName: "copyStatus"
    visible: viewer.isCopying
    width: 420
    height: Theme.touch + 2 * 8
    radius: height / 2
    color: Theme.raised
    border { width: 1; color: Theme.line }

    Label {
        id: label
        anchors { left: parent.left; leftMargin: 28; top: parent.top; topMargin: 14 }
        text: qsTr("Copying…  %1%").arg(Math.round(100 * viewer.copyProgress))
    }
    CapacityBar {
        anchors { left: label.left; right: cancelButton.left; rightMargin: 12; top: label.bottom; topMargin: 10 }
        used: viewer.copyProgress
    }
    TouchButton {
        id: cancelButton
        objectName: "cancelCopy"
        anchors { right: parent.right; rightMargin: 12; verticalCenter: parent.verticalCenter }
        icon: "close"
        color: "transparent"
        onClicked: viewer.cancelCopy()
    }
}
