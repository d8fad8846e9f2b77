import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// Records the microphone in any of the voices, with the live spectrum as bars.
ColumnLayout {
    id: page

    readonly property var engine: MultimediaProvider.recordEngine
    property bool recording: false
    property var bands: []
    property real seconds: 0
    property string result: ""

    spacing: 14

    Connections {
        target: page.engine

        function onVoiceAmplitudeChanged(valus) {
            page.bands = valus
        }
        function onUpdateRecordInfo(duration) {
            page.seconds = duration / 1000
        }
        function onRecordFinished(retMap) {
            page.recording = false
            page.bands = []
            page.result = qsTr("%1 (%2 bytes)").arg(retMap.filePath).arg(retMap.size)
        }
    }

    Label {
        text: qsTr("Record a voice message")
        font.pixelSize: 22
    }

    ComboBox {
        id: voices

        Layout.fillWidth: true
        enabled: !page.recording
        textRole: "name"
        model: [
            { name: qsTr("As it is"), type: 0 },
            { name: qsTr("High pitch"), type: 1 },
            { name: qsTr("Low pitch"), type: 2 },
            { name: qsTr("Tremolo"), type: 3 },
            { name: qsTr("Half speed"), type: 5 },
            { name: qsTr("Double speed"), type: 8 }
        ]
    }

    RowLayout {
        Button {
            objectName: "recordVoice"
            text: page.recording ? qsTr("Stop") : qsTr("Record")
            highlighted: true
            onClicked: {
                if (page.recording) {
                    page.engine.stopRecord()
                    return
                }
                page.result = ""
                page.engine.setSpectrumNum(48)
                page.recording = page.engine.startRecord(voices.model[voices.currentIndex].type)
                if (!page.recording)
                    page.result = qsTr("The microphone cannot be opened.")
            }
        }
        Label {
            text: qsTr("%1 s").arg(page.seconds.toFixed(1))
            visible: page.recording
        }
    }

    Row {
        objectName: "spectrum"
        Layout.fillWidth: true
        Layout.fillHeight: true
        spacing: 2

        Repeater {
            model: page.bands

            Rectangle {
                width: (page.width - 2 * page.bands.length) / Math.max(1, page.bands.length)
                height: Math.max(2, Math.min(1, modelData) * parent.height)
                anchors.bottom: parent.bottom
                color: palette.highlight
            }
        }
    }

    Label {
        objectName: "voiceResult"
        Layout.fillWidth: true
        wrapMode: Text.WrapAnywhere
        text: page.result
    }
}
