// SPDX-License-Identifier: MIT
import QtQuick 2.15

/// The keys for actions on recordings.
QtObject {
    signal requested(string action, var bases)

    /// Requests the action of @p event for the recordings @p bases. Returns false if the key has none, or if
    /// there are no recordings.
    function handle(event, bases) {
        const actions = {}
        actions[Qt.Key_P] = "protect"
        actions[Qt.Key_C] = "copy"
        actions[Qt.Key_Delete] = "delete"
        const action = actions[event.key]
        if (!action || bases.length === 0)
            return false
        requested(action, bases)
        return true
    }
}
