// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// How much of a whole is used or done.
Rectangle {
    property real used // 0 to 1
    property color fill: Theme.accent

    height: 6
    radius: height / 2
    color: Theme.line

    Rectangle {
        width: Math.max(parent.height, parent.width * Math.min(1, parent.used))
        visible: parent.used > 0
        height: parent.height
        radius: parent.radius
        color: parent.fill
    }
}
