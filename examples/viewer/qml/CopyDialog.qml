// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// Asks to which storage device recordings are to be copied.
Dialog {
    id: dialog

    property var bases: []

    title: bases.length === 1 ? qsTr("Copy %1 to").arg(bases[0]) : qsTr("Copy %n recording(s) to", "", bases.length)

    function ask(copied) {
        bases = copied
        open(cancelButton)
        Navigation.moveFocus({key: Qt.Key_Up}, cancelButton, dialog) // to a storage device, if there is one
    }

    function copyTo(target) {
        close()
        viewer.copy(bases, target)
    }

    Repeater {
        model: viewer.devices
        TouchButton {
            objectName: "target" + model.type
            width: parent.width
            visible: model.isPresent && !model.isReadOnly && model.type !== viewer.storage
            icon: "device" + model.type
            text: model.title + "  ·  " + qsTr("%1 free").arg(model.freeText)
            onClicked: dialog.copyTo(model.type)
        }
    }
    TouchButton {
        id: cancelButton
        width: parent.width
        text: qsTr("Cancel")
        color: "transparent"
        onClicked: dialog.close()
    }
}
