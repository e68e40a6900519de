// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Window 2.15
import "."

Window {
    width: 800
    height: 480
    visible: true
    title: qsTr("Recordings")

    ViewerScreen {
        anchors.fill: parent
        focus: true
    }
}
