// SPDX-License-Identifier: MIT
import QtQuick 2.15
import "."

/// The recordings of a folder. Several can be selected, for an action on all of them.
FocusScope {
    id: page

    property bool isSelecting
    property alias currentRow: grid.currentIndex
    readonly property int selected: viewer.objects.selectionCount
    signal opened(int row)
    signal requested(string action, var bases)

    function open(row) {
        grid.currentIndex = row
        if (isSelecting)
            viewer.objects.toggle(row)
        else
            opened(row)
    }

    function hold(row) {
        grid.currentIndex = row
        isSelecting = true
        viewer.objects.toggle(row)
    }

    function back() {
        if (isSelecting)
            isSelecting = false
        else
            viewer.showFolder("")
    }

    /// The recordings that an action applies to.
    function targets() {
        return isSelecting ? viewer.objects.selectedBases() : grid.currentItem ? [grid.currentItem.base] : []
    }

    onSelectedChanged: isSelecting = selected > 0
    onIsSelectingChanged: {
        if (!isSelecting)
            viewer.objects.clearSelection()
    }
    Keys.onUpPressed: pageHeader.takeFocus()

    PageHeader {
        id: pageHeader
        width: parent.width
        title: page.isSelecting ? qsTr("%n selected", "", page.selected) : viewer.folder
        subtitle: page.isSelecting ? qsTr("Tap recordings to select them")
                                   : viewer.storageTitle + "  ·  " + qsTr("%n recording(s)", "", grid.count)
        backIcon: page.isSelecting ? "close" : "back"
        onBack: page.back()
        Keys.onDownPressed: grid.forceActiveFocus()

        TouchButton {
            objectName: "select"
            visible: !page.isSelecting && grid.count > 0
            icon: "check"
            text: qsTr("Select")
            onClicked: page.isSelecting = true
        }
        ActionBar {
            objectName: "actions"
            visible: page.isSelecting
            enabled: page.selected > 0
            isProtected: viewer.objects.isSelectionProtected
            onRequested: page.requested(action, page.targets())
        }
    }
    GridView {
        id: grid
        objectName: "grid"
        anchors { left: parent.left; right: scrollHandle.left; top: pageHeader.bottom; bottom: parent.bottom }
        anchors.leftMargin: 4
        focus: true
        clip: true
        cellWidth: 149
        cellHeight: 136
        cacheBuffer: 4 * cellHeight
        reuseItems: true
        model: viewer.objects
        highlightMoveDuration: 0
        delegate: ObjectTile {
            width: grid.cellWidth
            height: grid.cellHeight
            hasKeys: grid.activeFocus
            onClicked: page.open(index)
            onHeld: page.hold(index)
        }
        Keys.onPressed: {
            const columns = Math.floor(width / cellWidth)
            const rows = Math.floor(height / cellHeight)
            event.accepted = true
            if (Navigation.isEnter(event) && currentItem)
                page.open(currentIndex)
            else if (event.key === Qt.Key_Space && currentItem)
                page.hold(currentIndex)
            else if (Navigation.isBack(event))
                page.back()
            else if (event.key === Qt.Key_PageDown)
                currentIndex = Math.min(count - 1, currentIndex + rows * columns)
            else if (event.key === Qt.Key_PageUp)
                currentIndex = Math.max(0, currentIndex - rows * columns)
            else if (event.key === Qt.Key_Home)
                currentIndex = 0
            else if (event.key === Qt.Key_End)
                currentIndex = count - 1
            else if (!shortcuts.handle(event, page.targets()))
                event.accepted = false
        }
    }
    Shortcuts {
        id: shortcuts
        onRequested: page.requested(action, bases)
    }
    ScrollHandle {
        id: scrollHandle
        anchors { right: parent.right; top: grid.top; bottom: grid.bottom }
        view: grid
    }
    EmptyState {
        anchors.centerIn: grid
        visible: grid.count === 0
        icon: "photo"
        title: viewer.isLoading ? qsTr("Loading…") : qsTr("No recordings")
    }
}
