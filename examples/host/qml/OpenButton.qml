import QtQuick 2.15
import QtQuick.Controls 2.15
import Qt.labs.platform 1.1 as Platform

// Asks for a file.
Button {
    id: button

    property alias nameFilters: dialog.nameFilters

    signal chosen(string path)

    focus: true
    text: qsTr("Open…")
    icon.source: "qrc:/host/icons/open.svg"
    onClicked: dialog.open()

    ToolTip.text: "Ctrl+O"
    ToolTip.visible: hovered
    ToolTip.delay: 600

    Shortcut {
        sequences: [StandardKey.Open]
        enabled: button.visible && button.enabled
        onActivated: dialog.open()
    }

    Platform.FileDialog {
        id: dialog

        fileMode: Platform.FileDialog.OpenFile
        onAccepted: button.chosen(hostFiles.path(file))
    }
}
