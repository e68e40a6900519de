// SPDX-License-Identifier: MIT
import QtQuick 2.15
import QtTest 1.15
import "qrc:/qml"

TestCase {
    id: test

    // Three photos with thumbnails, and a video, on the SD card; nothing on the USB storage, which is present
    readonly property var media: [
        "sd/DCIM/100ABC/DCF_0001.jpg at 60 = one", "sd/DCIM/100ABC/DCF_0001.thumb",
        "sd/DCIM/100ABC/DCF_0002.jpg = two",
        "sd/DCIM/100ABC/DCF_0003.jpg", "sd/DCIM/100ABC/DCF_0003.png", "sd/DCIM/101ABC/DCF_0001.avi", "usb/DCIM/"
    ]
    property var screen

    name: "Viewer"
    width: 800
    height: 480
    visible: true
    when: windowShown

    Component {
        id: screenComponent
        ViewerScreen {}
    }

    function start(entries) {
        fixture.start(entries)
        screen = screenComponent.createObject(test)
        screen.forceActiveFocus()
        tryVerify(() => !viewer.isLoading)
    }

    function page() {
        return findChild(screen, "pages").currentItem
    }

    function item(name) {
        return findChild(page(), name)
    }

    /// The item in a row of a view. The view creates it some time after the row appears in the model.
    function entry(view, row) {
        tryVerify(() => item(view).itemAtIndex(row))
        return item(view).itemAtIndex(row)
    }

    /// Waits until the folder that has been opened is shown and accepts keys and touches.
    function waitForFolder(isListed) {
        tryVerify(() => item("grid") && isListed(item("grid").count) && item("grid").currentItem)
        tryVerify(() => !findChild(screen, "pages").busy && !viewer.isLoading)
    }

    function waitForRecordings(count) {
        waitForFolder(listed => listed === count)
    }

    /// Opens the folder that is listed first.
    function openFolder() {
        entry("folders", 0)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        waitForFolder(listed => listed > 0)
    }

    /// Touches an item of a page. Pages do not accept touches while one replaces the other.
    function touch(touched) {
        tryVerify(() => !findChild(screen, "pages").busy)
        mouseClick(touched)
    }

    /// Opens the recording that is listed first.
    function openRecording() {
        openFolder()
        keyClick(Qt.Key_Return)
        tryVerify(() => item("pictures") && item("pictures").currentItem)
    }

    /// The colour of a pixel of an item. grabImage() of Qt 5.15 returns an empty image on the platform offscreen.
    function pixel(drawn, x, y) {
        let image
        drawn.grabToImage(result => image = result.image)
        tryVerify(() => image)
        return fixture.pixel(image, x, y)
    }

    function isOpen(dialog) {
        return findChild(screen, dialog).visible
    }

    function toastText() {
        return findChild(screen, "toast").text
    }

    function filesIn(folder) {
        return Array.from(fixture.files()).filter(path => path.startsWith(folder))
    }

    function namesIn(folder) {
        return Array.from(fixture.names()).filter(path => path.startsWith(folder))
    }

    function protectedFiles() {
        return Array.from(fixture.protectedFiles())
    }

    function init() {
        fixture.setLanguage("en")
    }

    function cleanup() {
        screen.destroy()
        wait(0)
        compare(fixture.takeWarnings(), "")
    }

    // Lists

    function test_firstPresentStorageDeviceIsShown() {
        start(media)
        compare(viewer.storage, 1)
        compare(item("devices").count, 3)
        compare(item("folders").count, 2)
    }

    function test_missingLocationIsNotCreated() {
        start(["sd/DCIM/"])
        viewer.showStorage(2)
        tryVerify(() => !viewer.isLoading)
        verify(!viewer.isStoragePresent)
        compare(filesIn(""), ["sd/", "sd/DCIM/"])
    }

    function test_filesOfOneNumberAreOneRecording() {
        start(["sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.thumb", "sd/DCIM/100ABC/DCF_0002.jpg",
               "sd/DCIM/100ABC/DCF_0002.png", "sd/DCIM/100ABC/DCF_0003.thumb", "sd/DCIM/100ABC/.hidden.jpg",
               "sd/DCIM/100ABC/notes.txt"])
        openFolder()
        compare(item("grid").count, 3)
        compare(entry("grid", 0).base, "DCF_0003")
    }

    function test_thumbnailIsShown() {
        start(["sd/DCIM/"])
        fixture.makePhotos("sd/DCIM/100ABC", 1)
        tryVerify(() => item("folders").count === 1)
        openFolder()
        const isRed = colour => colour.r > 0.9 && colour.g < 0.1 && colour.b < 0.1
        const tile = entry("grid", 0)
        tryVerify(() => isRed(pixel(tile, 70, 50)))
    }

    function test_thumbnailIsWrittenLater() {
        start(["sd/DCIM/"])
        fixture.makePhotos("sd/DCIM/100ABC", 1)
        tryVerify(() => item("folders").count === 1)
        openFolder()
        fixture.make(["sd/DCIM/100ABC/DCF_0002.avi", "sd/DCIM/100ABC/DCF_0002.thumb"])
        waitForRecordings(2)
        tryVerify(() => findChild(entry("grid", 0), "placeholder").visible)
        fixture.copyContent("sd/DCIM/100ABC/DCF_0001.thumb", "sd/DCIM/100ABC/DCF_0002.thumb")
        tryVerify(() => !findChild(entry("grid", 0), "placeholder").visible)
    }

    function test_unreadablePictureHasAnIcon() {
        start(["sd/DCIM/"])
        fixture.makePhotos("sd/DCIM/100ABC", 1)
        fixture.make(["sd/DCIM/100ABC/DCF_0002.jpg = x"])
        tryVerify(() => item("folders").count === 1)
        openFolder()
        waitForRecordings(2)
        tryVerify(() => !findChild(entry("grid", 1), "placeholder").visible)
        verify(findChild(entry("grid", 0), "placeholder").visible)
    }

    function test_tenThousandFiles() {
        start(["sd/DCIM/", "usb/DCIM/"])
        fixture.makePhotos("sd/DCIM/100ABC", 9999)
        tryVerify(() => item("folders").count === 1, 30000)
        fixture.startMeter()
        openFolder()
        compare(item("grid").count, 9999)
        const listing = fixture.longestGap()
        fixture.startMeter()
        for (const key of [Qt.Key_End, Qt.Key_PageUp, Qt.Key_PageUp, Qt.Key_Home, Qt.Key_PageDown]) {
            keyClick(key)
            wait(100)
        }
        const keys = fixture.longestGap()
        fixture.startMeter()
        item("grid").flick(0, -8000)
        tryVerify(() => !item("grid").moving, 10000)
        console.info("longest time without reaction, 9,999 recordings:", listing, "ms when listed,", keys,
                     "ms with keys,", fixture.longestGap(), "ms while scrolling")
    }

    // Navigation

    function test_keys() {
        start(media)
        entry("folders", 1)
        verify(item("devices").activeFocus)
        keyClick(Qt.Key_Right)
        verify(item("folders").activeFocus)
        compare(item("folders").currentItem.name, "101ABC")
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        compare(viewer.folder, "100ABC")
        waitForRecordings(3)
        compare(item("grid").currentItem.base, "DCF_0003")
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        tryCompare(page(), "base", "DCF_0002")
        keyClick(Qt.Key_Right)
        tryCompare(page(), "base", "DCF_0001")
        keyClick(Qt.Key_Escape)
        tryVerify(() => item("grid") && item("grid").activeFocus)
        compare(item("grid").currentItem.base, "DCF_0001")
        keyClick(Qt.Key_Escape)
        tryVerify(() => item("folders") && item("folders").activeFocus)
        compare(viewer.folder, "")
        keyClick(Qt.Key_Escape)
        verify(item("devices").activeFocus)
        keyClick(Qt.Key_Down)
        compare(viewer.storage, 2)
        tryVerify(() => item("folders").count === 0)
    }

    function test_buttonsByKeys() {
        start(media)
        openFolder()
        keyClick(Qt.Key_Up)
        verify(item("back").activeFocus)
        keyClick(Qt.Key_Right)
        verify(item("select").activeFocus)
        keyClick(Qt.Key_Down)
        verify(item("grid").activeFocus)
        keyClick(Qt.Key_Return)
        tryVerify(() => item("pictures"))
        keyClick(Qt.Key_Down)
        verify(item("data").activeFocus)
        keyClick(Qt.Key_Right)
        verify(item("copy").activeFocus)
        keyClick(Qt.Key_Up)
        verify(item("pictures").activeFocus)
    }

    function test_touch() {
        start(media)
        touch(entry("folders", 1))
        waitForRecordings(3)
        touch(entry("grid", 2))
        tryVerify(() => page().base === "DCF_0001")
        touch(item("back"))
        tryVerify(() => item("grid"))
        touch(item("back"))
        tryVerify(() => item("folders"))
    }

    function test_touchTargetsAreLarge_data() {
        return ["back", "select", "copy", "protect", "delete"].map(name => ({tag: name}))
    }

    function test_touchTargetsAreLarge(data) {
        start(media)
        openFolder()
        verify(item(data.tag).width >= 48)
        verify(item(data.tag).height >= 48)
    }

    function test_longTouchSelects() {
        start(media)
        entry("folders", 1)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        waitForRecordings(3)
        const tile = entry("grid", 0)
        mousePress(tile)
        tryCompare(viewer.objects, "selectionCount", 1)
        mouseRelease(tile)
        touch(entry("grid", 1))
        compare(viewer.objects.selectionCount, 2)
        keyClick(Qt.Key_Escape)
        compare(viewer.objects.selectionCount, 0)
        compare(viewer.folder, "100ABC")
    }

    // Data

    function test_metadata() {
        start(["sd/DCIM/"])
        fixture.makePhotos("sd/DCIM/100ABC", 1)
        tryVerify(() => item("folders").count === 1)
        openRecording()
        keyClick(Qt.Key_I)
        tryVerify(() => viewer.details.base === "DCF_0001")
        compare(viewer.details.resolution, "160 × 120")
        compare(viewer.details.files, "DCF_0001.jpg\nDCF_0001.thumb")
        verify(viewer.details.modified)
    }

    function test_videoPlaysToItsEnd() {
        start(["sd/DCIM/100ABC/"])
        fixture.makeVideo("sd/DCIM/100ABC/DCF_0001.avi")
        compare(entry("folders", 0).name, "100ABC")
        openRecording()
        const video = item("video")
        keyClick(Qt.Key_Space)
        verify(video.isPlaying)
        tryVerify(() => video.hasPicture, 10000)
        tryVerify(() => !video.isPlaying, 10000)
        keyClick(Qt.Key_Escape)
        tryVerify(() => item("grid"))
    }

    // Protection and deletion

    function test_protect() {
        start(media)
        entry("folders", 1)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        waitForRecordings(3)
        keyClick(Qt.Key_End)
        keyClick(Qt.Key_P)
        const files = ["sd/DCIM/100ABC/DCF_0001.jpg", "sd/DCIM/100ABC/DCF_0001.thumb"]
        tryVerify(() => protectedFiles().join() === files.join())
        tryVerify(() => findChild(item("grid").currentItem, "lock").visible)
        keyClick(Qt.Key_P)
        tryVerify(() => protectedFiles().length === 0)
    }

    function test_deleteAsksFirst() {
        start(media)
        const before = filesIn("")
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_Delete)
        verify(isOpen("deleteQuestion"))
        keyClick(Qt.Key_Return) // "Keep" has the focus at first
        verify(!isOpen("deleteQuestion"))
        wait(100)
        compare(filesIn(""), before)
        keyClick(Qt.Key_Delete)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        tryCompare(item("grid"), "count", 2)
        compare(toastText(), "1 recording deleted")
        compare(filesIn(""), before.filter(path => !path.includes("100ABC/DCF_0003")))
    }

    function test_protectedIsNotDeleted_data() {
        return [{tag: "recording", file: "DCF_0003.jpg"}, {tag: "other-file-of-the-object", file: "DCF_0003.png"}]
    }

    function test_protectedIsNotDeleted(data) {
        start(media)
        const before = filesIn("")
        fixture.setMode("sd/DCIM/100ABC/" + data.file, 0o444)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_Delete)
        verify(!isOpen("deleteQuestion"))
        compare(toastText(), "Protected recordings cannot be deleted")
        compare(filesIn(""), before)
    }

    function test_nothingIsDeletedOnAWriteProtectedDevice() {
        start(["mmc/DCIM/", "sd/"])
        viewer.showStorage(1)
        if (!fixture.mount("sd"))
            skip("this user may not mount")
        fixture.make(media)
        fixture.remountReadOnly("sd")
        tryVerify(() => viewer.isStorageReadOnly)
        const before = filesIn("")
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_Delete)
        verify(!isOpen("deleteQuestion"))
        compare(toastText(), "The storage device is write-protected")
        compare(filesIn(""), before)
        fixture.unmount("sd")
    }

    function test_protectedWhileTheQuestionIsOpen() {
        start(media)
        const before = filesIn("")
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_Delete)
        fixture.setMode("sd/DCIM/100ABC/DCF_0003.png", 0o444)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        tryVerify(() => toastText() === "1 recording cannot be deleted")
        compare(filesIn(""), before)
    }

    function test_deleteSelected() {
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_Space)
        keyClick(Qt.Key_End)
        keyClick(Qt.Key_Space)
        compare(viewer.objects.selectionCount, 2)
        keyClick(Qt.Key_Delete)
        compare(findChild(screen, "deleteQuestion").title, "Delete 2 recordings?")
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        tryCompare(item("grid"), "count", 1)
        compare(filesIn("sd/DCIM/100ABC/D"), ["sd/DCIM/100ABC/DCF_0002.jpg = two"])
    }

    function test_onlyRecordingIsDeletedWhileItIsShown() {
        start(media)
        openRecording()
        compare(page().base, "DCF_0001")
        keyClick(Qt.Key_Delete)
        keyClick(Qt.Key_Right)
        keyClick(Qt.Key_Return)
        tryVerify(() => item("grid") && item("grid").count === 0)
        compare(viewer.folder, "101ABC")
    }

    // Copies

    function copyFirst(storage) {
        keyClick(Qt.Key_C)
        verify(isOpen("copyDialog"))
        mouseClick(findChild(screen, "target" + storage))
        tryVerify(() => !viewer.isCopying && toastText().includes("copied"), 10000)
    }

    function test_copy() {
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_End)
        copyFirst(2)
        compare(toastText(), "1 recording copied")
        compare(filesIn("usb"), ["usb/", "usb/DCIM/", "usb/DCIM/100ABC/", "usb/DCIM/100ABC/DCF_0001.jpg = one",
                                 "usb/DCIM/100ABC/DCF_0001.thumb"])
        compare(fixture.modified("usb/DCIM/100ABC/DCF_0001.jpg"), 60000)
        compare(filesIn("sd/DCIM/100ABC/DCF_0001"),
                ["sd/DCIM/100ABC/DCF_0001.jpg = one", "sd/DCIM/100ABC/DCF_0001.thumb"])
    }

    function test_copyGetsTheNextFreeNumber_data() {
        return [{tag: "after-the-last", entries: ["usb/DCIM/100ABC/DCF_0007.wav"], copy: "DCF_0008"},
                {tag: "not-of-a-lone-thumbnail", entries: ["usb/DCIM/100ABC/DCF_0001.thumb = x"], copy: "DCF_0002"},
                {tag: "in-the-next-folder", entries: ["usb/DCIM/100ABC/DCF_9999.jpg"], copy: "101ABC/DCF_0001"}]
    }

    function test_copyGetsTheNextFreeNumber(data) {
        start(media.concat(data.entries))
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_End)
        copyFirst(2)
        compare(filesIn("usb").filter(path => path.includes(" = one")).length, 1)
        verify(filesIn("usb").some(path => path.endsWith(data.copy + ".jpg = one")))
        verify(filesIn("usb").some(path => path.endsWith(data.copy + ".thumb")))
        for (const entry of data.entries)
            verify(filesIn("usb").includes(entry))
    }

    function test_copyKeepsTheProtection() {
        start(media)
        fixture.setMode("sd/DCIM/100ABC/DCF_0003.jpg", 0o444)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        copyFirst(2)
        compare(protectedFiles(), ["sd/DCIM/100ABC/DCF_0003.jpg", "usb/DCIM/100ABC/DCF_0001.jpg"])
    }

    function test_copyIsCancelled() {
        start(["sd/DCIM/100ABC/DCF_0001.avi size 2000000000", "usb/DCIM/100ABC/"])
        viewer.showFolder("100ABC")
        waitForRecordings(1)
        keyClick(Qt.Key_C)
        keyClick(Qt.Key_Return)
        tryVerify(() => viewer.copyProgress > 0)
        mouseClick(findChild(screen, "cancelCopy"))
        tryVerify(() => !viewer.isCopying)
        tryVerify(() => toastText() === "Cancelled · 0 recordings copied")
        compare(namesIn("usb"), ["usb/", "usb/DCIM/", "usb/DCIM/100ABC/"])
    }

    function test_copyIsOfferedToOtherPresentStorageDevices() {
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_C)
        compare([0, 1, 2].map(type => findChild(screen, "target" + type).visible), [false, false, true])
        verify(findChild(screen, "target2").activeFocus)
        keyClick(Qt.Key_Escape)
        verify(!isOpen("copyDialog"))
        verify(item("grid").activeFocus)
    }

    function test_copyToARemovedStorageDevice() {
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        keyClick(Qt.Key_C)
        fixture.rename("usb", "gone")
        keyClick(Qt.Key_Return)
        tryVerify(() => toastText() === "USB storage has been removed · 0 recordings copied")
        compare(filesIn("usb"), [])
    }

    // Storage devices that come and go

    function test_cardIsRemovedWhileItIsShown() {
        start(media)
        openRecording()
        fixture.rename("sd/DCIM", "sd/gone")
        tryVerify(() => item("folders") !== null)
        compare(viewer.folder, "")
        verify(!viewer.isStoragePresent)
        compare(toastText(), "SD card has been removed")
        fixture.rename("sd/gone", "sd/DCIM")
        tryVerify(() => viewer.isStoragePresent)
        tryVerify(() => item("folders").count === 2)
        compare(toastText(), "SD card is ready")
    }

    function test_cardIsRemovedWhileAQuestionIsOpen() {
        start(media)
        openRecording()
        keyClick(Qt.Key_Delete)
        verify(isOpen("deleteQuestion"))
        fixture.rename("sd/DCIM", "gone")
        tryVerify(() => item("folders") !== null)
        tryVerify(() => !isOpen("deleteQuestion"))
    }

    function test_cardIsMounted() {
        start(["mmc/DCIM/", "sd/"])
        viewer.showStorage(1)
        verify(!viewer.isStoragePresent)
        if (!fixture.mount("sd"))
            skip("this user may not mount")
        tryVerify(() => viewer.isStoragePresent)
        compare(filesIn("sd"), ["sd/"])
        fixture.unmount("sd")
        tryVerify(() => !viewer.isStoragePresent)
    }

    function test_newRecordingAppears() {
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        compare(item("grid").currentItem.base, "DCF_0003")
        fixture.make(["sd/DCIM/100ABC/DCF_0004.jpg"])
        tryCompare(item("grid"), "count", 4)
        tryVerify(() => entry("grid", 0).base === "DCF_0004")
        compare(item("grid").currentItem.base, "DCF_0003")
    }

    function test_folderIsDeletedWhileItIsShown() {
        start(media)
        openRecording()
        fixture.rename("sd/DCIM/101ABC", "sd/101ABC")
        tryVerify(() => item("folders") && item("folders").count === 1)
    }

    // Language

    function test_german() {
        fixture.setLanguage("de")
        start(media)
        viewer.showFolder("100ABC")
        waitForRecordings(3)
        compare(viewer.storageTitle, "SD-Karte")
        keyClick(Qt.Key_Delete)
        compare(findChild(screen, "deleteQuestion").title, "DCF_0003 löschen?")
    }
}
