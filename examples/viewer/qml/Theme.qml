// SPDX-License-Identifier: MIT
pragma Singleton
import QtQuick 2.15

/// Colours and sizes, in one place.
QtObject {
    readonly property color background: "#0e1115"
    readonly property color surface: "#171c22"
    readonly property color raised: "#222932"
    readonly property color pressed: "#2d3641"
    readonly property color line: "#2a323b"
    readonly property color text: "#eef1f4"
    readonly property color secondary: "#98a4b1"
    readonly property color accent: "#f0b24a"
    readonly property color danger: "#d9534a"
    readonly property color shade: "#b3000000"

    readonly property size screen: Qt.size(800, 480)

    readonly property int title: 22
    readonly property int body: 17
    readonly property int caption: 14

    readonly property int touch: 56 // height and width of what can be touched
    readonly property int header: 72
    readonly property int gap: 12
    readonly property int radius: 12
}
