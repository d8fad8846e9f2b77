import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

ApplicationWindow {
    title: qsTr("Multimedia example host")
    width: 560
    height: 420
    minimumWidth: 420
    minimumHeight: 340
    visible: true

    header: TabBar {
        id: tabs

        TabButton {
            text: qsTr("Screen")
        }
        TabButton {
            objectName: "voiceTab"
            text: qsTr("Voice")
        }
        TabButton {
            text: qsTr("Video")
        }
    }

    StackLayout {
        anchors.fill: parent
        anchors.margins: 24
        currentIndex: tabs.currentIndex

        ColumnLayout {
            spacing: 14

            Label {
                text: qsTr("Record the screen")
                font.pixelSize: 22
            }

            ComboBox {
                objectName: "screens"
                Layout.fillWidth: true
                model: screenPage.screens
                enabled: screenPage.waiting
                currentIndex: screenPage.screenIndex
                onActivated: screenPage.screenIndex = index
            }

            RowLayout {
                enabled: screenPage.waiting

                RadioButton {
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
                CheckBox {
                    text: qsTr("Microphone")
                    checked: !screenPage.mute
                    enabled: !screenPage.gif
                    onClicked: screenPage.mute = !checked
                }
            }

            RowLayout {
                Button {
                    objectName: "record"
                    text: screenPage.running ? qsTr("Pause") : screenPage.waiting ? qsTr("Record") : qsTr("Go on")
                    enabled: !screenPage.busy
                    highlighted: true
                    onClicked: screenPage.running ? screenPage.pause() : screenPage.start()
                }
                Button {
                    objectName: "stop"
                    text: qsTr("Stop")
                    enabled: !screenPage.waiting && !screenPage.busy
                    onClicked: screenPage.stop()
                }
                BusyIndicator {
                    running: screenPage.busy
                }
            }

            Label {
                objectName: "result"
                Layout.fillWidth: true
                wrapMode: Text.WrapAnywhere
                visible: screenPage.waiting && screenPage.file != ""
                text: qsTr("Recorded: <a href=\"%1\">%1</a>").arg(screenPage.file)
                onLinkActivated: Qt.openUrlExternally(link)
            }

            Item {
                Layout.fillHeight: true
            }
        }

        VoicePage {}

        VideoPage {}
    }
}
