import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// Plays a file through the player that all pages share.
RowLayout {
    id: transport

    property string file
    // Milliseconds; counts until the player has the file.
    property real fileDuration: 0
    readonly property bool current: file !== "" && player.source === file
    readonly property real duration: current && player.duration > 0 ? player.duration : fileDuration
    readonly property real position: current ? player.position : 0
    readonly property bool playing: current && player.state === 1

    function toggle() {
        if (!current)
            player.open(file)
        player.toggle()
    }

    function seek(ms) {
        if (!current)
            player.open(file)
        player.seek(ms)
    }

    enabled: file !== ""
    spacing: 10

    RoundButton {
        objectName: "play"
        highlighted: true
        icon.source: transport.playing ? "qrc:/host/icons/pause.svg" : "qrc:/host/icons/play.svg"
        Accessible.name: transport.playing ? qsTr("Pause") : qsTr("Play")
        onClicked: transport.toggle()
    }
    SeekSlider {
        objectName: "seek"
        Layout.fillWidth: true
        duration: transport.duration
        position: transport.position
        onSought: transport.seek(ms)
    }
    ComboBox {
        objectName: "speed"
        Layout.preferredWidth: 92
        model: [0.5, 0.75, 1, 1.25, 1.5, 2]
        currentIndex: model.indexOf(player.speed)
        displayText: currentText + " ×"
        Accessible.name: qsTr("Speed")
        onActivated: player.speed = model[index]
    }
}
