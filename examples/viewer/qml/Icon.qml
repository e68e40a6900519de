// SPDX-License-Identifier: MIT
import QtQuick 2.15

Image {
    property string name
    property int size: 24

    source: name ? "qrc:/icons/" + name + ".svg" : ""
    sourceSize: Qt.size(size, size)
    width: size
    height: size
}
