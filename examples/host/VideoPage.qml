import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Quillon 1.0

// Shows the strip of a video; what stands between the two handles is clipped.
ColumnLayout {
    id: page

    property real duration: 0
    property bool clipping: false
    property string result: ""

    function open(path) {
        frames.clear()
        result = ""
        VideoEditor.setTotalGrabImageCount(9)
        if (VideoEditor.preview(path)) {
            duration = VideoEditor.getVideoInformation(VideoEditor.VideoInfo_Duration)
            span.setValues(0, duration)
        } else {
            duration = 0
            result = qsTr("This video cannot be shown.")
        }
    }

    function shown(ms) {
        return (ms / 1000).toFixed(1)
    }

    spacing: 14

    ListModel {
        id: frames
    }

    Connections {
        target: VideoEditor

        function onGrabFrameID(pts) {
            frames.append({ frame: String(pts) })
        }
    }

    Connections {
        target: videoPage

        function onClipped(file) {
            page.clipping = false
            page.result = file === "" ? qsTr("The clip could not be made.") : file
        }
    }

    Label {
        text: qsTr("Clip a video")
        font.pixelSize: 22
    }

    TextField {
        id: path

        objectName: "videoFile"
        Layout.fillWidth: true
        placeholderText: qsTr("Path of a video, then Enter")
        onAccepted: page.open(text)

        DropArea {
            anchors.fill: parent
            onDropped: {
                parent.text = drop.text.trim()
                page.open(parent.text)
            }
        }
    }

    Item {
        Layout.fillWidth: true
        Layout.preferredHeight: 76
        visible: frames.count > 0

        Row {
            anchors.fill: parent

            Repeater {
                model: frames

                Image {
                    width: parent.width / Math.max(1, frames.count)
                    height: parent.height
                    fillMode: Image.PreserveAspectCrop
                    cache: false // the ids of every strip begin anew
                    source: "image://videoimageprovider/" + frame
                }
            }
        }

        Rectangle {
            x: span.first.visualPosition * parent.width
            width: (span.second.visualPosition - span.first.visualPosition) * parent.width
            height: parent.height
            color: "transparent"
            border.color: palette.highlight
            border.width: 3
        }
    }

    RangeSlider {
        id: span

        objectName: "span"
        Layout.fillWidth: true
        to: Math.max(1, page.duration)
        enabled: page.duration > 0 && !page.clipping
    }

    RowLayout {
        Button {
            objectName: "clip"
            text: qsTr("Clip %1 s to %2 s").arg(page.shown(span.first.value)).arg(page.shown(span.second.value))
            highlighted: true
            enabled: page.duration > 0 && !page.clipping && span.second.value > span.first.value
            onClicked: {
                page.clipping = true
                videoPage.clip(path.text, span.first.value, span.second.value)
            }
        }
        BusyIndicator {
            running: page.clipping
        }
    }

    Label {
        objectName: "clipResult"
        Layout.fillWidth: true
        wrapMode: Text.WrapAnywhere
        text: page.result
    }

    Item {
        Layout.fillHeight: true
    }
}
