// SPDX-License-Identifier: MIT
pragma Singleton
import QtQuick 2.15

/// The meaning of keys, which differ between keyboards and the buttons of cameras.
QtObject {
    function isEnter(event) {
        return event.key === Qt.Key_Return || event.key === Qt.Key_Enter || event.key === Qt.Key_Select
    }

    function isBack(event) {
        return event.key === Qt.Key_Escape || event.key === Qt.Key_Back || event.key === Qt.Key_Backspace
    }

    /// Moves the focus with an arrow key from the item @p from to the next one in @p scope. Returns whether
    /// @p event is an arrow key.
    function moveFocus(event, from, scope) {
        const isForward = event.key === Qt.Key_Right || event.key === Qt.Key_Down
        if (!isForward && event.key !== Qt.Key_Left && event.key !== Qt.Key_Up)
            return false
        const next = from.nextItemInFocusChain(isForward)
        let ancestor = next
        while (ancestor && ancestor !== scope)
            ancestor = ancestor.parent
        if (ancestor)
            next.forceActiveFocus()
        return true
    }
}
