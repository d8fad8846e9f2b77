import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15
import Host 1.0

// Records a screen or a part of it, and shows what came of it.
HostPage {
    id: page

    property rect part: Qt.rect(0, 0, 1, 1)
    property string recording
    property bool recordingIsGif: false
    property int seconds: 0
    property bool cancelled: false
    property bool asking: false // the desktop asks its user, as far as can be told: it takes so long
    readonly property rect pixels: {
        screenPage.screenSize // the answer changes with it
        return screenPage.pixels(part)
    }

    function start() {
        page.failure = ""
        if (screenPage.waiting) {
            recording = ""
            seconds = 0
            recordingIsGif = screenPage.gif
            cancelled = false
            patience.restart()
        }
        screenPage.start(part)
    }

    title: qsTr("Screen")
    hint: qsTr("Record a screen, or drag a rectangle over the part that you want")

    Connections {
        target: screenPage

        function onRecorded(file) {
            page.recording = file
            if (file === "" && !page.cancelled)
                page.failure = qsTr("Nothing was recorded. Does this desktop let programs see the screen?")
        }
        function onStateChanged() {
            if (!screenPage.busy) {
                patience.stop()
                page.asking = false
            }
        }
        function onScreenIndexChanged() {
            page.part = Qt.rect(0, 0, 1, 1)
        }
    }

    Timer {
        id: patience

        interval: 1000
        onTriggered: page.asking = screenPage.busy
    }
    Timer {
        interval: 1000
        repeat: true
        running: screenPage.running
        onTriggered: ++page.seconds
    }

    RowLayout {
        enabled: screenPage.waiting
        spacing: 12

        ComboBox {
            objectName: "screens"
            Layout.fillWidth: true
            Layout.minimumWidth: 120
            model: screenPage.screens
            currentIndex: screenPage.screenIndex
            Accessible.name: qsTr("Screen")
            onActivated: screenPage.screenIndex = index
        }
        Button {
            objectName: "wholeScreen"
            icon.source: "qrc:/host/icons/whole.svg"
            display: AbstractButton.IconOnly
            text: qsTr("Whole screen")
            ToolTip.text: text
            ToolTip.visible: hovered
            onClicked: page.part = Qt.rect(0, 0, 1, 1)
        }
        RadioButton {
            objectName: "mp4"
            text: qsTr("MP4")
            checked: !screenPage.gif
            onClicked: screenPage.gif = false
        }
        RadioButton {
            objectName: "gif"
            text: qsTr("GIF")
            checked: screenPage.gif
            onClicked: screenPage.gif = true
        }
        Switch {
            objectName: "microphone"
            text: qsTr("Microphone")
            checked: !screenPage.mute
            enabled: !screenPage.gif
            onClicked: screenPage.mute = !checked
        }
    }

    Card {
        id: stage

        Layout.fillWidth: true
        Layout.fillHeight: true

        Item {
            id: room

            readonly property real scale: Math.min(width / screenPage.screenSize.width, height / screenPage.screenSize.height)

            anchors.fill: parent
            visible: screenPage.waiting && page.recording === ""

            ScreenPreview {
                id: preview

                objectName: "screenPreview"
                anchors.centerIn: parent
                width: screenPage.screenSize.width * room.scale
                height: screenPage.screenSize.height * room.scale
                screenIndex: screenPage.screenIndex
                running: room.visible && page.visible
            }
            Label {
                objectName: "previewWords"
                anchors.centerIn: preview
                anchors.verticalCenterOffset: -preview.height / 4 // above the frame's own words
                width: Math.min(implicitWidth, preview.width - 24)
                visible: !preview.hasPicture
                wrapMode: Text.WordWrap
                horizontalAlignment: Text.AlignHCenter
                text: preview.refused ? qsTr("The desktop does not let this program see the screen.")
                    : qsTr("Waiting for a picture of the screen. The desktop may ask what to share.")
                color: Universal.baseMediumColor
            }
            CropFrame {
                objectName: "screenFrame"
                anchors.fill: parent
                bounds: Qt.rect(preview.x, preview.y, preview.width, preview.height)
                selection: page.part
                pixel: Qt.size(2 / screenPage.screenSize.width, 2 / screenPage.screenSize.height)
                caption: qsTr("%1 × %2").arg(page.pixels.width).arg(page.pixels.height)
                onEdited: page.part = selection
            }
            Button {
                objectName: "askAgain"
                anchors { horizontalCenter: parent.horizontalCenter; bottom: parent.bottom; bottomMargin: 24 }
                visible: preview.refused
                text: qsTr("Ask again")
                onClicked: preview.askAgain()
            }
        }

        EmptyState {
            visible: !screenPage.waiting
            icon: screenPage.running ? "qrc:/host/icons/record.svg" : "qrc:/host/icons/pause.svg"
            text: screenPage.running ? qsTr("Recording %1 × %2 pixels").arg(page.pixels.width).arg(page.pixels.height)
                : page.asking ? qsTr("The desktop asks what to share")
                : screenPage.busy ? qsTr("One moment…") : qsTr("Paused")
        }

        Loader {
            objectName: "recordingView"
            anchors.fill: parent
            active: page.recording !== "" && screenPage.waiting
            sourceComponent: page.recordingIsGif ? gifView : filmView
        }

        Component {
            id: filmView

            Film {
                file: page.recording
            }
        }
        Component {
            id: gifView

            AnimatedImage {
                fillMode: Image.PreserveAspectFit
                cache: false
                playing: page.visible
                source: hostFiles.url(page.recording)
            }
        }
    }

    RowLayout {
        spacing: 12

        Button {
            objectName: "recordScreen"
            Layout.preferredWidth: 130
            focus: true
            highlighted: true
            enabled: !screenPage.busy
            Universal.accent: "#c4314b"
            icon.source: screenPage.running ? "qrc:/host/icons/pause.svg" : "qrc:/host/icons/record.svg"
            text: screenPage.running ? qsTr("Pause") : screenPage.waiting ? qsTr("Record") : qsTr("Go on")
            onClicked: screenPage.running ? screenPage.pause() : page.start()
        }
        Button {
            objectName: "stopScreen"
            enabled: !screenPage.waiting && (!screenPage.busy || page.asking)
            icon.source: "qrc:/host/icons/stop.svg"
            text: qsTr("Stop")
            onClicked: {
                page.cancelled = page.asking
                screenPage.stop()
            }
        }
        Label {
            visible: !screenPage.waiting
            font.pixelSize: 20
            text: Math.floor(page.seconds / 60) + ":" + ("0" + page.seconds % 60).slice(-2)
        }
        Label {
            objectName: "recordingFacts"
            Layout.fillWidth: true
            color: Universal.baseMediumColor
            elide: Text.ElideRight
            text: page.recording !== "" ? qsTr("%1 recorded").arg(hostFiles.sizeText(hostFiles.size(page.recording))) : ""
        }
        Button {
            objectName: "newRecording"
            visible: page.recording !== ""
            text: qsTr("New")
            ToolTip.text: qsTr("Choose another part of the screen")
            ToolTip.visible: hovered
            onClicked: page.recording = ""
        }
        SaveButton {
            objectName: "saveScreen"
            visible: page.recording !== ""
            suffix: page.recordingIsGif ? "gif" : "mp4"
            onChosen: if (!hostFiles.saveCopy(page.recording, target)) page.failure = qsTr("The recording could not be saved there.")
        }
    }
}
