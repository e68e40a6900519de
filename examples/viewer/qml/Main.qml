// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Window 2.15
import "."

Window {
    width: Theme.screen.width
    height: Theme.screen.height
    visible: true
    title: qsTr("Recordings")

    ViewerScreen {
        anchors.fill: parent
        focus: true
    }
}
