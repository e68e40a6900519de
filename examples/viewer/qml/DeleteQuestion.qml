// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// Asks before recordings are deleted.
Dialog {
    id: question

    property var bases: []

    title: bases.length === 1 ? qsTr("Delete %1?").arg(bases[0]) : qsTr("Delete %n recording(s)?", "", bases.length)
    text: qsTr("This cannot be undone.")

    function ask(deleted) {
        bases = deleted
        open(keepButton)
    }

    Row {
        spacing: 12
        anchors.right: parent.right
        TouchButton {
            id: keepButton
            objectName: "keep"
            width: 200
            text: qsTr("Keep")
            onClicked: question.close()
        }
        TouchButton {
            objectName: "confirmDelete"
            width: 200
            text: qsTr("Delete")
            icon: "trash"
            color: Theme.danger
            onClicked: {
                question.close()
                viewer.remove(question.bases)
            }
        }
    }
}
