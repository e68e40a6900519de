// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A message that disappears after a few seconds.
Rectangle {
    id: toast

    property alias text: label.text

    function show(message) {
        text = message
        opacity = 1
        timer.restart()
    }

    width: Math.min(720, label.implicitWidth + 2 * 24)
    height: Theme.touch
    radius: height / 2
    color: Theme.text
    opacity: 0
    visible: opacity > 0
    Behavior on opacity { NumberAnimation { duration: 150 } }

    Label {
        id: label
        anchors.centerIn: parent
        width: Math.min(implicitWidth, 720 - 2 * 24)
        color: Theme.background
    }
    Timer {
        id: timer
        interval: 4000
        onTriggered: toast.opacity = 0
    }
}
