import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// Makes a GIF smaller, or a video of it, with both beside each other.
HostPage {
    id: page

    property string file
    property size size
    property string result
    property bool resultIsVideo: false
    readonly property size wanted: Qt.size(Math.round(size.width * percent.value / 100),
                                           Math.round(size.height * percent.value / 100))

    function open(path) {
        page.failure = ""
        result = ""
        size = gifPage.size(path)
        file = size.width > 0 ? path : ""
        if (file === "")
            page.failure = qsTr("“%1” is no GIF.").arg(hostFiles.name(path))
    }

    function begin(video) {
        page.failure = ""
        result = ""
        resultIsVideo = video
        if (video)
            gifPage.toVideo(file)
        else
            gifPage.compress(file, wanted)
    }

    function saving() {
        const before = hostFiles.size(file)
        const change = Math.round(100 * (1 - hostFiles.size(result) / Math.max(1, before)))
        return change >= 0 ? qsTr("%1 % smaller").arg(change) : qsTr("%1 % larger").arg(-change)
    }

    title: qsTr("GIF")
    hint: file === "" ? qsTr("Make a GIF smaller, or turn it into a video") : hostFiles.name(file)
    takesFiles: true
    onFileDropped: open(path)

    actions: [
        OpenButton {
            objectName: "openGif"
            enabled: !gifPage.busy
            nameFilters: [qsTr("GIFs (*.gif)"), qsTr("All files (*)")]
            onChosen: page.open(path)
        },
        SaveButton {
            objectName: "saveGif"
            enabled: page.result !== ""
            suffix: page.resultIsVideo ? "mp4" : "gif"
            onChosen: if (!hostFiles.saveCopy(page.result, target)) page.failure = qsTr("The result could not be saved there.")
        }
    ]

    Connections {
        target: gifPage

        function onFinished(file, cancelled) {
            page.result = file
            if (file === "" && !cancelled)
                page.failure = qsTr("This GIF could not be read to its end: it is damaged, or too large.")
        }
    }

    RowLayout {
        spacing: 14

        Card {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredWidth: 1

            EmptyState {
                visible: page.file === ""
                icon: "qrc:/host/icons/gif.svg"
                text: qsTr("Open a GIF, or drop one here.")
            }
            ColumnLayout {
                anchors.fill: parent
                visible: page.file !== ""

                Label {
                    text: qsTr("Before")
                    font.bold: true
                }
                AnimatedImage {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    fillMode: Image.PreserveAspectFit
                    cache: false
                    playing: page.visible
                    source: hostFiles.url(page.file)
                }
                Label {
                    objectName: "sizeBefore"
                    text: qsTr("%1 × %2 · %3").arg(page.size.width).arg(page.size.height).arg(hostFiles.sizeText(hostFiles.size(page.file)))
                }
            }
        }

        Card {
            Layout.fillWidth: true
            Layout.fillHeight: true
            Layout.preferredWidth: 1

            EmptyState {
                visible: page.result === ""
                icon: "qrc:/host/icons/save.svg"
                text: gifPage.busy ? qsTr("One moment…") : qsTr("What you make of it will stand here.")
            }
            ColumnLayout {
                anchors.fill: parent
                visible: page.result !== ""

                Label {
                    text: qsTr("After")
                    font.bold: true
                }
                Loader {
                    Layout.fillWidth: true
                    Layout.fillHeight: true
                    active: page.result !== ""
                    sourceComponent: page.resultIsVideo ? filmView : gifView
                }
                Label {
                    objectName: "sizeAfter"
                    text: page.result === "" ? "" : qsTr("%1 · %2").arg(hostFiles.sizeText(hostFiles.size(page.result))).arg(page.saving())
                }
            }
            Component {
                id: filmView

                Film {
                    file: page.result
                }
            }
            Component {
                id: gifView

                AnimatedImage {
                    fillMode: Image.PreserveAspectFit
                    cache: false
                    playing: page.visible
                    source: hostFiles.url(page.result)
                }
            }
        }
    }

    StackLayout {
        Layout.fillHeight: false
        currentIndex: gifPage.busy ? 1 : 0

        RowLayout {
            enabled: page.file !== ""
            spacing: 12

            Slider {
                id: percent

                objectName: "percent"
                Layout.fillWidth: true
                from: 10
                to: 100
                value: 50
                stepSize: 5
                snapMode: Slider.SnapAlways
                Accessible.name: qsTr("Size")
            }
            Label {
                Layout.preferredWidth: 150
                text: page.file === "" ? qsTr("%1 %").arg(percent.value) : qsTr("%1 %: %2 × %3").arg(percent.value).arg(page.wanted.width).arg(page.wanted.height)
            }
            Button {
                objectName: "compress"
                highlighted: true
                text: qsTr("Make it smaller")
                onClicked: page.begin(false)
            }
            Button {
                objectName: "toVideo"
                icon.source: "qrc:/host/icons/video.svg"
                text: qsTr("To MP4")
                onClicked: page.begin(true)
            }
        }
        WorkRow {
            running: gifPage.busy
            text: qsTr("Working…")
            onCancelled: gifPage.cancel()
        }
    }
}
