import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15
import Quillon 1.0

// Shows a video with its strip of thumbnails; what stands between the two handles is clipped.
HostPage {
    id: page

    readonly property int frameCount: 12
    property string file
    property string clip
    property real duration: 0
    property string facts

    function open(path) {
        page.failure = ""
        clip = ""
        frames.clear()
        VideoEditor.setTotalGrabImageCount(frameCount)
        if (!VideoEditor.preview(path)) {
            file = ""
            duration = 0
            facts = ""
            page.failure = qsTr("“%1” is no video that can be shown.").arg(hostFiles.name(path))
            return
        }
        file = path
        duration = VideoEditor.getVideoInformation(VideoEditor.VideoInfo_Duration)
        facts = describe()
        span.setValues(0, duration)
    }

    function describe() {
        const fact = VideoEditor.getVideoInformation
        const parts = [
            qsTr("%1 × %2").arg(fact(VideoEditor.VideoInfo_VideoWidth)).arg(fact(VideoEditor.VideoInfo_VideoHeight)),
            qsTr("%1 pictures a second").arg(fact(VideoEditor.VideoInfo_VideoFps)),
            videoPage.codecName(fact(VideoEditor.VideoInfo_VideoCodecId))
        ]
        if (fact(VideoEditor.VideoInfo_HasAudio))
            parts.push(qsTr("%1, %2 kHz").arg(videoPage.codecName(fact(VideoEditor.VideoInfo_AudioCodecId))).arg(fact(VideoEditor.VideoInfo_AudioSampleRate) / 1000))
        else
            parts.push(qsTr("no sound"))
        parts.push(hostFiles.sizeText(hostFiles.size(file)))
        return parts.join(" · ")
    }

    function shown(ms) {
        return (ms / 1000).toFixed(1)
    }

    title: qsTr("Video")
    hint: file === "" ? qsTr("Look at a video, and cut a piece out of it") : hostFiles.name(file)
    takesFiles: true
    onFileDropped: open(path)

    actions: OpenButton {
        objectName: "openVideo"
        enabled: !videoPage.busy
        nameFilters: [qsTr("Videos (*.mp4 *.mov *.mkv *.webm *.avi *.m4v *.flv *.ts)"), qsTr("All files (*)")]
        onChosen: page.open(path)
    }

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

        function onClipped(file, cancelled) {
            page.clip = file
            if (file === "" && !cancelled)
                page.failure = qsTr("The clip could not be made: its streams do not fit into a file of this kind.")
        }
    }

    Card {
        Layout.fillWidth: true
        Layout.fillHeight: true

        EmptyState {
            visible: page.file === ""
            icon: "qrc:/host/icons/video.svg"
            text: qsTr("Open a video, or drop one here.")
        }
        Film {
            id: film

            objectName: "film"
            anchors.fill: parent
            visible: page.file !== ""
            file: page.clip !== "" ? page.clip : page.file
        }
    }

    Label {
        objectName: "videoFacts"
        Layout.fillWidth: true
        color: Universal.baseMediumColor
        elide: Text.ElideRight
        text: page.facts
    }

    Item {
        id: strip

        Layout.fillWidth: true
        Layout.preferredHeight: 72
        enabled: page.file !== "" && !videoPage.busy
        opacity: enabled ? 1 : 0.5

        Rectangle {
            anchors.fill: parent
            radius: 4
            color: Universal.baseLowColor
        }
        Repeater {
            model: frames

            Image {
                x: Math.round(index * strip.width / page.frameCount)
                width: Math.round((index + 1) * strip.width / page.frameCount) - x
                height: strip.height
                fillMode: Image.PreserveAspectCrop
                cache: false // the ids of every strip begin anew
                source: "image://videoimageprovider/" + frame
            }
        }
        Rectangle {
            width: span.first.visualPosition * strip.width
            height: strip.height
            color: "#90000000"
        }
        Rectangle {
            x: span.second.visualPosition * strip.width
            width: strip.width - x
            height: strip.height
            color: "#90000000"
        }
        Rectangle {
            x: span.first.visualPosition * strip.width
            width: (span.second.visualPosition - span.first.visualPosition) * strip.width
            height: strip.height
            visible: page.file !== ""
            color: "transparent"
            border.color: Universal.accent
            border.width: 3
        }
        Rectangle {
            x: film.position / Math.max(1, page.duration) * strip.width
            width: 2
            height: strip.height
            visible: page.clip === "" && page.file !== ""
            color: "white"
        }

        RangeSlider {
            id: span

            objectName: "span"
            anchors.fill: parent
            visible: page.file !== ""
            anchors.leftMargin: -6
            anchors.rightMargin: -6
            padding: 0
            to: Math.max(1, page.duration)
            stepSize: 100
            snapMode: RangeSlider.NoSnap
            background: null
            first.handle: StripHandle {
                slider: span
                node: span.first
            }
            second.handle: StripHandle {
                slider: span
                node: span.second
            }
            first.onMoved: film.seek(first.value)
            second.onMoved: film.seek(second.value)
        }
    }

    RowLayout {
        spacing: 12

        Button {
            objectName: "clip"
            highlighted: true
            enabled: page.file !== "" && !videoPage.busy && span.second.value > span.first.value
            icon.source: "qrc:/host/icons/cut.svg"
            text: qsTr("Clip %1 s to %2 s").arg(page.shown(span.first.value)).arg(page.shown(span.second.value))
            onClicked: {
                page.failure = ""
                page.clip = ""
                videoPage.clip(page.file, span.first.value, span.second.value)
            }
        }
        Label {
            objectName: "clipResult"
            Layout.fillWidth: true
            visible: !work.running
            color: Universal.baseMediumColor
            elide: Text.ElideRight
            text: page.clip !== "" ? qsTr("The clip is shown above: %1").arg(hostFiles.sizeText(hostFiles.size(page.clip))) : ""
        }
        WorkRow {
            id: work

            Layout.fillWidth: true
            visible: running
            running: videoPage.busy
            text: qsTr("Clipping…")
            onCancelled: videoPage.cancel()
        }
        Button {
            objectName: "wholeVideo"
            visible: page.clip !== ""
            text: qsTr("Back to the video")
            onClicked: page.clip = ""
        }
        SaveButton {
            objectName: "saveClip"
            visible: page.clip !== ""
            suffix: page.file.split(".").pop()
            onChosen: if (!hostFiles.saveCopy(page.clip, target)) page.failure = qsTr("The clip could not be saved there.")
        }
    }
}
