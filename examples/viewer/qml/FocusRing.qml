// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// Marks the item that keys act on.
Rectangle {
    property bool isShown

    visible: isShown && input.isKeys
    anchors.fill: parent
    color: "transparent"
    border { width: 3; color: Theme.accent }
    radius: Theme.radius
}
