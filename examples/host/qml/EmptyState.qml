import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// What stands where there is nothing yet: a picture, and what to do.
ColumnLayout {
    property alias icon: picture.icon.source
    property alias text: sentence.text

    width: Math.min(parent.width - 40, 420)
    anchors.centerIn: parent
    spacing: 10

    ToolButton {
        id: picture

        Layout.alignment: Qt.AlignHCenter
        enabled: false
        opacity: 1
        implicitHeight: 72
        icon.width: 56
        icon.height: 56
        icon.color: Universal.baseMediumLowColor
        background: null
    }
    Label {
        id: sentence

        Layout.fillWidth: true
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.Wrap
        color: Universal.baseMediumColor
    }
}
