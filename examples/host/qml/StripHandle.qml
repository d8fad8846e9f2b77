import QtQuick 2.15
import QtQuick.Controls.Universal 2.15

// A handle of the strip of a video, as high as the strip.
Rectangle {
    property var slider
    property var node

    x: slider.leftPadding + node.visualPosition * (slider.availableWidth - width)
    width: 12
    height: slider.height
    radius: 3
    color: node.pressed || node.hovered ? Qt.lighter(Universal.accent, 1.2) : Universal.accent

    Rectangle {
        anchors.centerIn: parent
        width: 2
        height: 24
        radius: 1
        color: "white"
    }
}
