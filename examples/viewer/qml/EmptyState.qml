// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// Shown in place of a list without entries.
Column {
    property alias icon: image.name
    property alias title: titleLabel.text
    property alias hint: hintLabel.text

    spacing: 10
    width: 380

    Icon {
        id: image
        size: 64
        opacity: 0.35
        anchors.horizontalCenter: parent.horizontalCenter
    }
    Label {
        id: titleLabel
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        font { pixelSize: Theme.title; weight: Font.DemiBold }
    }
    Label {
        id: hintLabel
        width: parent.width
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        color: Theme.secondary
    }
}
