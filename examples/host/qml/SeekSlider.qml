import QtQuick 2.15
import QtQml 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// Where a playback stands, and where it is to go on. Times are in milliseconds.
RowLayout {
    id: seeker

    property real duration: 0
    property real position: 0

    signal sought(real ms)

    function clock(ms) {
        const seconds = Math.floor(ms / 1000)
        return Math.floor(seconds / 60) + ":" + ("0" + seconds % 60).slice(-2)
    }

    spacing: 10

    Label {
        text: seeker.clock(slider.value)
        Layout.preferredWidth: 40
        horizontalAlignment: Text.AlignRight
    }
    Slider {
        id: slider

        Layout.fillWidth: true
        to: Math.max(1, seeker.duration)
        stepSize: 1
        onMoved: seeker.sought(value)
        Keys.onLeftPressed: seeker.sought(Math.max(0, value - 5000))
        Keys.onRightPressed: seeker.sought(Math.min(to, value + 5000))
        Accessible.name: qsTr("Position")

        Binding on value {
            when: !slider.pressed
            value: seeker.position
            restoreMode: Binding.RestoreNone
        }
    }
    Label {
        text: seeker.clock(seeker.duration)
        Layout.preferredWidth: 40
    }
}
