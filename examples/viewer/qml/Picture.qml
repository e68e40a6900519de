// SPDX-License-Identifier: MIT
import QtQuick 2.15

/// A picture that is read from a storage device.
Image {
    /// False until the picture has been read, and if it cannot be read.
    readonly property bool isShown: status === Image.Ready && implicitWidth > 0

    asynchronous: true
}
