// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtQuick.Templates 2.15 as T
import QtQuick.Window 2.15
import Viewer 1.0
import "."

/// One recording: its picture or video, its data, and the actions on it.
FocusScope {
    id: page

    property int firstRow
    property bool isDataShown
    readonly property var current: pictures.currentItem
    readonly property string base: current ? current.base : ""
    readonly property bool isVideo: current ? current.kind === 1 : false
    readonly property bool isProtected: current ? current.isProtected : false
    signal closed(int row)
    signal requested(string action, var bases)

    function clock(seconds) {
        const rest = Math.floor(seconds % 60)
        return Math.floor(seconds / 60) + (rest < 10 ? ":0" : ":") + rest
    }

    function togglePlaying() {
        if (!isVideo)
            return
        if (video.isPlaying)
            video.pause()
        else
            video.play(current.path)
    }

    Rectangle {
        anchors.fill: parent
        color: "black"
    }
    ListView {
        id: pictures
        objectName: "pictures"
        anchors.fill: parent
        focus: true
        orientation: ListView.Horizontal
        snapMode: ListView.SnapOneItem
        highlightRangeMode: ListView.StrictlyEnforceRange
        preferredHighlightBegin: 0
        preferredHighlightEnd: 0
        highlightMoveDuration: 0
        cacheBuffer: width
        reuseItems: true
        model: viewer.objects
        delegate: ObjectPicture {
            width: pictures.width
            height: pictures.height
            onClicked: page.togglePlaying()
        }
        Component.onCompleted: {
            currentIndex = page.firstRow
            positionViewAtIndex(page.firstRow, ListView.Beginning)
            highlightMoveDuration = 200
        }
        onCountChanged: {
            const isOpen = page.T.StackView.status >= T.StackView.Activating // count is 0 while the page is being created
            if (count === 0 && isOpen && viewer.folder !== "") // otherwise the page is closed with its folder
                page.closed(pictures.currentIndex)
        }
        Keys.onPressed: {
            event.accepted = true
            if (Navigation.isBack(event))
                page.closed(pictures.currentIndex)
            else if (event.key === Qt.Key_I)
                page.isDataShown = !page.isDataShown
            else if (event.key === Qt.Key_Space || Navigation.isEnter(event))
                page.togglePlaying()
            else if (!shortcuts.handle(event, [page.base]))
                event.accepted = false
        }
        Keys.onUpPressed: pageHeader.takeFocus()
        Keys.onDownPressed: actions.takeFocus()
    }
    onBaseChanged: {
        video.stop()
        describeTimer.restart()
    }
    Timer { // so that pictures that are only swiped past are not described
        id: describeTimer
        interval: 150
        onTriggered: viewer.describe(page.base)
    }
    Video {
        id: video
        objectName: "video"
        x: page.current ? page.current.x - pictures.contentX : 0 // moves with its poster
        width: parent.width
        height: parent.height
        visible: hasPicture
    }
    Icon {
        name: "play"
        size: 40
        anchors.centerIn: parent
        visible: page.isVideo && !video.isPlaying
        Rectangle {
            anchors.centerIn: parent
            z: -1
            width: 88
            height: 88
            radius: 44
            color: Theme.shade
            border { width: 2; color: Theme.text }
        }
    }
    Rectangle {
        anchors.fill: pageHeader
        gradient: Gradient {
            GradientStop { position: 0; color: "#e0000000" }
            GradientStop { position: 0.7; color: "#a0000000" }
            GradientStop { position: 1; color: "transparent" }
        }
    }
    PageHeader {
        id: pageHeader
        subtitleColor: Theme.text // in front of a picture
        width: parent.width
        title: page.base
        subtitle: (page.current ? page.current.time : "")
                  + (video.hasPicture ? "  ·  " + page.clock(video.seconds) : "")
        onBack: page.closed(pictures.currentIndex)
        Keys.onDownPressed: pictures.forceActiveFocus()

        Label {
            anchors.verticalCenter: parent.verticalCenter
            text: qsTr("%1 of %2").arg(pictures.currentIndex + 1).arg(pictures.count)
            color: Theme.secondary
        }
        Icon {
            anchors.verticalCenter: parent.verticalCenter
            name: "lock"
            visible: page.isProtected
        }
    }
    DataPanel {
        anchors { right: parent.right; top: pageHeader.bottom; bottom: actions.top }
        visible: page.isDataShown
        details: viewer.details.base === page.base ? viewer.details : ({})
    }
    FocusScope {
        id: actions
        width: parent.width
        height: Theme.touch + 2 * Theme.gap
        anchors.bottom: parent.bottom

        function takeFocus() {
            dataButton.forceActiveFocus()
        }

        Keys.onPressed: {
            event.accepted = true
            if (Navigation.isBack(event) || event.key === Qt.Key_Up)
                pictures.forceActiveFocus()
            else if (!Navigation.moveFocus(event, Window.activeFocusItem, actions))
                event.accepted = false
        }

        Rectangle {
            anchors.fill: parent
            gradient: Gradient {
                GradientStop { position: 0; color: "transparent" }
                GradientStop { position: 1; color: "#e0000000" }
            }
        }
        Row {
            anchors.centerIn: parent
            spacing: 8
            TouchButton {
                id: dataButton
                objectName: "data"
                icon: "info"
                text: qsTr("Details")
                color: page.isDataShown ? Theme.pressed : Theme.raised
                onClicked: page.isDataShown = !page.isDataShown
            }
            ActionBar {
                isProtected: page.isProtected
                onRequested: page.requested(action, [page.base])
            }
        }
    }
    Shortcuts {
        id: shortcuts
        onRequested: page.requested(action, bases)
    }
}
