// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import "."

/// The whole interface: the pages, and what lies in front of them.
FocusScope {
    id: screen

    width: Theme.screen.width
    height: Theme.screen.height

    function perform(action, bases) {
        const isProtected = viewer.objects.isAnyProtected(bases)
        if (action === "copy")
            copyDialog.ask(bases)
        else if (action === "protect")
            viewer.setProtected(bases, !isProtected)
        else if (isProtected)
            toast.show(qsTr("Protected recordings cannot be deleted"))
        else if (viewer.isStorageReadOnly)
            toast.show(qsTr("The storage device is write-protected"))
        else
            deleteQuestion.ask(bases)
    }

    Keys.onPressed: pages.currentItem.forceActiveFocus() // from the button of CopyStatus

    Rectangle {
        anchors.fill: parent
        color: Theme.background
    }
    T.StackView {
        id: pages
        objectName: "pages"
        anchors.fill: parent
        focus: true
        initialItem: Component { HomePage {} }
        onCurrentItemChanged: {
            if (currentItem)
                currentItem.forceActiveFocus()
        }
        pushEnter: Transition {
            NumberAnimation { property: "opacity"; from: 0; to: 1; duration: 120 }
        }
        popExit: Transition {
            NumberAnimation { property: "opacity"; from: 1; to: 0; duration: 120 }
        }
    }
    Component {
        id: objectsPage
        ObjectsPage {
            onOpened: pages.push(viewPage, {firstRow: row})
            onRequested: screen.perform(action, bases)
        }
    }
    Component {
        id: viewPage
        ViewPage {
            onClosed: {
                pages.pop()
                pages.currentItem.currentRow = row
            }
            onRequested: screen.perform(action, bases)
        }
    }
    Connections {
        target: viewer
        function onFolderChanged() {
            deleteQuestion.close()
            copyDialog.close()
            if (viewer.folder)
                pages.push(objectsPage)
            else if (pages.depth > 1)
                pages.pop(null)
        }
        function onReported(text) { toast.show(text) }
    }
    DeleteQuestion {
        id: deleteQuestion
        objectName: "deleteQuestion"
    }
    CopyDialog {
        id: copyDialog
        objectName: "copyDialog"
    }
    Column {
        anchors { bottom: parent.bottom; bottomMargin: 92; horizontalCenter: parent.horizontalCenter }
        spacing: 12
        CopyStatus { anchors.horizontalCenter: parent.horizontalCenter }
        Toast {
            id: toast
            objectName: "toast"
            anchors.horizontalCenter: parent.horizontalCenter
        }
    }
}
