import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Controls.Universal 2.15
import QtQuick.Layouts 1.15

// A page of the window: its title, its buttons, what it holds, and a sentence when something failed. With
// `takesFiles`, files may be dropped on it.
FocusScope {
    id: page

    property alias title: heading.text
    property alias hint: subheading.text
    property alias failure: notice.text
    property alias takesFiles: dropArea.enabled
    property alias actions: actionRow.data
    default property alias content: body.data

    signal fileDropped(string path)

    ColumnLayout {
        anchors.fill: parent
        anchors.margins: 20
        spacing: 14

        RowLayout {
            spacing: 8

            ColumnLayout {
                spacing: 2

                Label {
                    id: heading

                    font.pixelSize: 24
                }
                Label {
                    id: subheading

                    Layout.fillWidth: true
                    color: Universal.baseMediumColor
                    elide: Text.ElideRight
                }
            }
            Row {
                id: actionRow

                Layout.alignment: Qt.AlignRight | Qt.AlignVCenter
                spacing: 8
            }
        }

        ColumnLayout {
            id: body

            Layout.fillWidth: true
            Layout.fillHeight: true
            spacing: 14
        }
    }

    DropArea {
        id: dropArea

        anchors.fill: parent
        enabled: false
        keys: ["text/uri-list"]
        onDropped: page.fileDropped(hostFiles.path(drop.urls[0]))

        Rectangle {
            anchors.fill: parent
            anchors.margins: 8
            visible: parent.containsDrag
            color: "transparent"
            radius: 8
            border.color: Universal.accent
            border.width: 3
        }
    }

    Notice {
        id: notice

        objectName: "notice"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        anchors.margins: 20
    }
}
