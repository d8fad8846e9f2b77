import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// Records a voice message in any of the voices, plays it and turns it into text.
HostPage {
    id: page

    readonly property var engine: MultimediaProvider.recordEngine
    property bool recording: false
    // Stopped, and the voice changer still has sound to hand out.
    property bool finishing: false
    property var bands: []
    property real milliseconds: 0
    property string message
    property var peaks: []
    // Id of the request for text under way.
    property string request
    property int requests: 0

    function record() {
        player.stop()
        page.failure = ""
        cancelText()
        engine.setSpectrumNum(40)
        milliseconds = 0
        recording = engine.startRecord(voices.currentValue)
        if (recording)
            message = ""
        else
            page.failure = qsTr("The microphone cannot be opened. Is one connected, and free?")
    }

    function stop() {
        recording = false
        // A changed voice comes a little later, and not at all when there was too little of it.
        finishing = milliseconds > 500
        if (finishing && engine.stopRecord())
            return
        finishing = false
        engine.cancelRecord()
        bands = []
        page.failure = qsTr("That was too short for a message.")
    }

    function drop() {
        recording = false
        engine.cancelRecord()
        bands = []
    }

    // A value of the recorder is a sample's two bytes in the wrong order, as a fraction.
    function level(value) {
        const bytes = Math.round(value * 65535)
        const sample = (bytes & 255) << 8 | bytes >> 8
        return Math.abs(sample > 32767 ? sample - 65536 : sample) / 32768
    }

    // The loudest of every few samples, the loudest of all as 1.
    function loudest(samples, count) {
        const each = Math.max(1, Math.floor(samples.length / count))
        const found = []
        for (let i = 0; i < samples.length; ++i)
            found[Math.floor(i / each)] = Math.max(found[Math.floor(i / each)] || 0, level(samples[i]))
        const most = Math.max(0.01, ...found)
        return found.map(value => value / most)
    }

    function toText() {
        text.text = ""
        page.failure = ""
        ++requests
        request = "message " + requests
        answer.text = ""
        engine.recognizeFile(request, message, languages.currentValue)
    }

    // "American English (en_US)"; the code alone where no name is known for it.
    function languageName(code) {
        const locale = Qt.locale(code)
        const is_known = locale.name.split("_")[0] === code.split("_")[0]
        return is_known ? locale.nativeLanguageName + " (" + code + ")" : code
    }

    function listLanguages() {
        const codes = engine.speechModels().map(model => model.language)
        const names = [...new Set(codes)].map(code => ({ name: languageName(code), code: code }))
        names.sort((a, b) => a.name.localeCompare(b.name))
        const chosen = languages.currentValue
        languages.model = [{ name: qsTr("My language"), code: "" }].concat(names)
        languages.currentIndex = Math.max(0, languages.indexOfValue(chosen))
    }

    function showAnswering() {
        const model = engine.answeringSpeechModel()
        answer.text = model.recognizer ? model.recognizer + ", " + languageName(model.language)
                                       : qsTr("There is no speech recogniser for this language.")
    }

    function cancelText() {
        if (request === "")
            return
        const cancelled = request
        request = ""
        engine.cancelRecognize(cancelled)
    }

    // A model may have been installed meanwhile.
    onVisibleChanged: if (visible) listLanguages()
    Component.onCompleted: listLanguages()

    title: qsTr("Voice message")
    hint: qsTr("Record a message in any voice, listen to it, turn it into text")

    Connections {
        target: page.engine

        function onVoiceAmplitudeChanged(valus) {
            if (page.recording)
                page.bands = valus.map(Math.sqrt) // a quiet voice shows, too
        }
        function onUpdateRecordInfo(duration) {
            page.milliseconds = duration
        }
        function onRecordFinished(retMap) {
            page.recording = false
            page.finishing = false
            page.bands = []
            if (retMap.size > 0) {
                page.message = retMap.filePath
                page.peaks = page.loudest(retMap.sample, 200)
                text.text = ""
            } else {
                page.failure = qsTr("The message could not be saved. Is the disk full?")
            }
        }
        function onSpeechRecognizedResultChanged(recognizeId, speechRecognizedResult) {
            if (recognizeId !== page.request)
                return
            text.text = speechRecognizedResult
            page.showAnswering()
        }
        function onRecognizeCompletedChanged(recognizeId, recognizeCompleted) {
            if (recognizeId !== page.request)
                return
            page.request = ""
            page.showAnswering()
            if (!recognizeCompleted)
                page.failure = qsTr("This message cannot be turned into text.")
            else if (text.text === "")
                text.text = qsTr("No words were heard.")
        }
    }

    RowLayout {
        enabled: !page.recording && !page.finishing
        spacing: 12

        MicrophoneBox {
            Layout.fillWidth: true
        }
        ComboBox {
            id: voices

            objectName: "voices"
            Layout.fillWidth: true
            textRole: "name"
            valueRole: "type"
            Accessible.name: qsTr("Voice")
            model: [
                { name: qsTr("As it is"), type: 0 },
                { name: qsTr("High voice"), type: 1 },
                { name: qsTr("Low voice"), type: 2 },
                { name: qsTr("Trembling voice"), type: 3 },
                { name: qsTr("Half speed"), type: 5 },
                { name: qsTr("Double speed"), type: 8 }
            ]
        }
        ComboBox {
            id: languages

            objectName: "languages"
            Layout.fillWidth: true
            enabled: page.request === ""
            textRole: "name"
            valueRole: "code"
            Accessible.name: qsTr("Language of the text")
        }
    }

    Card {
        Layout.fillWidth: true
        Layout.fillHeight: true
        Layout.minimumHeight: 120

        EmptyState {
            visible: !page.recording && !page.finishing && page.message === ""
            icon: "qrc:/host/icons/voice.svg"
            text: qsTr("Press Record, or the space bar, and speak.")
        }
        Bars {
            objectName: "spectrum"
            anchors.fill: parent
            visible: page.recording
            values: page.bands
        }
        BusyIndicator {
            anchors.centerIn: parent
            running: page.finishing
        }
        Bars {
            objectName: "waveform"
            anchors.fill: parent
            visible: page.message !== "" && !page.recording && !page.finishing
            values: width < 700 ? page.engine.convertSamples(100, page.peaks) : page.peaks
            played: transport.position > 0 ? transport.position / Math.max(1, transport.duration) : 1

            MouseArea {
                anchors.fill: parent
                cursorShape: Qt.PointingHandCursor
                onClicked: transport.seek(mouse.x / width * transport.duration)
            }
        }
    }

    RowLayout {
        spacing: 12

        Button {
            objectName: "recordVoice"
            Layout.preferredWidth: 130
            focus: true
            highlighted: true
            enabled: !page.finishing
            Universal.accent: "#c4314b"
            icon.source: page.recording ? "qrc:/host/icons/stop.svg" : "qrc:/host/icons/record.svg"
            text: page.recording ? qsTr("Stop") : qsTr("Record")
            onClicked: page.recording ? page.stop() : page.record()
        }
        Button {
            objectName: "dropVoice"
            visible: page.recording
            icon.source: "qrc:/host/icons/close.svg"
            text: qsTr("Discard")
            onClicked: page.drop()

            Shortcut {
                sequences: [StandardKey.Cancel]
                enabled: page.recording && page.visible
                onActivated: page.drop()
            }
        }
        Label {
            visible: page.recording || page.finishing
            font.pixelSize: 20
            text: (page.milliseconds / 1000).toFixed(1) + " s"
        }
        Transport {
            id: transport

            objectName: "voiceTransport"
            Layout.fillWidth: true
            visible: page.message !== "" && !page.recording && !page.finishing
            file: page.message
            fileDuration: page.milliseconds
        }
        Item {
            Layout.fillWidth: true
            visible: !transport.visible
        }
    }

    Card {
        Layout.fillWidth: true
        Layout.preferredHeight: 130
        enabled: page.message !== "" && !page.recording && !page.finishing

        ColumnLayout {
            anchors.fill: parent

            RowLayout {
                spacing: 8

                Button {
                    objectName: "toText"
                    enabled: page.request === ""
                    icon.source: "qrc:/host/icons/text.svg"
                    text: qsTr("Turn into text")
                    onClicked: page.toText()
                }
                StackLayout {
                    Layout.fillWidth: true
                    currentIndex: page.request !== "" ? 0 : 1

                    WorkRow {
                        running: page.request !== ""
                        text: qsTr("Listening…")
                        onCancelled: page.cancelText()
                    }
                    Label {
                        id: answer

                        objectName: "answeringModel"
                        elide: Text.ElideRight
                        verticalAlignment: Text.AlignVCenter
                    }
                }
                SaveButton {
                    objectName: "saveVoice"
                    suffix: "aac"
                    nameFilters: [qsTr("Sound (*.aac)")]
                    onChosen: if (!hostFiles.saveCopy(page.message, target)) page.failure = qsTr("The message could not be saved there.")
                }
            }
            ScrollView {
                Layout.fillWidth: true
                Layout.fillHeight: true
                clip: true

                TextArea {
                    id: text

                    objectName: "voiceText"
                    readOnly: true
                    selectByMouse: true
                    wrapMode: TextArea.Wrap
                    placeholderText: qsTr("What was said will stand here.")
                    background: null
                }
            }
        }
    }

    Timer {
        interval: 15000
        running: page.finishing
        onTriggered: {
            page.finishing = false
            page.drop()
            page.failure = qsTr("The changed voice did not come. Try another voice.")
        }
    }

    Timer {
        interval: 60000
        running: page.request !== "" && text.text === ""
        onTriggered: {
            page.cancelText()
            page.failure = qsTr("Nothing came back. Is a speech recogniser installed on this computer?")
        }
    }
}
