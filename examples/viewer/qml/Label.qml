// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// A line of text, which is cut where it does not fit.
Text {
    color: Theme.text
    font.pixelSize: Theme.body
    elide: Text.ElideRight
    textFormat: Text.PlainText
}
