// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// Shows the position in a long list. A touch anywhere in its lane moves the list there.
MouseArea {
    id: lane

    property Flickable view

    width: 48
    visible: view.contentHeight > 2 * view.height
    preventStealing: true
    onPressed: move(mouse.y)
    onPositionChanged: move(mouse.y)

    function move(y) {
        const share = (y - handle.height / 2) / (height - handle.height)
        view.contentY = view.originY + Math.max(0, Math.min(1, share)) * (view.contentHeight - view.height)
    }

    Rectangle {
        id: handle
        anchors.horizontalCenter: parent.horizontalCenter
        width: lane.pressed ? 10 : 6
        height: Math.max(56, lane.height * lane.view.visibleArea.heightRatio)
        radius: width / 2
        y: (lane.height - height) * Math.max(0, Math.min(1, lane.view.visibleArea.yPosition
                                                         / (1 - lane.view.visibleArea.heightRatio)))
        color: lane.pressed ? Theme.accent : Theme.pressed
    }
}
