import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15
import QtMultimedia 5.15
import Host 1.0

// Shows a film, stopped at its first picture, and plays it.
ColumnLayout {
    id: film

    property string file
    // Milliseconds. The player tells nothing of a seek while it pauses.
    property real position: 0
    readonly property bool playing: media.playbackState === MediaPlayer.PlayingState

    function seek(ms) {
        media.seek(ms)
        position = ms
    }

    function toggle() {
        if (playing)
            media.pause()
        else
            media.play()
    }

    onFileChanged: view.clear()
    onVisibleChanged: if (!visible) media.pause()
    spacing: 8

    Rectangle {
        Layout.fillWidth: true
        Layout.fillHeight: true
        color: "black"
        radius: 6

        FilmView {
            id: view

            anchors.fill: parent
        }
        Label {
            anchors.centerIn: parent
            width: parent.width - 40
            visible: media.error !== MediaPlayer.NoError
            Universal.theme: Universal.Dark
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            text: qsTr("This film cannot be shown here. <a href=\"%1\">Open it in another program</a>").arg(hostFiles.url(film.file))
            onLinkActivated: Qt.openUrlExternally(link)
        }
    }

    MediaPlayer {
        id: media

        source: hostFiles.url(film.file)
        videoOutput: view.surface
        notifyInterval: 100
        onPositionChanged: film.position = position
        onStatusChanged: if (status === MediaPlayer.Loaded && playbackState === MediaPlayer.StoppedState) pause()
    }

    RowLayout {
        spacing: 10
        enabled: film.file !== "" && media.error === MediaPlayer.NoError

        RoundButton {
            objectName: "playFilm"
            highlighted: true
            icon.source: film.playing ? "qrc:/host/icons/pause.svg" : "qrc:/host/icons/play.svg"
            Accessible.name: film.playing ? qsTr("Pause") : qsTr("Play")
            onClicked: film.toggle()
        }
        SeekSlider {
            objectName: "seekFilm"
            Layout.fillWidth: true
            duration: media.duration
            position: film.position
            onSought: film.seek(ms)
        }
    }
}
