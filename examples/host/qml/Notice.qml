import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// Says what went wrong, until it is closed or there is nothing to say.
Rectangle {
    id: notice

    property string text

    visible: text !== ""
    implicitHeight: row.implicitHeight + 12
    radius: 6
    color: "#a4262c"

    Accessible.role: Accessible.AlertMessage
    Accessible.name: text

    Universal.theme: Universal.Dark

    RowLayout {
        id: row

        anchors.left: parent.left
        anchors.right: parent.right
        anchors.verticalCenter: parent.verticalCenter
        anchors.leftMargin: 14
        anchors.rightMargin: 6

        Label {
            Layout.fillWidth: true
            text: notice.text
            wrapMode: Text.Wrap
        }
        ToolButton {
            icon.source: "qrc:/host/icons/close.svg"
            icon.width: 16
            icon.height: 16
            Accessible.name: qsTr("Close")
            onClicked: notice.text = ""
        }
    }

    Shortcut {
        sequences: [StandardKey.Cancel]
        enabled: notice.visible
        onActivated: notice.text = ""
    }
}
